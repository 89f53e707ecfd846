#include <Torvo/RingPackerUtils.hpp>

#include "arithmetic/chain/Messages.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"

namespace Torvo {

unsigned long getNumCiphertextsAfterFullDecompose(const Context& from, const Context& to) {
    return getDegree(from) / getDegree(to);
}

unsigned long getNumCiphertextsToFullCompose(const Context& from, const Context& to) {
    return getDegree(to) / getDegree(from);
}

unsigned long getNumCiphertextsToModPack(const Context& from, const Context& to) {
    return getDegree(to) / getDegree(from);
}

unsigned long getNumCiphertextsToModPack(const LWE::Context& from, const Context& to) {
    requireContext(from);
    return getDegree(to);
}

unsigned long getNumCiphertextsAfterUnPack(const Context& context) {
    return getDegree(context);
}

LWE::SecretKey genLWESecretKeyAfterUnPack(const LWE::Context& lwe_context, const SecretKey& secretKey) {
    require(LWE::getDimension(lwe_context) == getDegree(secretKey.getContext()),
            message::operandsDifferInDimension);
    return LWE::SecretKey(lwe_context, secretKey.getCoefficients());
}

} // namespace Torvo
