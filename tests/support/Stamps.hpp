#pragma once

#include "core/Integers.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/EncodingType.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/Plaintext.hpp>

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

/// What an output says of itself besides its words: log slots, owed rescales, encoding type.
namespace Torvo::test {

/// An object that has no such field reads as 0 or as on slots.
struct SeenStamp {
    u64 logSlots = 0;
    int owed = 0;
    EncodingType encoding = EncodingType::Slot;

    friend bool operator==(const SeenStamp&, const SeenStamp&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const SeenStamp& s) {
        return stream << "2^" << s.logSlots << " slots, " << s.owed << " owed, on "
                      << (s.encoding == EncodingType::Slot ? "slots" : "coefficients");
    }
};

template <EncryptionType E>
SeenStamp stampOf(const CiphertextBase<E>& object) {
    return {object.getLogSlots(), object.getRescaleCounter(), object.getEncodingType()};
}
inline SeenStamp stampOf(const Plaintext& object) {
    return {object.getLogSlots(), object.getRescaleCounter()};
}
inline SeenStamp stampOf(const LWE::Ciphertext& object) {
    return {0, object.getRescaleCounter()};
}

/// The encoding type that an operation leaves.
enum class LeavesEncoding { OfOperand, OnSlots, OfOutput };

inline EncodingType encodingLeft(LeavesEncoding rule, EncodingType operand, EncodingType output) {
    if (rule == LeavesEncoding::OnSlots) return EncodingType::Slot;
    return rule == LeavesEncoding::OfOperand ? operand : output;
}

/// `used` under a stamp that has nothing in common with that which an operation is to leave, but for the
/// encoding type, which is given.
template <EncryptionType E>
CiphertextBase<E> stampedOtherwise(CiphertextBase<E> used, const SeenStamp& left, EncodingType encoding) {
    if (used.getLevel() < 2) used.setLevel(2);
    used.setRescaleCounter(left.owed == 2 ? 1 : 2);
    used.setLogSlots(left.logSlots + 1);
    used.setEncodingType(encoding);
    return used;
}

inline Plaintext stampedOtherwise(Plaintext used, const SeenStamp& left) {
    if (used.getLevel() < 2) used.setLevel(2);
    used.setRescaleCounter(left.owed == 2 ? 1 : 2);
    used.setLogSlots(left.logSlots + 1);
    return used;
}

} // namespace Torvo::test
