#include "crypto/KeyGeneratorImpl.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/Messages.hpp"
#include "crypto/SecretPolynomial.hpp"
#include "crypto/UnsetKey.hpp"

#include <utility>

namespace Torvo {

namespace {

/// Returns its context after the check, so that the check comes before any table is made.
const Context& requireOwnSecret(const Context& context, const std::optional<SecretKey>& secretKey) {
    requireContext(context);
    require(!secretKey || *context == *secretKey->getContext(), message::keyGeneratorOtherContext);
    return context;
}

const Context& requireOwnSecret(const Context& context, const Context& context_sparse,
                                const std::optional<SecretKey>& secretKey) {
    requireOwnSecret(context, secretKey);
    requireSparsePartner(context, context_sparse, message::keyGeneratorWithoutEncapsulation,
                         message::keyGeneratorOtherSparseContext);
    return context;
}

/// The last check: readers of the pack assume that all its keys are of its ring.
const Context& requireOwnPack(const KeyPackImpl& keyPack, const Context& context) {
    requireSameRing(keyPack.getContext(), context, message::keyGeneratorForeignPack);
    return context;
}

/// Room for the secret to switch from, over the whole chain.
SecretPolynomial emptySecret(const Context& context) {
    return SecretPolynomial(context, true, ringOf(context).numBase - 1);
}

} // namespace

KeyGeneratorImpl::KeyGeneratorImpl(const Context& context, const std::optional<SecretKey>& secretKey,
                                   std::shared_ptr<KeyPackImpl> keyPack)
    : KeyGeneratorImplBase(requireOwnPack(*keyPack, requireOwnSecret(context, secretKey))),
      secretKey_(secretKey), keyPack_(std::move(keyPack)) {}

KeyGeneratorImpl::KeyGeneratorImpl(const Context& context, const Context& context_sparse,
                                   const std::optional<SecretKey>& secretKey,
                                   std::shared_ptr<KeyPackImpl> keyPack)
    : KeyGeneratorImplBase(requireOwnPack(*keyPack, requireOwnSecret(context, context_sparse, secretKey)),
                           context_sparse),
      secretKey_(secretKey), keyPack_(std::move(keyPack)) {}

const SecretKey& KeyGeneratorImpl::secretKey() const {
    require(secretKey_.has_value(), message::keyGeneratorWithoutSecretKey);
    return *secretKey_;
}

void KeyGeneratorImpl::fillSwitchingKey(const Context& context, const RNSDecomposeData& decomposeData,
                                        EvaluationKey& key, const Polynomial& sFrom,
                                        const Polynomial& sTo) const {
    Polynomial* ax = key.getAxIter(Device{});
    genSwitchingKeyAxWithGerm(context, ax);
    genSwitchingKeyBx(context, decomposeData, sFrom, sTo, ax, key.getBxIter(Device{}));
}

std::shared_ptr<EvaluationKey> KeyGeneratorImpl::switchingKey(std::unique_ptr<EvaluationKey> key,
                                                              const Polynomial& sFrom) const {
    fillSwitchingKey(context_, decomposeData_, *key, sFrom, secretKey().getSx(0));
    return key;
}

void KeyGeneratorImpl::genEncKey() const {
    const SecretKey& secret = secretKey();
    keyPack_->encKey.replace([&] { return std::make_shared<EncryptionKey>(context_, secret); });
}

void KeyGeneratorImpl::genMultKey() const {
    const Polynomial& s = secretKey().getSx(0);
    SecretPolynomial square = emptySecret(context_);
    context_->primes.hadamardMult(s, s, square);
    keyPack_->multKey.replace([&] { return switchingKey(unsetKey(context_, KeyKind::Mult), square); });
}

void KeyGeneratorImpl::genConjKey() const {
    const Polynomial& s = secretKey().getSx(0);
    SecretPolynomial conjugate = emptySecret(context_);
    context_->primes.frobeniusMapInNTT<false>(s, -1, conjugate, Scratch::Wiped);
    keyPack_->conjKey.replace([&] { return switchingKey(unsetKey(context_, KeyKind::Conj), conjugate); });
}

void KeyGeneratorImpl::genLeftRotKey(u64 index) const {
    const Polynomial& s = secretKey().getSx(0);
    requireRotation(index);
    const u64 galois = context_->fft.getGaloisElement(index, Device{});
    SecretPolynomial rotated = emptySecret(context_);
    context_->primes.frobeniusMapInNTT<false>(s, static_cast<long>(galois), rotated, Scratch::Wiped);
    keyPack_->addRotKey(index, switchingKey(unsetKey(context_, KeyKind::Rot, index), rotated));
}

void KeyGeneratorImpl::genRightRotKey(u64 index) const {
    secretKey();
    requireRotation(index);
    genLeftRotKey(context_->parameter.num_slots - index);
}

void KeyGeneratorImpl::genRotKeyBundle() const {
    secretKey();
    const u64 slots = context_->parameter.num_slots;
    for (u64 power = 1; power < slots; power *= 2) {
        genRotKeyUnlessLoaded(power);
        genRotKeyUnlessLoaded(slots - power);
    }
}

void KeyGeneratorImpl::genRotKeyIfNotExist(long index) const {
    secretKey();
    const u64 left = static_cast<u64>(index) & (context_->parameter.num_slots - 1);
    if (left != 0) genRotKeyUnlessLoaded(left);
}

void KeyGeneratorImpl::genRotKeysForBootstrap(u64 log_slots, bool compact) const {
    secretKey();
    context_->requireSlotsForBootstrap(log_slots);
    for (const long index : context_->getRotIndicesForBootstrap(log_slots, compact))
        genRotKeyIfNotExist(index);
}

void KeyGeneratorImpl::genSparseSecretEncapsulationKey() const {
    const SecretKey& dense = secretKey();
    require(decomposeDataSparse_.has_value(), message::keyGeneratorWithoutSparseContext);
    keyPack_->sparseKey.replace([&] {
        // The dense secret has the same coefficients in both rings. The sparse secret exists only in this
        // call.
        const SecretKey denseInSparse(context_sparse_, dense.getCoefficients());
        const SecretKey sparse(context_sparse_);
        const SecretKey sparseInMain(context_, sparse.getCoefficients());
        auto key = unsetEncapsulationKey(context_, context_sparse_);
        fillSwitchingKey(context_sparse_, *decomposeDataSparse_, *key->getDTSPart(), denseInSparse.getSx(0),
                         sparse.getSx(0));
        fillSwitchingKey(context_, decomposeData_, *key->getSTDPart(), sparseInMain.getSx(0), dense.getSx(0));
        return std::shared_ptr<SparseSecretEncapsulationKey>(std::move(key));
    });
}

void KeyGeneratorImpl::genRotKeyUnlessLoaded(u64 index) const {
    if (!keyPack_->isRotKeyLoaded(index)) genLeftRotKey(index);
}

void KeyGeneratorImpl::requireRotation(u64 index) const {
    require(index != 0 && index < context_->parameter.num_slots, message::wrongRotationIndex);
}

void KeyGeneratorImpl::flushKeyPack(std::shared_ptr<KeyPackImpl> keyPack) {
    keyPack_ = std::move(keyPack);
}

} // namespace Torvo
