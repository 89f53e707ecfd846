#include <Torvo/Encryptor.hpp>

#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/elements/PolyGerm.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/CompactCiphertextImpl.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/Messages.hpp"
#include "crypto/OperandRing.hpp"
#include "crypto/OutputShape.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/SecretPolynomial.hpp"
#include "encoding/Encoding.hpp"
#include "encoding/Messages.hpp"
#include "encoding/Stamp.hpp"

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

/// What is to be encrypted under a secret key; `numbers` are a message or coefficients.
template <class Numbers>
Plaintext encodedForSecretKey(const Context& context, const Numbers& numbers, u64 level,
                              int rescale_counter) {
    Encoding encoding(context, numbers, level, rescale_counter);
    requireEncryptionLevel(context, encoding.shape(), message::aboveEncryptionLevelUnderSecretKey);
    return std::move(encoding).take();
}

/// A fresh error with the rows of `level`, on coefficients.
void sampleError(const Context& context, const Device& device, SecretPolynomial& error) {
    RandomSampler().sampleGaussian(error, context);
    error.to(device);
}

/// error += m, in NTT form. `error` is passed on coefficients. If m is on coefficients too, they are added
/// first and share one transform.
void addMessage(const PrimeModuli& primes, const Polynomial& m, SecretPolynomial& error) {
    if (m.isNTT()) primes.forwardNTT(error, error);
    primes.add(error, m, error);
    if (!m.isNTT()) primes.forwardNTT(error, error);
}

/// Gives the encryption of `plaintext` its properties, except the level, and storage for its elements. The
/// counter is checked against the level that `out` has at the call.
template <EncryptionType E>
void stampOutput(const Plaintext& plaintext, CiphertextBase<E>& out) {
    Stamp::of(plaintext).putOn(out);
    out.allocate(plaintext.getDevice());
}

/// encrypted[0] = masked - sum of encrypted[i] * s[i-1]; `masked` is the message with its error, in NTT form.
/// A product alone reveals the key and `masked` alone the message; their difference reveals neither.
template <EncryptionType E>
void hideUnder(const Context& context, const SecretKeyBase<E>& secretKey, SecretPolynomial& masked,
               CiphertextBase<E>& encrypted) {
    const PrimeModuli& primes = context->primes;
    SecretPolynomial product(context, false, masked.getLevel());
    for (u64 i = 1; i < encrypted.getNumPoly(); ++i) {
        primes.hadamardMult(encrypted.getPoly(i), secretKey.getSx(i - 1), product);
        primes.sub(masked, product, masked);
    }
    encrypted.getPoly(0) = masked.release();
}

/// A uniform element of an encryption, word after word from the generator.
void drawMask(const Context& context, Polynomial& mask) {
    RandomSampler().sampleUniform(mask, context);
}

/// The same out of a germ, which stays with it.
void growMask(const Context&, Polynomial& mask) {
    const Device device = mask.getDevice();
    mask.setGerm(PolyGerm());
    populateLiveRows(mask);
    mask.to(device);
}

// ct[0] = m + e - sum of ct[i] * s[i-1], ct[i] uniform, by `makeMask`. Drawn in this order: ct[1], ...,
// ct[rank], e.
template <EncryptionType E>
CiphertextBase<E> encryptUnder(const Context& context, const Plaintext& plaintext,
                               const SecretKeyBase<E>& secretKey,
                               void (*makeMask)(const Context&, Polynomial&) = drawMask) {
    requireEncryptionLevel(context, plaintext, message::aboveEncryptionLevelUnderSecretKey);
    const u64 level = plaintext.getLevel();
    requireOfRing(context, plaintext);
    requireSameRows(secretKey.getContext(), context, level, false, message::encryptUnderForeignSecret);

    SecretPolynomial masked(context, false, level);
    auto encrypted = unsetCiphertext<E>(context, getRank(secretKey.getContext()) + 1);
    encrypted.setLevel(level);
    stampOutput(plaintext, encrypted);
    for (u64 i = 1; i < encrypted.getNumPoly(); ++i) {
        Polynomial& mask = encrypted.getPoly(i);
        makeMask(context, mask);
        mask.setNTT(true);
    }
    sampleError(context, plaintext.getDevice(), masked);
    addMessage(context->primes, plaintext.getMx(), masked);
    hideUnder(context, secretKey, masked, encrypted);
    return encrypted;
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

    Ciphertext encrypted = unsetCiphertext(context_, 2);
    // The counter is checked against the level that a used output had before.
    if (hasShape(context_, false, out)) encrypted.setLevel(out.getPoly(0).getLevel());
    stampOutput(plaintext, encrypted);
    // v * ax reveals v, and so the message, until the error is added.
    SecretPolynomial product(context_, false, level);
    primes.hadamardMultTwo(v, key->getAx(), key->getBx(), v, product);
    primes.add(e1, v, e1);
    primes.add(e0, product, e0);
    encrypted.getPoly(1) = e1.release();
    encrypted.getPoly(0) = e0.release();
    out = std::move(encrypted);
}

void Encryptor::encrypt(const Message& message, const KeyPack& keyPack, Ciphertext& out, unsigned long level,
                        int rescale_counter) const {
    require(message.getDevice() == loadedKey(keyPack)->getDevice(), message::operandsOnDifferentDevices);
    Encoding encoding(context_, message, level, rescale_counter);
    requireEncryptionLevel(context_, encoding.shape(), message::aboveEncryptionLevelUnderPublicKey);
    encrypt(std::move(encoding).take(), keyPack, out);
}

void Encryptor::encrypt(const Message& message, const KeyPack& keyPack, Ciphertext& out) const {
    encrypt(message, keyPack, out, getEncryptionLevel(context_), 0);
}

template <EncryptionType E>
void Encryptor::encrypt(const Plaintext& plaintext, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out) const {
    out = encryptUnder(context_, plaintext, secretKey);
}

template <EncryptionType E>
void Encryptor::encrypt(const Message& message, const SecretKeyBase<E>& secretKey, CiphertextBase<E>& out,
                        unsigned long level, int rescale_counter) const {
    encrypt(encodedForSecretKey(context_, message, level, rescale_counter), secretKey, out);
}

template <EncryptionType E>
void Encryptor::encrypt(const Message& message, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out) const {
    encrypt(message, secretKey, out, getEncryptionLevel(context_), 0);
}

template <EncryptionType E>
void Encryptor::encrypt(const std::vector<double>& coefficients, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out, unsigned long level, int rescale_counter) const {
    require(coefficients.size() > 1, message::encodeFewerThanTwo);
    require(std::has_single_bit(coefficients.size()), message::encodeSizeNotPowerOfTwo);
    auto encrypted = encryptUnder(
        context_, encodedForSecretKey(context_, coefficients, level, rescale_counter), secretKey);
    encrypted.setEncodingType(EncodingType::Coefficient);
    for (Polynomial& poly : encrypted.getPolys().getPolys()) context_->primes.backwardNTT(poly, poly);
    out = std::move(encrypted);
}

template <EncryptionType E>
void Encryptor::encrypt(const std::vector<double>& coefficients, const SecretKeyBase<E>& secretKey,
                        CiphertextBase<E>& out) const {
    encrypt(coefficients, secretKey, out, getEncryptionLevel(context_), 0);
}

CompactCiphertext Encryptor::encryptCompact(const Plaintext& plaintext, const SecretKey& secretKey) const {
    return CompactCiphertext(
        new CompactCiphertextImpl(encryptUnder(context_, plaintext, secretKey, growMask)));
}

CompactCiphertext Encryptor::encryptCompact(const Message& message, const SecretKey& secretKey,
                                            unsigned long level, int rescale_counter) const {
    return encryptCompact(encodedForSecretKey(context_, message, level, rescale_counter), secretKey);
}

CompactCiphertext Encryptor::encryptCompact(const Message& message, const SecretKey& secretKey) const {
    return encryptCompact(message, secretKey, getEncryptionLevel(context_), 0);
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
