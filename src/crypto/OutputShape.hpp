#pragma once

#include "arithmetic/elements/PolynomialVector.hpp"
#include "context/ContextContent.hpp"
#include "core/Integers.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Plaintext.hpp>

#include <utility>

namespace Torvo {

/// `numPoly` ring elements at the top level, not mod-up, in NTT form, data unset: for an internal object that
/// is written completely before the user can see it. Objects that users can see begin with zeros, because
/// unset data may be any freed memory.
template <EncryptionType E = EncryptionType::RLWE>
CiphertextBase<E> unsetCiphertext(const Context& context, u64 numPoly) {
    return CiphertextBase<E>(PolynomialVector(context, numPoly, false, true));
}

template <EncryptionType E = EncryptionType::RLWE>
CiphertextBase<E> unsetCiphertext(const Context& context) {
    return unsetCiphertext<E>(context, getRank(context) + 1);
}

/// Whether `out` is an object of `context` in the given mod-up state.
template <EncryptionType E>
bool hasShape(const Context& context, bool isModUp, const CiphertextBase<E>& out) {
    return *out.getContext() == *context && out.isModUp() == isModUp;
}

/// Makes `out` an object of `context` in the given mod-up state. If it already is one, it keeps its storage
/// and content. A new one is zero: an operation that fails later leaves it to the caller, and one that
/// succeeds does not write the holes.
template <EncryptionType E>
void shapeOutput(const Context& context, bool isModUp, CiphertextBase<E>& out) {
    if (!hasShape(context, isModUp, out)) out = CiphertextBase<E>(context, isModUp);
}

inline void shapeOutput(const Context& context, bool isModUp, Plaintext& out) {
    if (!(*out.getContext() == *context)) out = Plaintext(context);
    if (out.getMx().isModUp() == isModUp) return;
    Polynomial zero(context, isModUp, true);
    zero.clear();
    out.getMx() = std::move(zero);
}

} // namespace Torvo
