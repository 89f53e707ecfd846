#include "ring/RingKeyGenerator.hpp"

#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "core/WipedVector.hpp"
#include "crypto/UnsetKey.hpp"
#include "ring/Messages.hpp"

#include <memory>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// `rank` components of degree n, embedded in a ring of degree k n as one secret: coefficient c of component
/// i becomes the coefficient of X^(c k + i). With rank 1 this is the secret at X^k; rank k fills the ring.
SecretKey laidInto(const Context& ring, const int* components, u64 rank, u64 degree) {
    utils::WipedVector<int> laid(ring->parameter.degree);
    const u64 stride = ring->parameter.degree / degree;
    for (u64 i = 0; i < rank; ++i)
        for (u64 c = 0; c < degree; ++c) laid[c * stride + i] = components[i * degree + c];
    return SecretKey(ring, laid.data());
}

template <EncryptionType E>
SecretKey laidInto(const Context& ring, const SecretKeyBase<E>& key) {
    const Parameter& from = key.getContext()->parameter;
    return laidInto(ring, key.getCoefficients(), from.rank, from.degree);
}

bool isMultiple(u64 whole, u64 part) {
    return whole % part == 0;
}

void requirePackingDimension(const Context& ring, const Context& out) {
    require(out->parameter.rank * out->parameter.degree == ring->parameter.degree, message::modPackDimension);
}

template <class AnyContext>
void requirePackingRankAndPrimes(const Context& ring, const AnyContext& in, u64 inRank, u64 inLevel,
                                 const Context& out) {
    require(isMultiple(inRank, out->parameter.rank), message::modPackRank);
    require(inLevel <= getMaxCompatibleLevel(in, ring), message::modPackKeyPrimes);
    require(inLevel <= getMaxCompatibleLevel(in, out), message::modPackOutputPrimes);
}

} // namespace

void requireModPackKeyBundleCondition(const Context& ring, const Context& in, const Context& out) {
    requirePackingDimension(ring, out);
    require(isMultiple(out->parameter.degree, in->parameter.degree), message::modPackDegree);
    requirePackingRankAndPrimes(ring, in, in->parameter.rank, in->parameter.encryption_level, out);
}

void requireModPackKeyBundleCondition(const Context& ring, const LWE::Context& in, const Context& out) {
    requirePackingDimension(ring, out);
    requirePackingRankAndPrimes(ring, in, in->parameter.dimension, in->parameter.numQP, out);
}

RingSwitchKey RingKeyGenerator::genComposeKey(const SecretKey& in_key) const {
    const SecretKey& s = secretKey();
    const Context& in = in_key.getContext();
    require(isMultiple(context_->parameter.degree, in->parameter.degree), message::composeDegree);
    require(in->parameter.encryption_level <= getMaxCompatibleLevel(context_, in), message::composePrimes);
    RingSwitchKey key(unsetKey(context_, KeyKind::RingSwitch));
    fillSwitchingKey(context_, decomposeData_, key.getKey(), laidInto(context_, in_key).getSx(0), s.getSx(0));
    return key;
}

RingSwitchKey RingKeyGenerator::genDecomposeKey(const Context& switch_context,
                                                const SecretKey& out_key) const {
    const SecretKey& s = secretKey();
    const Context& out = out_key.getContext();
    const u64 level = out->parameter.encryption_level;
    requireContext(switch_context);
    require(context_->parameter.degree == switch_context->parameter.degree, message::decomposeKeyDegree);
    require(isMultiple(switch_context->parameter.degree, out->parameter.degree), message::decomposeDegree);
    require(level <= getMaxCompatibleLevel(context_, out), message::decomposePrimes);
    require(level <= getMaxCompatibleLevel(switch_context, out), message::decomposeKeyPrimes);
    const SecretKey sFrom(switch_context, s.getCoefficients());
    RingSwitchKey key(unsetKey(switch_context, KeyKind::RingSwitch));
    fillSwitchingKey(switch_context, RNSDecomposeData(switch_context), key.getKey(), sFrom.getSx(0),
                     laidInto(switch_context, out_key).getSx(0));
    return key;
}

template <EncryptionType E>
ModPackKeyBundle RingKeyGenerator::genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>& in_key,
                                                       const SecretKeyBase<E>& out_key) const {
    const Context& in = in_key.getContext();
    requireModPackKeyBundleCondition(context_, in, out_key.getContext());
    return packingKeys(in_key.getCoefficients(), in->parameter.rank, in->parameter.degree, out_key);
}

template <EncryptionType E>
ModPackKeyBundle RingKeyGenerator::genModPackKeyBundle(const LWE::SecretKey& in_key,
                                                       const SecretKeyBase<E>& out_key) const {
    const LWE::Context& in = in_key.getContext();
    requireModPackKeyBundleCondition(context_, in, out_key.getContext());
    return packingKeys(in_key.getCoefficients(), in->parameter.dimension, 1, out_key);
}

template <EncryptionType E>
ModPackKeyBundle RingKeyGenerator::packingKeys(const int* in, u64 inRank, u64 inDegree,
                                               const SecretKeyBase<E>& out_key) const {
    const u64 outRank = out_key.getContext()->parameter.rank;
    const SecretKey sTo = laidInto(context_, out_key);
    std::vector<std::shared_ptr<EvaluationKey>> keys;
    for (u64 k = 0; k < inRank / outRank; ++k, in += outRank * inDegree) {
        const SecretKey sFrom = laidInto(context_, in, outRank, inDegree);
        keys.push_back(unsetKey(context_, KeyKind::ModPack));
        fillSwitchingKey(context_, decomposeData_, *keys.back(), sFrom.getSx(0), sTo.getSx(0));
    }
    return ModPackKeyBundle(context_, std::move(keys));
}

template ModPackKeyBundle
RingKeyGenerator::genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>&,
                                      const SecretKeyBase<EncryptionType::MLWE>&) const;
template ModPackKeyBundle
RingKeyGenerator::genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>&,
                                      const SecretKeyBase<EncryptionType::RLWE>&) const;
template ModPackKeyBundle
RingKeyGenerator::genModPackKeyBundle(const LWE::SecretKey&,
                                      const SecretKeyBase<EncryptionType::MLWE>&) const;
template ModPackKeyBundle
RingKeyGenerator::genModPackKeyBundle(const LWE::SecretKey&,
                                      const SecretKeyBase<EncryptionType::RLWE>&) const;

} // namespace Torvo
