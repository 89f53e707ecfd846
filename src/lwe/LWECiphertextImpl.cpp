#include "lwe/LWECiphertextImpl.hpp"

#include "arithmetic/elements/Messages.hpp"
#include "context/LWEContextContent.hpp"
#include "context/SameRing.hpp"
#include "core/Failure.hpp"
#include "encoding/Messages.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

namespace Torvo::LWE {

CiphertextImpl::CiphertextImpl(const Context& chain) : context(chain), ax(chain), bx(chain) {
    ax.getData().clear();
}

void CiphertextImpl::setLevel(u64 level) {
    ax.setLevel(level);
    bx.setLevel(level);
}

void CiphertextImpl::setRescaleCounter(int r) {
    require(r <= static_cast<int>(ax.getLevel()), message::rescaleCounterAboveLevel);
    rescale_counter.setValue(r);
}

void CiphertextImpl::save(OutputArchive& archive) const {
    saveHashAndTag(archive, context->context_hash, ObjectTag::Ciphertext);
    archive(rescale_counter.getValue(), ax, bx);
}

void CiphertextImpl::load(InputArchive& archive) {
    const Parameter& parameter = context->parameter;
    verifyHashAndTag(archive, context->context_hash, ObjectTag::Ciphertext);
    int counter = 0;
    archive(counter);
    verify(counter >= 0);
    rescale_counter.setValue(counter);
    ax.loadSized(archive, parameter.dimension);
    archive(bx);
    verify(bx.getNumPrimes() == parameter.chain_length && bx.getLevel() == ax.getLevel() && !bx.isModUp() &&
           bx.getData().size() == ax.getLevel() + 1);
}

void shapeOutput(const Context& context, Ciphertext& out) {
    if (out.getContext()->context_hash != context->context_hash) out = Ciphertext(context);
}

void requireOfChain(const Context& context, const Ciphertext& operand) {
    require(sharePrimes(operand.getContext(), context, operand.getLevel()), message::operandsOfOtherRing);
}

} // namespace Torvo::LWE
