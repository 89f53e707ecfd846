#include <Torvo/Decryptor.hpp>

#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/Messages.hpp"
#include "crypto/OperandRing.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/SecretPolynomial.hpp"
#include "encoding/Messages.hpp"
#include "encoding/Stamp.hpp"

#include <Torvo/EnDecoder.hpp>

#include <optional>
#include <utility>

namespace Torvo {

namespace {

// Until ct[0] is added, m reveals the key.

/// m = ct[0] + ct[1] * s + ct[2] * s^2 + ..., by Horner's rule, on the rows of the validator.
template <class Validator>
void evaluateAt(const PrimeModuli& primes, const Ciphertext& ct, const SecretKey& secretKey,
                SecretPolynomial& m, Validator rows) {
    const Polynomial& s = secretKey.getSx();
    u64 i = ct.getNumPoly() - 1;
    primes.hadamardMultAdd(ct.getPoly(i), s, ct.getPoly(i - 1), m, rows);
    while (--i > 0) primes.hadamardMultAdd(m, s, ct.getPoly(i - 1), m, rows);
}

/// m = ct[0] + sum of ct[i] * s[i-1].
template <class Validator>
void evaluateAt(const PrimeModuli& primes, const CiphertextBase<MLWE>& ct,
                const SecretKeyBase<MLWE>& secretKey, SecretPolynomial& m, Validator rows) {
    primes.hadamardMultAdd(ct.getPoly(1), secretKey.getSx(0), ct.getPoly(0), m, rows);
    for (u64 i = 2; i < ct.getNumPoly(); ++i)
        primes.hadamardMultAdd(ct.getPoly(i), secretKey.getSx(i - 1), m, m, rows);
}

/// The ciphertext with some of its rows in NTT form: itself, or a copy with those transformed.
template <EncryptionType E>
class InNTTForm {
public:
    template <class Validator>
    InNTTForm(const PrimeModuli& primes, const CiphertextBase<E>& ct, Validator rows) : ct_(&ct) {
        if (ct.isNTT()) return;
        ct_ = &copy_.emplace(ct);
        for (Polynomial& poly : copy_->getPolys().getPolys()) primes.forwardNTT(poly, poly, rows);
    }
    InNTTForm(const InNTTForm&) = delete;
    InNTTForm& operator=(const InNTTForm&) = delete;
    const CiphertextBase<E>& get() const { return *ct_; }

private:
    const CiphertextBase<E>* ct_;
    std::optional<CiphertextBase<E>> copy_;
};

/// All rows of a ciphertext that hold anything.
template <EncryptionType E>
ModUpOutputModulusBoundEvalValidator liveRows(const CiphertextBase<E>& ct) {
    return {ct.getLevel(), ct.getPoly(0).getNumBase()};
}

/// The last guards of a decryption.
template <EncryptionType E>
void requireMatch(const Context& context, const CiphertextBase<E>& ct, const SecretKeyBase<E>& secretKey) {
    requireOfRing(context, ct);
    requireSameRows(secretKey.getContext(), context, ct.getLevel(), ct.isModUp(),
                    message::decryptWithForeignSecret);
}

/// The other rows of the plaintext are unset.
template <EncryptionType E, class Validator>
Plaintext innerDecrypt(const Context& context, const CiphertextBase<E>& ct, const SecretKeyBase<E>& secretKey,
                       Validator rows) {
    if (E == EncryptionType::MLWE)
        require(ct.getNumPoly() == getRank(context) + 1, message::decryptWrongSize);
    requireMatch(context, ct, secretKey);
    const u64 level = ct.getLevel();
    require(ct.getRescaleCounter() <= static_cast<int>(level), message::rescaleCounterAboveLevel);
    SecretPolynomial m(context, ct.isModUp(), level);
    evaluateAt(context->primes, InNTTForm<E>(context->primes, ct, rows).get(), secretKey, m, rows);
    Plaintext plaintext(context, m.release());
    Stamp::of(ct).putOn(plaintext);
    return plaintext;
}

/// What `EnDecoder` reads: the first two rows of a plaintext that owes no rescale, as most do.
template <EncryptionType E>
Plaintext decryptToDecode(const Context& context, const CiphertextBase<E>& ct,
                          const SecretKeyBase<E>& secretKey) {
    if (ct.getRescaleCounter() != 0) return innerDecrypt(context, ct, secretKey, liveRows(ct));
    return innerDecrypt(context, ct, secretKey, OutputModulusBoundValidator(0, 2));
}

template <EncryptionType E>
bool isOnSlots(const CiphertextBase<E>& ct) {
    return ct.getEncodingType() == EncodingType::Slot;
}

} // namespace

Decryptor::Decryptor(const Context& context) : context_(requireContext(context)) {}

template <EncryptionType E>
void Decryptor::decrypt(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& secretKey,
                        Plaintext& out) const {
    require(isOnSlots(ciphertext), message::notOnSlots);
    out = innerDecrypt(context_, ciphertext, secretKey, liveRows(ciphertext));
}

template <EncryptionType E>
void Decryptor::decrypt(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& secretKey,
                        Message& out) const {
    require(isOnSlots(ciphertext), message::notOnSlots);
    out = EnDecoder(context_).decode(decryptToDecode(context_, ciphertext, secretKey));
}

template <EncryptionType E>
void Decryptor::decrypt(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& secretKey,
                        std::vector<double>& out) const {
    require(!isOnSlots(ciphertext), message::notOnCoefficients);
    out = EnDecoder(context_).decodeWithoutFFT(decryptToDecode(context_, ciphertext, secretKey));
}

void Decryptor::partialDecrypt(const Ciphertext& in, const SecretKey& secretKey, Ciphertext& out) const {
    require(isOnSlots(in), message::notOnSlots);
    require(in.getNumPoly() == 2, message::partialDecryptWrongSize);
    requireMatch(context_, in, secretKey);
    const PrimeModuli& primes = context_->primes;
    const InNTTForm<RLWE> form(primes, in, liveRows(in));
    const Ciphertext& ciphertext = form.get();
    const u64 level = ciphertext.getLevel();
    const bool isModUp = ciphertext.isModUp();
    SecretPolynomial error(context_, isModUp, level), share(context_, isModUp, level);
    RandomSampler().sampleGaussian(error, context_);
    error.to(ciphertext.getDevice());
    primes.forwardNTT(error, error);
    primes.hadamardMultAdd(ciphertext.getPoly(1), secretKey.getSx(), ciphertext.getPoly(0), share,
                           liveRows(ciphertext));
    primes.add(share, error, share);
    Ciphertext shared = ciphertext;
    shared.getPoly(0) = share.release();
    out = std::move(shared);
}

#define TORVO_INSTANTIATE(E)                                                                                 \
    template TORVO_API void Decryptor::decrypt(const CiphertextBase<E>&, const SecretKeyBase<E>&,            \
                                               Plaintext&) const;                                            \
    template TORVO_API void Decryptor::decrypt(const CiphertextBase<E>&, const SecretKeyBase<E>&, Message&)  \
        const;                                                                                               \
    template TORVO_API void Decryptor::decrypt(const CiphertextBase<E>&, const SecretKeyBase<E>&,            \
                                               std::vector<double>&) const;

TORVO_INSTANTIATE(EncryptionType::RLWE)
TORVO_INSTANTIATE(EncryptionType::MLWE)

#undef TORVO_INSTANTIATE

} // namespace Torvo
