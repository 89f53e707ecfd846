#pragma once

#include "context/ContextContent.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Plaintext.hpp>

namespace Torvo {

/// Makes `out` an object of `context` in the given mod-up state, whatever it was used for before; one that
/// already is keeps its storage and contents.
template <EncryptionType E>
void shapeOutput(const Context& context, bool isModUp, CiphertextBase<E>& out) {
    const bool fits = *out.getContext() == *context && out.isModUp() == isModUp;
    if (!fits) out = CiphertextBase<E>(context, isModUp);
}

inline void shapeOutput(const Context& context, bool isModUp, Plaintext& out) {
    if (!(*out.getContext() == *context)) out = Plaintext(context);
    if (out.getMx().isModUp() != isModUp) out.getMx() = Polynomial(context, isModUp, true);
}

} // namespace Torvo
