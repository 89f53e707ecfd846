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

/// Calls store(i, c) for i < count, c being coefficient i * degree / count of a polynomial, times `factor`, from its
/// first prime or two.
template <class Store>
void decodeCoefficients(const PrimeModuli& primes, const Polynomial& mx, u64 count, double factor,
                        Store&& store) {
    const u64 degree = primes.getDegree(), step = degree / count;
    const auto storeAll = [&](auto&& coefficientAt) {
        forEachShare(count, [&](u64 begin, u64 end) {
            for (u64 i = begin; i < end; ++i) store(i, coefficientAt(i * step) * factor);
        });
    };
    if (mx.getLevel() == 0) {
        const auto row = firstRows(primes, mx, 1);
        return storeAll([&](u64 k) { return centred(row[k], primes.getPrime(0)); });
    }
    const auto rows = firstRows(primes, mx, 2);
    const u64* row1 = rows.getData() + degree;
    const TwoPrimeReader read(primes);
    storeAll([&](u64 k) { return read(rows[k], row1[k]); });
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

void requireDecodable(const Context& context, const Plaintext& plaintext) {
    require(plaintext.getLogSlots() < context->parameter.log_degree, message::encodeSizeTooLarge);
    require(plaintext.getRescaleCounter() <= static_cast<int>(plaintext.getLevel()),
            message::rescaleCounterAboveLevel);
    require(isOfRing(context, plaintext.getMx()), message::operandsOfOtherRing);
}

/// The same for the coefficients that a plaintext on the host encodes, two for each slot.
template <class Store>
void decodeCoefficients(const Context& context, const Plaintext& plaintext, Store&& store) {
    const auto decodeSettled = [&](const Polynomial& mx) {
        const double factor = std::pow(2.0, -context->scale_factors.log_scale[mx.getLevel()]);
        decodeCoefficients(context->primes, mx, u64{2} << plaintext.getLogSlots(), factor, store);
    };
    if (plaintext.getRescaleCounter() == 0) return decodeSettled(plaintext.getMx());
    decodeSettled(settle(context->primes, plaintext));
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
    if (plaintext.getDevice() != Device{}) {
        Message message = decode(onHost(plaintext));
        message.to(plaintext.getDevice());
        return message;
    }
    requireDecodable(context_, plaintext);
    const u64 slots = u64{1} << plaintext.getLogSlots();
    Message message;
    message.impl().resize(slots);
    // An array of complex numbers is one of their parts, by the rules of std::complex.
    auto* parts = reinterpret_cast<double*>(message.begin());
    decodeCoefficients(context_, plaintext, [parts, slots](u64 i, double x) {
        parts[i < slots ? 2 * i : 2 * (i - slots) + 1] = x;
    });
    context_->fft.forwardFFT(message);
    return message;
}

std::vector<double> EnDecoder::decodeWithoutFFT(const Plaintext& plaintext) const {
    if (plaintext.getDevice() != Device{}) return decodeWithoutFFT(onHost(plaintext));
    requireDecodable(context_, plaintext);
    std::vector<double> values(u64{2} << plaintext.getLogSlots());
    decodeCoefficients(context_, plaintext, [&](u64 i, double x) { values[i] = x; });
    return values;
}

} // namespace Torvo
