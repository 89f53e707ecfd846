#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "support/PinnedWords.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/EncodingType.hpp>
#include <Torvo/Plaintext.hpp>

#include <utility>
#include <vector>

/// Outputs as earlier uses may have left them. Each holds words of its own, the same in every call, so that a
/// test can also ask whether a refused operation left it alone. The context has three primes or more.
namespace Torvo::test {

/// Two elements too many, with one log slot, at level 0, owing more than that level bears.
template <EncryptionType E = EncryptionType::RLWE>
CiphertextBase<E> usedLonger(const Context& context) {
    auto out = wordsOfCiphertext<E>(context, 2, 901);
    out.setNumPoly(out.getNumPoly() + 2);
    out.setLogSlots(1);
    out.setRescaleCounter(2);
    out.setLevel(0);
    return out;
}

/// In the other mod-up state, with two log slots, owing one rescale.
template <EncryptionType E = EncryptionType::RLWE>
CiphertextBase<E> usedModUp(const Context& context) {
    auto out = wordsOfCiphertext<E>(context, 1, 902, true);
    out.setLogSlots(2);
    out.setRescaleCounter(1);
    return out;
}

/// On coefficients and out of NTT form, with one slot, owing one rescale.
template <EncryptionType E = EncryptionType::RLWE>
CiphertextBase<E> usedOnCoefficients(const Context& context) {
    auto out = wordsOfCiphertext<E>(context, 1, 903);
    for (Polynomial& element : out.getPolys().getPolys()) element.setNTT(false);
    out.setEncodingType(EncodingType::Coefficient);
    out.setLogSlots(0);
    out.setRescaleCounter(1);
    return out;
}

template <EncryptionType E = EncryptionType::RLWE>
std::vector<CiphertextBase<E>> usedOutputs(const Context& context) {
    return {usedLonger<E>(context), usedModUp<E>(context), usedOnCoefficients<E>(context)};
}

/// The same of plaintexts: low, with one log slot, owing more than its level bears; and mod-up, out of NTT
/// form.
inline std::vector<Plaintext> usedPlaintexts(const Context& context) {
    Plaintext low = wordsOfPlaintext(context, 2, 904), modUp(context);
    low.setLogSlots(1);
    low.setRescaleCounter(2);
    low.setLevel(0);
    modUp.getMx() = Polynomial(context, true, false);
    modUp.getMx().clear();
    return {std::move(low), std::move(modUp)};
}

} // namespace Torvo::test
