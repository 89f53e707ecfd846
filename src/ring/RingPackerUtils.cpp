#include <Torvo/RingPackerUtils.hpp>

#include "arithmetic/Messages.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"

namespace Torvo {

unsigned long getNumCiphertextsAfterFullDecompose(const Context& from, const Context& to) {
    return from->parameter.degree / to->parameter.degree;
}

unsigned long getNumCiphertextsToFullCompose(const Context& from, const Context& to) {
    return to->parameter.degree / from->parameter.degree;
}

unsigned long getNumCiphertextsToModPack(const Context& from, const Context& to) {
    return to->parameter.degree / from->parameter.degree;
}

unsigned long getNumCiphertextsToModPack(const LWE::Context&, const Context& to) {
    return to->parameter.degree;
}

unsigned long getNumCiphertextsAfterUnPack(const Context& context) {
    return context->parameter.degree;
}

LWE::SecretKey genLWESecretKeyAfterUnPack(const LWE::Context& lwe_context, const SecretKey& secret_key) {
    require(LWE::getDimension(lwe_context) == getDegree(secret_key.getContext()),
            message::operandsDifferInDimension);
    return LWE::SecretKey(lwe_context, secret_key.getCoefficients());
}

} // namespace Torvo
