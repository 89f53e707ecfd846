#include "encoding/Encoding.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/PrimeProduct.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
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

/// By row, the product of the primes that the plaintext owes; nothing if it owes none.
DeviceSpecificArray<u64> owedPrimes(const PrimeModuli& primes, const Plaintext& plaintext) {
    const auto owed = static_cast<u64>(plaintext.getRescaleCounter());
    const u64 rows = plaintext.getLevel() + 1;
    DeviceSpecificArray<u64> products(owed == 0 ? 0 : rows);
    for (u64 i = 0; i < products.size(); ++i)
        products[i] = primeProduct(primes.getModuli(), rows - owed, rows, primes[i]);
    return products;
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
}

Encoding::Encoding(const Context& context, const std::vector<double>& coefficients, u64 level,
                   int rescale_counter)
    : context_(context),
      plaintext_(blankPlaintext(context, logSlotsOf(context, coefficients, level, rescale_counter), Device{},
                                level, rescale_counter)) {
    embed(coefficients);
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
    numbers_ = context_->primes.roundToN(coefficients, limits.scale(), plaintext_.getMx());
    if (limits.holdsAll(partsOf(coefficients))) return;
    // Infinities come out of the transform as NaN: what the caller gave says more.
    const auto slots = partsOf(message);
    const auto notFinite = std::ranges::find_if_not(slots, [](double x) { return std::isfinite(x); });
    outOfRange_ = notFinite != slots.end()
                      ? Number{"number", *notFinite}
                      : Number{"coefficient", firstBeyond(limits, partsOf(coefficients))};
}

void Encoding::embed(const std::vector<double>& coefficients) {
    const EncodingBound limits = bound();
    numbers_ = context_->primes.roundToN(coefficients.data(), coefficients.size(), limits.scale(),
                                         plaintext_.getMx());
    if (!limits.holdsAll(coefficients)) outOfRange_ = Number{"number", firstBeyond(limits, coefficients)};
}

void Encoding::requireInRange() const {
    if (outOfRange_) bound().refuse(outOfRange_->what, outOfRange_->value);
}

void Encoding::takeRows(std::span<const u64> primes, u64* rows) && {
    requireInRange();
    const u64 degree = context_->parameter.degree;
    forEachIndex(primes.size(),
                 [&](u64 i) { context_->primes.spreadToRow(numbers_, primes[i], rows + i * degree); });
}

Plaintext Encoding::take(bool inNTT) && {
    requireInRange();
    const PrimeModuli& primes = context_->primes;
    primes.spreadToN(numbers_, owedPrimes(primes, plaintext_), inNTT, plaintext_.getMx());
    return std::move(plaintext_);
}

Plaintext Encoding::take() && {
    return std::move(*this).take(false);
}

Plaintext Encoding::takeInNTTForm() && {
    return std::move(*this).take(true);
}

} // namespace Torvo
