#include <Torvo/EnDecoder.hpp>

#include "arithmetic/elements/Messages.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
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

/// The first `count` rows of a polynomial in either form, on coefficients.
DeviceSpecificArray<u64> firstRows(const PrimeModuli& primes, const Polynomial& mx, u64 count) {
    const u64 degree = primes.getDegree();
    DeviceSpecificArray<u64> rows(count * degree);
    forEachIndex(count, [&](u64 i) {
        u64* row = rows.getData() + i * degree;
        std::copy_n(mx.getRow(i), degree, row);
        if (mx.isNTT()) primes[i].getNTT().computeBackward<1>(row);
    });
    return rows;
}

/// The `count` coefficients of a polynomial at stride degree / count, times `factor`, from its first prime or two.
std::vector<double> decodeCoefficients(const PrimeModuli& primes, const Polynomial& mx, u64 count,
                                       double factor) {
    const u64 degree = primes.getDegree(), step = degree / count;
    std::vector<double> values(count);
    const auto fill = [&](auto&& coefficientAt) {
        forEachShare(count, [&](u64 begin, u64 end) {
            for (u64 i = begin; i < end; ++i) values[i] = coefficientAt(i * step) * factor;
        });
    };
    if (mx.getLevel() == 0) {
        const auto row = firstRows(primes, mx, 1);
        fill([&](u64 k) { return centred(row[k], primes.getPrime(0)); });
        return values;
    }
    const auto rows = firstRows(primes, mx, 2);
    const u64* row1 = rows.getData() + degree;
    const TwoPrimeReader read(primes);
    fill([&](u64 k) { return read(rows[k], row1[k]); });
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
    return decodeCoefficients(context->primes, mx, count, factor);
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
