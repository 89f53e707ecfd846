#pragma once

#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "core/Failure.hpp"
#include "core/Integers.hpp"
#include "crypto/Messages.hpp"
#include "crypto/OperandRing.hpp"
#include "crypto/OutputShape.hpp"
#include "encoding/MessageImpl.hpp"
#include "encoding/Messages.hpp"
#include "encoding/Stamp.hpp"
#include "evaluator/Messages.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <type_traits>

/// The guards that the operations of the evaluator share, and the shaping of their outputs.
namespace Torvo::utils {

// ---- guards

template <class T>
bool isOnSlots(const T& operand) {
    if constexpr (WithEncodingType<T>) return operand.getEncodingType() == EncodingType::Slot;
    return true;
}

template <class T>
void requireOnSlots(const T& operand) {
    require(isOnSlots(operand), message::notOnSlots);
}

template <class A, class B>
bool haveSameSlots(const A& a, const B& b) {
    // A message may be resized to any count, and two counts may share a rounded logarithm.
    if constexpr (std::is_same_v<A, Message> && std::is_same_v<B, Message>)
        return a.getSize() == b.getSize();
    else
        return a.getLogSlots() == b.getLogSlots();
}

/// Requires that two operands match; each rule applies if both have the property.
template <class A, class B>
void requireMatching(const A& a, const B& b) {
    if constexpr (Slotted<A> && Slotted<B>) require(haveSameSlots(a, b), message::differentLogSlots);
    if constexpr (Owing<A> && Owing<B>)
        require(a.getRescaleCounter() == b.getRescaleCounter(), message::differentRescaleCounters);
    require(a.getDevice() == b.getDevice(), message::twoOperandsOnDifferentDevices);
    if constexpr (WithEncodingType<A> && WithEncodingType<B>)
        require(a.getEncodingType() == b.getEncodingType(), message::differentEncodings);
}

template <class T>
bool owesNothing(const T& operand) {
    return operand.getRescaleCounter() == 0;
}

template <class A, class B>
void requireEqualLevels(const A& a, const B& b) {
    require(a.getLevel() == b.getLevel(), message::operandsDifferInLevel);
}

template <class... T>
void requireLevelAboveZero(const T&... operands) {
    require(((operands.getLevel() > 0) && ...), message::levelZero);
}

template <class... T>
void requireNothingOwed(const T&... operands) {
    require((owesNothing(operands) && ...),
            sizeof...(T) == 1 ? message::operandOwesRescale : message::operandsOweRescale);
}

/// Levels above 0, nothing owed: what every product asks of its operands, in the order in which it is told.
template <class... T>
void requireReadyToMultiply(const T&... operands) {
    requireLevelAboveZero(operands...);
    requireNothingOwed(operands...);
}

/// A level set by hand may have fallen below the counter, and the scale of such data is not defined.
template <class T>
void requireCounterWithinLevel(const T& operand) {
    require(static_cast<u64>(operand.getRescaleCounter()) <= operand.getLevel(),
            message::rescaleCounterAboveLevel);
}

// ---- outputs

/// Gives a message that will be overwritten the device and the size of another, unless it has them.
inline void fitOutput(const Message& in, Message& out) {
    require(in.getDevice().type != DeviceType::GPU, message::messageOnGPU);
    if (out.getDevice() != in.getDevice()) out.allocate(in.getDevice());
    if (out.getSize() != in.getSize()) out.impl().resize(in.getSize());
}

inline u64 numElements(const Plaintext&) {
    return 1;
}
template <EncryptionType E>
u64 numElements(const CiphertextBase<E>& ciphertext) {
    return ciphertext.getNumPoly();
}

inline const Polynomial& element(const Plaintext& plaintext, u64) {
    return plaintext.getMx();
}
inline Polynomial& element(Plaintext& plaintext, u64) {
    return plaintext.getMx();
}
template <EncryptionType E>
const Polynomial& element(const CiphertextBase<E>& ciphertext, u64 i) {
    return ciphertext.getPoly(i);
}
template <EncryptionType E>
Polynomial& element(CiphertextBase<E>& ciphertext, u64 i) {
    return ciphertext.getPoly(i);
}

/// Makes `out` fit for `count` elements in the state `modUp`. The content is lost only if its context or
/// state differs, which never happens for an output that is an operand.
template <EncryptionType E>
void fitElements(const Context& context, u64 count, bool modUp, CiphertextBase<E>& out) {
    shapeOutput(context, modUp, out);
    out.getPolys().setSize(count);
}

template <EncryptionType E>
void fitLike(const CiphertextBase<E>& in, CiphertextBase<E>& out) {
    fitElements(in.getContext(), in.getNumPoly(), in.isModUp(), out);
}
inline void fitLike(const Plaintext& in, Plaintext& out) {
    shapeOutput(in.getContext(), in.getMx().isModUp(), out);
}

/// Copies elements `from` and up.
template <class T>
void copyElements(const T& in, u64 from, T& out) {
    if (&in == &out) return;
    for (u64 i = from; i < numElements(in); ++i) element(out, i) = element(in, i);
}

// ---- sums and differences, told as one

struct Plus {
    static constexpr const char* refusalOfModUpLevels = message::addOfModUpLevels;
    template <class T>
    static void combine(const PrimeModuli& primes, const T& a, const T& b, T& out) {
        primes.add(a, b, out);
    }
    /// 0 + b.
    static void onlySecond(const PrimeModuli&, const Polynomial& b, Polynomial& out) { out = b; }
};

struct Minus {
    static constexpr const char* refusalOfModUpLevels = message::subOfModUpLevels;
    template <class T>
    static void combine(const PrimeModuli& primes, const T& a, const T& b, T& out) {
        primes.sub(a, b, out);
    }
    /// 0 - b.
    static void onlySecond(const PrimeModuli& primes, const Polynomial& b, Polynomial& out) {
        primes.negate(b, out);
    }
};

} // namespace Torvo::utils
