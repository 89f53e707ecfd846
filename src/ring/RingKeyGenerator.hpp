#pragma once

#include "core/Integers.hpp"
#include "crypto/KeyGeneratorImpl.hpp"

#include <Torvo/LWESecretKey.hpp>
#include <Torvo/ModPackKeyBundle.hpp>
#include <Torvo/RingSwitchKey.hpp>

namespace Torvo {

/// A generator that also makes keys between rings, which are returned to the caller and not stored in the
/// pack.
class RingKeyGenerator : public KeyGeneratorImpl {
public:
    using KeyGeneratorImpl::KeyGeneratorImpl;

    RingSwitchKey genComposeKey(const SecretKey& in_key) const;
    RingSwitchKey genDecomposeKey(const Context& switch_context, const SecretKey& out_key) const;
    template <EncryptionType E>
    ModPackKeyBundle genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>& in_key,
                                         const SecretKeyBase<E>& out_key) const;
    template <EncryptionType E>
    ModPackKeyBundle genModPackKeyBundle(const LWE::SecretKey& in_key, const SecretKeyBase<E>& out_key) const;

private:
    /// The packing keys from `inRank` components of degree `inDegree` to `out_key`.
    template <EncryptionType E>
    ModPackKeyBundle packingKeys(const int* in, u64 inRank, u64 inDegree,
                                 const SecretKeyBase<E>& out_key) const;
};

/// The rules for packing from a key of `in` to a key of `out` by keys of `ring`, with the texts of
/// `KeyGenerator::genModPackKeyBundle`. In plain LWE the dimension is the rank, and the degree is 1.
void requireModPackKeyBundleCondition(const Context& ring, const Context& in, const Context& out);
void requireModPackKeyBundleCondition(const Context& ring, const LWE::Context& in, const Context& out);

} // namespace Torvo
