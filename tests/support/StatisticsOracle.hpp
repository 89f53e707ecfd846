#pragma once

#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Plan.hpp>

#include <complex>
#include <functional>
#include <vector>

/// Statistics of blocks of slots by their definition, in numbers of 64 bits, and what they are taken of.
namespace Torvo::test {

using Exact = std::complex<long double>;
using Numbers = std::vector<Exact>;

inline Exact sumOf(const Numbers& x) {
    Exact sum = 0;
    for (const Exact& each : x) sum += each;
    return sum;
}

inline Exact meanOf(const Numbers& x) {
    return sumOf(x) / static_cast<long double>(x.size());
}

inline Exact productsOf(const Numbers& x, const Numbers& y) {
    Exact sum = 0;
    for (u64 i = 0; i < x.size(); ++i) sum += x[i] * y[i];
    return sum;
}

inline Numbers centred(Numbers x) {
    const Exact mean = meanOf(x);
    for (Exact& each : x) each -= mean;
    return x;
}

inline Exact covarianceOf(const Numbers& x, const Numbers& y, long double divisor) {
    return productsOf(centred(x), centred(y)) / divisor;
}

inline Exact squaredDistanceOf(Numbers x, const Numbers& y) {
    for (u64 i = 0; i < x.size(); ++i) x[i] -= y[i];
    return productsOf(x, x);
}

/// The numbers of the block of slot `first` in all messages.
inline Numbers blockOf(const std::vector<Message>& x, u64 first, u64 length) {
    Numbers numbers;
    for (const Message& each : x)
        for (u64 i = first; i < first + length; ++i) numbers.emplace_back(each[i]);
    return numbers;
}

inline Message expectedOf(const std::function<Exact(const Numbers&, const Numbers&)>& exact,
                          const std::vector<Message>& x, const std::vector<Message>& y, u64 length) {
    Message out = x.front();
    for (u64 first = 0; first < out.getSize(); first += length) {
        const Exact value = exact(blockOf(x, first, length), blockOf(y, first, length));
        for (u64 i = first; i < first + length; ++i) out[i] = std::complex<double>(value);
    }
    return out;
}

inline std::vector<Message> messagesOf(Seeded& random, u64 logSlots, u64 count, bool isReal) {
    std::vector<Message> messages;
    for (u64 k = 0; k < count; ++k) {
        messages.push_back(random.message(logSlots));
        if (isReal)
            for (auto& slot : messages.back()) slot = slot.real();
    }
    return messages;
}

inline std::vector<Ciphertext> encrypted(const Scheme& scheme, const std::vector<Message>& messages,
                                         u64 level) {
    std::vector<Ciphertext> out;
    for (const Message& each : messages) out.push_back(scheme.encrypt(each, level));
    return out;
}

inline std::vector<PlannedCiphertext> planned(const Plan& plan, const std::vector<Message>& messages,
                                              u64 level) {
    std::vector<PlannedCiphertext> out;
    for (const Message& each : messages) out.push_back(plan.encrypt(each, level));
    return out;
}

/// The predicted errors are those of one run, so that another run may err by a few times the largest of them.
inline constexpr double runs = 6;

/// A block of all slots has one error alone, and the predicted one may be small by chance; this is a few times what
/// it is on average: 2^-33 for a product, times the root of up to 32 * 3 of them.
inline constexpr double fewErrors = 0x1p-28;

/// Of ST11, with the rotation keys that a plan names.
inline HomEvaluator evaluatorFor(const Plan& plan) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    generator.genMultKey();
    for (const unsigned long index : plan.getReport().leftRotations) generator.genLeftRotKey(index);
    return HomEvaluator(scheme.context, pack);
}

} // namespace Torvo::test
