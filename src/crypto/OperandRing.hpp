#pragma once

#include "arithmetic/elements/Messages.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "context/SameRing.hpp"
#include "core/Failure.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Plaintext.hpp>

#include <algorithm>

namespace Torvo {

/// Whether every element is of the ring of `context`, see the form for polynomials.
inline bool isOfRing(const Context& context, const Plaintext& plaintext) {
    return isOfRing(context, plaintext.getMx());
}
template <EncryptionType E>
bool isOfRing(const Context& context, const CiphertextBase<E>& ciphertext) {
    return std::ranges::all_of(ciphertext.getPolys().getPolys(),
                               [&](const Polynomial& element) { return isOfRing(context, element); });
}

/// The last guard of an operation, before anything is written: operands may be of another context, and a
/// level may have been set by hand to one that the chain does not have.
template <class... Operands>
void requireOfRing(const Context& context, const Operands&... operands) {
    require((isOfRing(context, operands) && ...), message::operandsOfOtherRing);
}

} // namespace Torvo
