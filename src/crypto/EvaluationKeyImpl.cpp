#include "crypto/EvaluationKeyImpl.hpp"

#include "arithmetic/elements/PolynomialArchive.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "core/RequireContext.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <optional>

namespace Torvo {

namespace {

std::vector<Polynomial> unsetPolynomials(const Context& context) {
    std::vector<Polynomial> polys;
    polys.reserve(context->parameter.gadget_rank);
    for (u64 j = 0; j < context->parameter.gadget_rank; ++j) polys.emplace_back(context, true, true);
    return polys;
}

} // namespace

EvaluationKeyImpl::EvaluationKeyImpl() {
    ax.set(Device{}, {});
    bx.set(Device{}, {});
}

EvaluationKeyImpl::EvaluationKeyImpl(const Context& keyContext, char keyType, u64 keyRotationIndex)
    : context(requireContext(keyContext)), type(keyType), rotationIndex(keyRotationIndex),
      context_hash(keyContext->context_hash) {
    ax.set(Device{}, unsetPolynomials(context));
    bx.set(Device{}, unsetPolynomials(context));
}

void EvaluationKeyImpl::save(OutputArchive& archive) const {
    saveTag(archive, ObjectTag::EvaluationKey);
    archive(context_hash, type, rotationIndex);
    saveKeyPolynomials(archive, ax.at(Device{}), bx.at(Device{}));
}

void EvaluationKeyImpl::load(InputArchive& archive) {
    verifyTag(archive, ObjectTag::EvaluationKey);
    archive(context_hash, type, rotationIndex);
    loadParts(archive);
}

void EvaluationKeyImpl::loadOwn(InputArchive& archive) {
    loadOwn(archive, [this](u64 index) { return index == rotationIndex; });
}

void EvaluationKeyImpl::loadAnyRotation(InputArchive& archive) {
    loadOwn(archive, [this](u64 index) { return index < context->parameter.num_slots; });
}

template <class IsTaken>
void EvaluationKeyImpl::loadOwn(InputArchive& archive, IsTaken&& isTaken) {
    verifyTag(archive, ObjectTag::EvaluationKey);
    u64 hash = 0, index = 0;
    char kind = 0;
    archive(hash, kind, index);
    verify(hash == context->context_hash && kind == type && isTaken(index));
    context_hash = hash;
    rotationIndex = index;
    loadParts(archive);
}

void EvaluationKeyImpl::loadParts(InputArchive& archive) {
    std::optional<u64> count;
    if (context) count = context->parameter.gadget_rank;
    loadKeyPolynomials(archive, ax.at(Device{}), bx.at(Device{}), count, [this](const Polynomial& poly) {
        const bool isOfRing = context ? poly.hasShapeOf(ringOf(context)) : poly.hasPossiblePrimes();
        return isOfRing && poly.isModUp() && poly.isNTT() && poly.getLevel() + 1 == poly.getNumBase();
    });
}

} // namespace Torvo
