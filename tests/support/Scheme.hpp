#pragma once

#include "core/Integers.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Decryptor.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/SecretKey.hpp>

#include <complex>
#include <vector>

namespace Torvo::test {

/// How much decrypted slots may differ from the encrypted numbers, derived from the parameters alone.
///
/// Sizes are measured in the canonical embedding: |x| is the largest slot of a polynomial x before division
/// by the scale, so that |x * y| <= |x| * |y|. A polynomial of N independent coefficients of variance v has
/// slots of variance N * v, which exceed 6 * sqrt(N * v) with probability below exp(-36) each; that is taken
/// as its size. The secret has `hamming_weight` h coefficients of -1 or 1: its size is 6 * sqrt(h). sigma is
/// the deviation of the errors.
class ErrorModel {
public:
    explicit ErrorModel(const Context& context);

    /// Rounding to integers: variance 1/12.
    double encoding() const;
    /// e0 + e1 * s + v * e, with coefficients of v -1, 0, 1 and variance 1/2; and the encoding.
    double encryption() const;
    /// The roundings r0 + r1 * s + ... of one rescale.
    double rescale() const;
    /// Each of the d digits is a sum of k residues times Q_g / p, so of variance k * Q_g^2 / 12, times an
    /// error, divided by P. The division rounds by a sum of K residues over P: variance K / 12 for both
    /// parts.
    double keySwitch() const;

    double logScale(u64 level) const { return logScales_[level]; }
    /// A size as an error of the slots at `level`.
    double atLevel(double size, u64 level) const;
    /// Doubles on the way: scales are powers of two of rounded logarithms near 64 at most (half an ulp of 64
    /// is 2^-47), the embedding rounds some 2 log2(N) times. Relative to the largest slot.
    static constexpr double relative = 0x1p-44;

private:
    double sizeOf(double variance) const;
    double secret() const;

    double degree_, rank_, weight_, sigma_, digits_, digitPrimes_, tempPrimes_;
    double digitOverP_; ///< largest Q_g / P
    std::vector<double> logScales_;
};

/// All that a test needs of one preset, made once per process. RLWE sets come with an encryption, a
/// multiplication and a conjugation key, and encrypt with the public key; MLWE sets have no keys but the
/// secret.
template <EncryptionType E>
class SchemeBase {
public:
    static const SchemeBase& of(ParameterPreset preset);

    CiphertextBase<E> encrypt(const Message& message, u64 level, int rescaleCounter = 0) const;
    CiphertextBase<E> encryptCoefficients(const std::vector<double>& coefficients, u64 level) const;
    Message decrypt(const CiphertextBase<E>& ciphertext) const;

    u64 logFullSlots() const { return getLogFullSlots(context); }
    u64 topLevel() const { return getDefaultScaleFactorList(context).size() - 1; }
    u64 encryptionLevel() const { return getEncryptionLevel(context); }

    Context context;
    SecretKeyBase<E> secretKey;
    KeyPack keys;
    EnDecoder encoder;
    Encryptor encryptor;
    Decryptor decryptor;
    HomEvaluator evaluator;
    ErrorModel errors;

private:
    explicit SchemeBase(ParameterPreset preset);
    static KeyPack makeKeys(const Context& context, const SecretKeyBase<E>& secretKey);
};

extern template class SchemeBase<EncryptionType::RLWE>;
extern template class SchemeBase<EncryptionType::MLWE>;

using Scheme = SchemeBase<EncryptionType::RLWE>;
using ModuleScheme = SchemeBase<EncryptionType::MLWE>;

/// Largest distance of two slots of one index; infinite for different sizes and where a slot is no number.
double maxError(const Message& a, const Message& b);
/// Largest absolute value of a slot.
double maxAbs(const Message& message);

} // namespace Torvo::test
