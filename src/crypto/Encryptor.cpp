#include <Torvo/Encryptor.hpp>

#include "arithmetic/Messages.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/Messages.hpp"
#include "crypto/OperandRing.hpp"
#include "crypto/OutputShape.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/SecretPolynomial.hpp"
#include "encoding/Encoding.hpp"
#include "encoding/Messages.hpp"

#include <bit>
#include <utility>

namespace Torvo {

namespace {

std::shared_ptr<EncryptionKey> loadedKey(const KeyPack& keyPack) {
    auto key = keyPack.getEncKey();
    require(key != nullptr, message::noEncryptionKey);
    return key;
}

void requireEncryptionLevel(const Context& context, const Plaintext& plaintext, const char* refusal) {
    require(plaintext.getLevel() <= getEncryptionLevel(context), refusal);
}

/// A fresh error with the rows of `level`, on coefficients.
void sampleError(const Context& context, const Device& device, SecretPolynomial& error) {
    RandomSampler().sampleGaussian(error, context);
    error.to(device);
}

/// error += m, in NTT form; `error` comes on coefficients and joins m in whichever form m is, so that the
/// two share a transform when m is on coefficients too.
void addMessage(const PrimeModuli& primes, const Polynomial& m, SecretPolynomial& error) {
    if (m.isNTT()) primes.forwardNTT(error, error);
    primes.add(error, m, error);
    if (!m.isNTT()) primes.forwardNTT(error, error);
}

/// Gives an encryption of `plaintext` all that it takes over but the level, and a place for its elements. The
/// counter is held against the level that `out` has when this is called.
template <EncryptionType E>
void stampOutput(const Plaintext& plaintext, CiphertextBase<E>& out) {
    out.setLogSlots(plaintext.getLogSlots());
    out.setRescaleCounter(plaintext.getRescaleCounter());
    out.setEncodingType(EncodingType::Slot);
    out.allocate(plaintext.getDevice());
}

/// out[0] = masked - sum of out[i] * s[i-1]; `masked` is the message with its error, in NTT form.
template <EncryptionType E>
void hideUnder(const Context& context, const SecretKeyBase<E>& secretKey, const SecretPolynomial& masked,
               CiphertextBase<E>& out) {
    const PrimeModuli& primes = context->primes;
    Polynomial& sum = out.getPoly(0);
    primes.hadamardMult(out.getPoly(1), secretKey.getSx(0), sum);
    for (u64 i = 2; i < out.getNumPoly(); ++i) {
        SecretPolynomial product(context, false, masked.getLevel());
        primes.hadamardMult(out.getPoly(i), secretKey.getSx(i - 1), product);
        primes.add(sum, product, sum);
    }
    primes.sub(masked, sum, sum);
}

} // namespace

Encryptor::Encryptor(const Context& context) : context_(requireContext(context)) {}

// (ct[1], ct[0]) = v * (ax, bx) + (e1, e0 + m). Drawn in this order: v, e1, e0.
void Encryptor::encrypt(const Plaintext& plaintext, const KeyPack& keyPack, Ciphertext& out) const {
    const auto key = loadedKey(keyPack);
    const Device device = key->getDevice();
    require(plaintext.getDevice() == device, message::operandsOnDifferentDevices);
    requireEncryptionLevel(context_, plaintext, message::aboveEncryptionLevelUnderPublicKey);
    const u64 level = plaintext.getLevel();
    requireOfRing(context_, plaintext);
    requireSameRows(key->impl().context, context_, level, false, message::encryptUnderForeignKey);

    const PrimeModuli& primes = context_->primes;
    SecretPolynomial v(context_, false, level), e1(context_, false, level), e0(context_, false, level);
    RandomSampler().sampleZO(v, context_);
    v.to(device);
    primes.forwardNTT(v, v);
    sampleError(context_, device, e1);
    primes.forwardNTT(e1, e1);
    sampleError(context_, device, e0);
    addMessage(primes, plaintext.getMx(), e0);

    shapeOutput(context_, false, out);
    out.setNumPoly(2);
    stampOutput(plaintext, out);
    // Until here a used output has the level of its earlier use.
    primes.hadamardMultTwo(v, key->getAx(), key->getBx(), out.getPoly(1), out.getPoly(0));
    primes.add(out.getPoly(1), e1, out.getPoly(1));
    primes.add(out.getPoly(0), e0, out.getPoly(0));
}

void Encryptor::encrypt(const Message& message, const KeyPack& keyPack, Ciphertext& out, unsigned long level,
                        int rescaleCounter) const {
    require(message.getDevice() == loadedKey(keyPack)->getDevice(), message::operandsOnDifferentDevices);
    Encoding encoding(context_, message, level, rescaleCounter);
    requireEncryptionLevel(context_, encoding.shape(), message::aboveEncryptionLevelUnderPublicKey);
    encrypt(std::move(encoding).take(), keyPack, out);
}

void Encryptor::encrypt(const Message& message, const KeyPack& keyPack, Ciphertext& out) const {
    encrypt(message, keyPack, out, getEncryptionLevel(context_), 0);
}

// ct[0] = m + e - sum of ct[i] * s[i-1], ct[i] uniform. Drawn in this order: ct[1], ..., ct[rank], e.
template <EncryptionType E>
void Encryptor::encrypt(const Plaintext& plaintext, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out) const {
    requireEncryptionLevel(context_, plaintext, message::aboveEncryptionLevelUnderSecretKey);
    const u64 level = plaintext.getLevel();
    requireOfRing(context_, plaintext);
    requireSameRows(secretKey.getContext(), context_, level, false, message::encryptUnderForeignSecret);

    SecretPolynomial masked(context_, false, level);
    shapeOutput(context_, false, out);
    out.setNumPoly(getRank(secretKey.getContext()) + 1);
    out.setLevel(level);
    stampOutput(plaintext, out);
    for (u64 i = 1; i < out.getNumPoly(); ++i) {
        Polynomial& mask = out.getPoly(i);
        RandomSampler().sampleUniform(mask, context_);
        mask.setNTT(true);
    }
    sampleError(context_, plaintext.getDevice(), masked);
    addMessage(context_->primes, plaintext.getMx(), masked);
    hideUnder(context_, secretKey, masked, out);
}

template <EncryptionType E>
void Encryptor::encrypt(const Message& message, const SecretKeyBase<E>& secretKey, CiphertextBase<E>& out,
                        unsigned long level, int rescaleCounter) const {
    Encoding encoding(context_, message, level, rescaleCounter);
    requireEncryptionLevel(context_, encoding.shape(), message::aboveEncryptionLevelUnderSecretKey);
    encrypt(std::move(encoding).take(), secretKey, out);
}

template <EncryptionType E>
void Encryptor::encrypt(const Message& message, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out) const {
    encrypt(message, secretKey, out, getEncryptionLevel(context_), 0);
}

template <EncryptionType E>
void Encryptor::encrypt(const std::vector<double>& coefficients, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out, unsigned long level, int rescaleCounter) const {
    require(coefficients.size() > 1, message::encodeFewerThanTwo);
    require(std::has_single_bit(coefficients.size()), message::encodeSizeNotPowerOfTwo);
    Encoding encoding(context_, coefficients, level, rescaleCounter);
    requireEncryptionLevel(context_, encoding.shape(), message::aboveEncryptionLevelUnderSecretKey);
    encrypt(std::move(encoding).take(), secretKey, out);
    out.setEncodingType(EncodingType::Coefficient);
    for (Polynomial& poly : out.getPolys().getPolys()) context_->primes.backwardNTT(poly, poly);
}

template <EncryptionType E>
void Encryptor::encrypt(const std::vector<double>& coefficients, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out) const {
    encrypt(coefficients, secretKey, out, getEncryptionLevel(context_), 0);
}

// The forms under a secret key, for both types of encryption.
#define TORVO_INSTANTIATE(E)                                                                                 \
    template TORVO_API void Encryptor::encrypt(const Plaintext&, const SecretKeyBase<E>&,                    \
                                               CiphertextBase<E>&) const;                                    \
    template TORVO_API void Encryptor::encrypt(const Message&, const SecretKeyBase<E>&, CiphertextBase<E>&,  \
                                               unsigned long, int) const;                                    \
    template TORVO_API void Encryptor::encrypt(const Message&, const SecretKeyBase<E>&, CiphertextBase<E>&)  \
        const;                                                                                               \
    template TORVO_API void Encryptor::encrypt(const std::vector<double>&, const SecretKeyBase<E>&,          \
                                               CiphertextBase<E>&, unsigned long, int) const;                \
    template TORVO_API void Encryptor::encrypt(const std::vector<double>&, const SecretKeyBase<E>&,          \
                                               CiphertextBase<E>&) const;

TORVO_INSTANTIATE(EncryptionType::RLWE)
TORVO_INSTANTIATE(EncryptionType::MLWE)

#undef TORVO_INSTANTIATE

} // namespace Torvo
