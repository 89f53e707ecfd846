#include "crypto/EvaluationKeyImpl.hpp"

#include "arithmetic/PolynomialArchive.hpp"
#include "arithmetic/Ring.hpp"
#include "context/ContextContent.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Limits.hpp"
#include "persistence/Verifier.hpp"

namespace Torvo {

namespace {

std::vector<Polynomial> emptyPolynomials(const Context& context) {
    std::vector<Polynomial> polys;
    polys.reserve(context->parameter.gadget_rank);
    for (u64 j = 0; j < context->parameter.gadget_rank; ++j) polys.emplace_back(context, true, true);
    return polys;
}

/// Reads the polynomials of a key: as many as are asked for and of that ring when there is a context.
void loadKeyPolynomials(InputArchive& archive, const Context& context, std::vector<Polynomial>& polys) {
    if (context) {
        loadPolynomials(archive, polys, context->parameter.gadget_rank, ringOf(context));
        verify(polys.size() == context->parameter.gadget_rank);
    } else {
        loadPolynomials(archive, polys, limit::rows);
    }
    for (const Polynomial& poly : polys)
        verify(poly.isModUp() && poly.isNTT() && poly.getLevel() + 1 == poly.getNumBase());
}

} // namespace

EvaluationKeyImpl::EvaluationKeyImpl() {
    ax.set(Device{}, {});
    bx.set(Device{}, {});
}

EvaluationKeyImpl::EvaluationKeyImpl(const Context& keyContext, char keyType, u64 rotationIndex)
    : context(keyContext), type(keyType), rotation_index(rotationIndex),
      context_hash(keyContext->context_hash) {
    ax.set(Device{}, emptyPolynomials(context));
    bx.set(Device{}, emptyPolynomials(context));
}

void EvaluationKeyImpl::save(OutputArchive& archive) const {
    saveTag(archive, ObjectTag::EvaluationKey);
    archive(context_hash, type, rotation_index);
    savePolynomials(archive, ax.at(Device{}));
    savePolynomials(archive, bx.at(Device{}));
}

void EvaluationKeyImpl::load(InputArchive& archive) {
    verifyTag(archive, ObjectTag::EvaluationKey);
    archive(context_hash, type, rotation_index);
    loadKeyPolynomials(archive, context, ax.at(Device{}));
    loadKeyPolynomials(archive, context, bx.at(Device{}));
    verify(ax.at(Device{}).size() == bx.at(Device{}).size());
}

} // namespace Torvo
