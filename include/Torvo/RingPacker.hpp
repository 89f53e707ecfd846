#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/ModPackKeyBundle.hpp>
#include <Torvo/RingSwitchKey.hpp>

#include <vector>

namespace Torvo {

/// Moves ciphertexts between parameter sets of different ring degree and rank, and plain LWE. All moves act
/// on the coefficients, so operands are `EncodingType::Coefficient` and not in NTT form, as
/// `Encryptor::encrypt` of coefficients and `Bootstrapper::slotToCoeff` return them. Outputs have the same
/// form, with all slots, and take level, rescale counter and device from the (first) input. They keep their
/// context; their previous content does not matter. An output may be an input. docs/packing.md shows the
/// routes, the keys that each needs and the noise that it adds.
///
/// With Y = X^k a ring of degree n is embedded in a ring of degree k n: coefficient c of the j-th small
/// ciphertext becomes coefficient c k + j of the large one, and vice versa.
///
/// Stateless and const: calls may run at once on different outputs. The contexts of inputs, keys and outputs
/// must have the same primes up to the level of the inputs.
///
/// After the rules listed at each member, all members check the following, in this order and with
/// RuntimeException too: "Operands have different levels."; "Rescale counter should be less than or equal to
/// the level"; "Size should be 2" for ring ciphertexts that wait for relinearization; "The level of input
/// ciphertext does not fit in current context" for keys or outputs of too few primes or another degree, and
/// for an input at a level that its own chain does not have; "Polynomials should be of non-NTT form in ring
/// switching."; "The generated context does not support the operation with current operands; check the
/// device."; and last, before anything is written, where the primes up to the level differ, "the input has
/// other primes than the output: " (in `decompose` "than the key: "), then "keys are of another ring: ", each
/// with degree, primes and digits of both sides and what to do.
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
    /// them); a single output takes every k-th coefficient.
    /// @throws RuntimeException in this order: "[decompose] Degree of output ciphertext(s) should divide of
    ///         degree input ciphertext"; "[decompose] The dimension of output ciphertext(s) should be equal
    ///         to input ciphertext unless the case of extracting a single ciphertext"; "The operand have to
    ///         encode the message on its coefficients"; "[decompose] The level of given ciphertext is more
    ///         than the level of max encryption level of the output ciphertext(s)"
    void decompose(const Ciphertext& in, const RingSwitchKey& key, std::vector<Ciphertext*>& out) const;

    /// Several ciphertexts of high rank and low degree into one of lower rank and higher degree
    /// (`getNumCiphertextsToModPack` of them), by one key switch for each group of secret components. Needs
    /// memory for a copy of the inputs and for one sum per thread; without it the call throws std::bad_alloc
    /// and leaves the output unchanged.
    /// @throws RuntimeException in this order: "[modPack] Total dimension of encrypting messages of input and
    ///         output does not match"; "[modPack] Input or output ciphertexts is not compatible to the given
    ///         modpack keys"; "The operand have to encode the message on its coefficients"; "Two operands
    ///         have different logSlots" and the other mismatches that `HomEvaluator` names; "[modPack] The
    ///         level of given ciphertext(s) is more than the level of max encryption level of the output
    ///         ciphertext"
    template <EncryptionType E>
    void modPack(const std::vector<const CiphertextBase<EncryptionType::MLWE>*>& in,
                 const ModPackKeyBundle& keys, CiphertextBase<E>& out) const;
    /// The same from plain LWE: ciphertext i gives coefficient i.
    template <EncryptionType E>
    void modPack(const std::vector<const LWE::Ciphertext*>& in, const ModPackKeyBundle& keys,
                 CiphertextBase<E>& out) const;

    /// A ciphertext of degree n into n plain LWE ciphertexts of dimension n, one for each coefficient, under
    /// the secret of `genLWESecretKeyAfterUnPack`. Needs no key and adds no noise. Works for a preset that
    /// exists in both forms, with the degree of the one as the dimension of the other: `FGbD12L0`.
    /// @throws RuntimeException in this order: "[unPack] Input Ciphertext degree should be equal to the
    ///         number of output LWE Ciphertexts"; "The operand have to encode the message on its
    ///         coefficients"; "[unPack] The level of given ciphertext is more than the level of max
    ///         encryption level of the output ciphertext(s)"; "The total dimension of the operands are
    ///         different" for plain LWE of another dimension
    void unPack(const Ciphertext& in, const std::vector<LWE::Ciphertext*>& out) const;
};

} // namespace Torvo
