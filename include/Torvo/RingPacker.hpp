#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/ModPackKeyBundle.hpp>
#include <Torvo/RingSwitchKey.hpp>

#include <vector>

namespace Torvo {

/// Moves ciphertexts between parameter sets of different ring degree and rank, and plain LWE. All moves act
/// on the coefficients, so operands are `EncodingType::Coefficient`; outputs come out so, out of NTT form,
/// and take level, rescale counter and device from the (first) input.
///
/// With Y = X^k a ring of degree n lies in a ring of degree k n: coefficient c of the j-th small ciphertext
/// becomes coefficient c k + j of the large one, and the other way round.
///
/// Stateless and const: calls may run at once on different outputs. The contexts of inputs, keys and outputs
/// must have the same primes up to the level of the inputs; the key generation checks it.
class TORVO_API RingPacker {
public:
    /// Several small-ring ciphertexts into one of a large ring (`getNumCiphertextsToFullCompose` of them); a
    /// single one is embedded, coefficient c at c k, zeros between.
    /// @throws RuntimeException in this order: "[compose] Degree of input ciphertext(s) should divide of
    ///         degree output ciphertext"; "[compose] The dimension of input ciphertext(s) should be equal to
    ///         output ciphertext unless the case of embedding a single ciphertext"; "The operand have to
    ///         encode the message on its coefficients"; "Two operands have different logSlots" and the other
    ///         mismatches that `HomEvaluator` names
    void compose(const std::vector<const Ciphertext*>& in, const RingSwitchKey& key, Ciphertext& out) const;

    /// One large-ring ciphertext into several of a small ring (`getNumCiphertextsAfterFullDecompose` of
    /// them); into a single one goes every k-th coefficient.
    /// @throws RuntimeException in this order: "[decompose] Degree of output ciphertext(s) should divide of
    ///         degree input ciphertext"; "[decompose] The dimension of output ciphertext(s) should be equal
    ///         to input ciphertext unless the case of extracting a single ciphertext"; "The operand have to
    ///         encode the message on its coefficients"; "[decompose] The level of given ciphertext is more
    ///         than the level of max encryption level of the output ciphertext(s)"
    void decompose(const Ciphertext& in, const RingSwitchKey& key, std::vector<Ciphertext*>& out) const;

    /// Several ciphertexts of high rank and low degree into one of lower rank and higher degree, by a key
    /// switch for each group of secret components.
    /// @throws RuntimeException in this order: "[modPack] Total dimension of encrypting messages of input and
    ///         output does not match"; "[modPack] Input or output ciphertexts is not compatible to the given
    ///         modpack keys"; "The operand have to encode the message on its coefficients"; "Two operands
    ///         have different logSlots" and the other mismatches that `HomEvaluator` names; "[modPack] The
    ///         level of given ciphertext(s) is more than the level of max encryption level of the output
    ///         ciphertext"
    template <EncryptionType E>
    void modPack(const std::vector<const CiphertextBase<EncryptionType::MLWE>*>& in,
                 const ModPackKeyBundle& keys, CiphertextBase<E>& out) const;
    /// The same from plain LWE: number i becomes coefficient i.
    template <EncryptionType E>
    void modPack(const std::vector<const LWE::Ciphertext*>& in, const ModPackKeyBundle& keys,
                 CiphertextBase<E>& out) const;

    /// A ciphertext of degree n into n plain LWE ciphertexts of dimension n, one for each coefficient, under
    /// the secret of `genLWESecretKeyAfterUnPack`. No key and no noise: for presets that exist in both forms.
    /// @throws RuntimeException in this order: "[unPack] Input Ciphertext degree should be equal to the
    /// number
    ///         of output LWE Ciphertexts"; "The operand have to encode the message on its coefficients";
    ///         "[unPack] The level of given ciphertext is more than the level of max encryption level of the
    ///         output ciphertext(s)"
    void unPack(const Ciphertext& in, const std::vector<LWE::Ciphertext*>& out) const;
};

} // namespace Torvo
