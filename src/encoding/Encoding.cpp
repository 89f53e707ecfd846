#include "encoding/Encoding.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/PrimeProduct.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "encoding/Messages.hpp"
#include "encoding/Stamp.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>
#include <utility>

namespace Torvo {

namespace {

/// The rules that encoding from slots and from coefficients share; each form has its own on the size.
void requireLevel(const Context& context, u64 level) {
    require(level < context->parameter.chain_length, message::encodeLevelTooHigh);
}

void requireCounter(int rescale_counter, u64 level) {
    require(rescale_counter <= static_cast<int>(level), message::encodeCounterAboveLevel);
}

u64 logSlotsOf(const Context& context, const Message& message, u64 level, int rescale_counter) {
    require(!message.isEmpty(), message::encodeNothing);
    require(std::has_single_bit(message.getSize()), message::encodeSizeNotPowerOfTwo);
    requireLevel(context, level);
    require(message.getLogSlots() < context->parameter.log_degree, message::encodeSizeTooLarge);
    requireCounter(rescale_counter, level);
    return message.getLogSlots();
}

u64 logSlotsOf(const Context& context, const std::vector<double>& coefficients, u64 level,
               int rescale_counter) {
    requireLevel(context, level);
    require(coefficients.size() > 1, message::encodeFewerThanTwo);
    require(coefficients.size() <= context->parameter.degree, message::encodeSizeNotPowerOfTwo);
    requireCounter(rescale_counter, level);
    return static_cast<u64>(std::bit_width(coefficients.size())) - 2;
}

Plaintext blankPlaintext(const Context& context, u64 log_slots, const Device& device, u64 level,
                         int rescale_counter) {
    Plaintext plaintext(context, Polynomial(context, false, true, level)); // kept: no rows to spare
    plaintext.allocate(device);
    Stamp{log_slots, rescale_counter}.putOn(plaintext);
    return plaintext;
}

void multiplyByOwedPrimes(const PrimeModuli& primes, Plaintext& plaintext) {
    const auto owed = static_cast<u64>(plaintext.getRescaleCounter());
    if (owed == 0) return;
    const u64 rows = plaintext.getLevel() + 1;
    DeviceSpecificArray<u64> constants(rows);
    for (u64 i = 0; i < rows; ++i)
        constants[i] = primeProduct(primes.getModuli(), rows - owed, rows, primes[i]);
    constants.to(plaintext.getDevice());
    Polynomial& mx = plaintext.getMx();
    primes.constMult(mx, constants.getData(), mx, OutputModulusBoundValidator(0, rows));
}

std::span<const double> partsOf(const Message& message) {
    // An array of complex numbers is one of their parts, by the rules of std::complex.
    return {reinterpret_cast<const double*>(message.begin()), 2 * message.getSize()};
}

double firstBeyond(const EncodingBound& bound, std::span<const double> numbers) {
    return *std::ranges::find_if_not(numbers, [&](double x) { return bound.holds(x); });
}

} // namespace

Encoding::Encoding(const Context& context, const Message& message, u64 level, int rescale_counter)
    : context_(context),
      plaintext_(blankPlaintext(context, logSlotsOf(context, message, level, rescale_counter),
                                message.getDevice(), level, rescale_counter)) {
    embed(message);
    multiplyByOwedPrimes(context->primes, plaintext_);
}

Encoding::Encoding(const Context& context, const std::vector<double>& coefficients, u64 level,
                   int rescale_counter)
    : context_(context),
      plaintext_(blankPlaintext(context, logSlotsOf(context, coefficients, level, rescale_counter), Device{},
                                level, rescale_counter)) {
    embed(coefficients);
    multiplyByOwedPrimes(context->primes, plaintext_);
}

EncodingBound Encoding::bound() const {
    return {context_->primes, context_->scale_factors, plaintext_.getLevel(), plaintext_.getRescaleCounter()};
}

void Encoding::embed(const Message& message) {
    // The transform would miss its tables before the embedding could tell.
    context_->primes.requireServed(message.getDevice(), true);
    Message coefficients = message;
    context_->fft.backwardFFT(coefficients);
    const EncodingBound limits = bound();
    context_->primes.embeddingToN(coefficients, limits.scale(), plaintext_.getMx());
    if (limits.holdsAll(partsOf(coefficients))) return;
    // Infinities come out of the transform as NaN: what the caller gave tells him more.
    const auto slots = partsOf(message);
    const auto notFinite = std::ranges::find_if_not(slots, [](double x) { return std::isfinite(x); });
    outOfRange_ = notFinite != slots.end()
                      ? Number{"number", *notFinite}
                      : Number{"coefficient", firstBeyond(limits, partsOf(coefficients))};
}

void Encoding::embed(const std::vector<double>& coefficients) {
    const EncodingBound limits = bound();
    context_->primes.embeddingToN(coefficients.data(), coefficients.size(), limits.scale(),
                                  plaintext_.getMx());
    if (!limits.holdsAll(coefficients)) outOfRange_ = Number{"number", firstBeyond(limits, coefficients)};
}

Plaintext Encoding::take() && {
    if (outOfRange_) bound().refuse(outOfRange_->what, outOfRange_->value);
    return std::move(plaintext_);
}

Plaintext Encoding::takeInNTTForm() && {
    Plaintext plaintext = std::move(*this).take();
    context_->primes.forwardNTT(plaintext.getMx(), plaintext.getMx());
    return plaintext;
}

} // namespace Torvo
