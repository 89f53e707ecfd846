#include <Torvo/EnDecoder.hpp>

#include "arithmetic/elements/Messages.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "context/ContextContent.hpp"
#include "context/SameRing.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "encoding/CentredInteger.hpp"
#include "encoding/Encoding.hpp"
#include "encoding/MessageImpl.hpp"
#include "encoding/Messages.hpp"

#include <algorithm>
#include <cmath>
#include <complex>

namespace Torvo {

namespace {

/// Reads the coefficients 0, step, 2 * step, ... of row i of a polynomial in either form.
class StridedRow {
public:
    StridedRow(const PrimeModuli& primes, const Polynomial& mx, u64 i, u64 step)
        : step_(step), words_(primes.getDegree()) {
        std::copy_n(mx.getRow(i), primes.getDegree(), words_.getData());
        if (mx.isNTT()) primes[i].getNTT().computeBackward<1>(words_.getData());
    }
    u64 operator[](u64 k) const { return words_[k * step_]; }

private:
    u64 step_;
    DeviceSpecificArray<u64> words_;
};

std::vector<double> decodeFromOnePrime(const PrimeModuli& primes, const Polynomial& mx, u64 count,
                                       double factor) {
    const StridedRow row(primes, mx, 0, primes.getDegree() / count);
    std::vector<double> values(count);
    for (u64 i = 0; i < count; ++i) values[i] = centred(row[i], primes.getPrime(0)) * factor;
    return values;
}

std::vector<double> decodeFromTwoPrimes(const PrimeModuli& primes, const Polynomial& mx, u64 count,
                                        double factor) {
    const TwoPrimeReader read(primes);
    const u64 step = primes.getDegree() / count;
    const StridedRow row0(primes, mx, 0, step), row1(primes, mx, 1, step);
    std::vector<double> values(count);
    for (u64 i = 0; i < count; ++i) values[i] = read(row0[i], row1[i]) * factor;
    return values;
}

/// A copy of the plaintext's polynomial, on coefficients, brought down by the rescales it owes.
Polynomial settle(const PrimeModuli& primes, const Plaintext& plaintext) {
    Polynomial mx = plaintext.getMx();
    if (mx.isNTT()) primes.backwardNTT(mx, mx);
    for (int i = 0; i < plaintext.getRescaleCounter(); ++i) primes.rescale(mx);
    return mx;
}

Plaintext onHost(Plaintext plaintext) {
    plaintext.to(Device{});
    return plaintext;
}

std::vector<double> decodeSettled(const Context& context, const Polynomial& mx, u64 log_slots) {
    const u64 count = u64{2} << log_slots;
    const double factor = std::pow(2.0, -context->scale_factors.log_scale[mx.getLevel()]);
    return mx.getLevel() == 0 ? decodeFromOnePrime(context->primes, mx, count, factor)
                              : decodeFromTwoPrimes(context->primes, mx, count, factor);
}

} // namespace

EnDecoder::EnDecoder(const Context& context) : context_(requireContext(context)) {}

Plaintext EnDecoder::encode(const Message& message) const {
    return encode(message, context_->parameter.encryption_level, 0);
}

Plaintext EnDecoder::encode(const Message& message, unsigned long level, int rescale_counter) const {
    return Encoding(context_, message, level, rescale_counter).takeInNTTForm();
}

Plaintext EnDecoder::encodeWithoutNTT(const Message& message, unsigned long level,
                                      int rescale_counter) const {
    return Encoding(context_, message, level, rescale_counter).take();
}

Plaintext EnDecoder::encodeWithoutNTT(const std::vector<double>& coefficients, unsigned long level,
                                      int rescale_counter) const {
    return Encoding(context_, coefficients, level, rescale_counter).take();
}

Message EnDecoder::decode(const Plaintext& plaintext) const {
    const std::vector<double> values = decodeWithoutFFT(plaintext);
    const u64 slots = values.size() / 2;
    Message message;
    message.impl().resize(slots);
    std::complex<double>* slot = message.begin();
    for (u64 i = 0; i < slots; ++i) slot[i] = {values[i], values[i + slots]};
    context_->fft.forwardFFT(message);
    if (plaintext.getDevice() != Device{}) message.to(plaintext.getDevice());
    return message;
}

std::vector<double> EnDecoder::decodeWithoutFFT(const Plaintext& plaintext) const {
    if (plaintext.getDevice() != Device{}) return decodeWithoutFFT(onHost(plaintext));
    require(plaintext.getLogSlots() < context_->parameter.log_degree, message::encodeSizeTooLarge);
    require(plaintext.getRescaleCounter() <= static_cast<int>(plaintext.getLevel()),
            message::rescaleCounterAboveLevel);
    require(isOfRing(context_, plaintext.getMx()), message::operandsOfOtherRing);
    if (plaintext.getRescaleCounter() == 0)
        return decodeSettled(context_, plaintext.getMx(), plaintext.getLogSlots());
    return decodeSettled(context_, settle(context_->primes, plaintext), plaintext.getLogSlots());
}

} // namespace Torvo
