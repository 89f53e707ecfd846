#include "crypto/EncryptionKeyImpl.hpp"

#include "arithmetic/elements/PolyGerm.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "crypto/Messages.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/SecretPolynomial.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

namespace Torvo {

EncryptionKeyImpl::EncryptionKeyImpl(const Context& keyContext)
    : context(keyContext), ax(context, false, true), bx(context, false, true),
      context_hash(context->context_hash) {}

EncryptionKeyImpl::EncryptionKeyImpl(const Context& keyContext, const SecretKey& secretKey)
    : EncryptionKeyImpl(keyContext) {
    const u64 level = context->parameter.encryption_level;
    requireSameRows(secretKey.getContext(), context, level, false, message::encryptionKeyOfForeignSecret);
    SecretPolynomial hidden(context, false, level);
    ax.setLevel(level);
    populateUniformPoly(ax, true);
    RandomSampler().sampleGaussian(hidden, context);
    context->primes.forwardNTTLessProduct(ax, secretKey.getSx(0), hidden);
    bx = hidden.release();
}

void EncryptionKeyImpl::save(OutputArchive& archive) const {
    saveTag(archive, ObjectTag::EncryptionKey);
    archive(context_hash, bx);
    ax.saveByGerm(archive);
}

void EncryptionKeyImpl::load(InputArchive& archive) {
    verifyTag(archive, ObjectTag::EncryptionKey);
    archive(context_hash);
    loadParts(archive);
}

void EncryptionKeyImpl::loadOwn(InputArchive& archive) {
    verifyTag(archive, ObjectTag::EncryptionKey);
    archive(context_hash);
    verify(context_hash == context->context_hash);
    loadParts(archive);
}

// A germ expands to the full height of the ring, so it is accepted only if bx has the rows of a generated
// key.
void EncryptionKeyImpl::loadParts(InputArchive& archive) {
    bx.load(archive, [this](const Polynomial& poly) {
        return poly.hasShapeOf(ringOf(context)) && !poly.isModUp() && poly.isNTT();
    });
    ax.loadByGerm(archive, [this](const Polynomial& poly) { return poly.isLike(bx); });
    verify(!ax.getGerm() || ax.getLevel() >= context->parameter.encryption_level);
    ax.regrow();
}

} // namespace Torvo
