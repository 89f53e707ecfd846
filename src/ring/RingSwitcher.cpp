#include "ring/RingSwitcher.hpp"

#include "arithmetic/chain/Backend.hpp"
#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "core/Failure.hpp"
#include "evaluator/Messages.hpp"
#include "ring/Messages.hpp"
#include "ring/Transposition.hpp"

#include <algorithm>

namespace Torvo {

namespace {

using transposition::Range;

constexpr FailureNames combineNames{"combineCUDA", "combine"};
constexpr FailureNames combineBatchNames{"combineBatchCUDA", "combineBatch"};
constexpr FailureNames splitNames{"splitCUDA", "split"};
constexpr FailureNames embedNames{"embedCUDA", "embed"};
constexpr FailureNames extractNames{"extractCUDA", "extract"};

// ---- guards

void requireCoefficients(const Polynomial& polynomial) {
    require(!polynomial.isNTT(), message::ringSwitchingInNTTForm);
}

/// Requires that all parts have one degree and together the degree of the whole.
template <class Pointers>
void requirePartition(const Pointers& parts, const Polynomial& whole) {
    const u64 degree = whole.getDegree();
    u64 sum = 0;
    for (const Polynomial* part : parts) {
        require(part->getDegree() == parts.front()->getDegree(), message::totalDimensionsDiffer);
        sum += part->getDegree();
    }
    require(sum == degree, message::totalDimensionsDiffer);
}

/// The step between coefficients of the smaller ring in the larger one.
u64 stepBetween(u64 smaller, u64 larger) {
    require(smaller != 0 && larger >= smaller && larger % smaller == 0, message::totalDimensionDoesNotDivide);
    return larger / smaller;
}

template <class Pointers>
void requireCommonDevice(const Pointers& operands) {
    require(!operands.empty(), message::noOperand);
    for (const auto* operand : operands)
        require(operand->getDevice() == operands.front()->getDevice(), message::elementsOnDifferentDevices);
}

// ---- outputs

/// Gives an output the level and the device of the first operand. An output that is the operand keeps its
/// content.
template <class First, class Out>
void shapeAs(const First& first, Out& out) {
    out.setLevel(first.getLevel());
    out.allocate(first.getDevice());
}

template <class First>
void shapeAs(const First& first, Polynomial& out) {
    out.setLevel(first.getLevel());
    out.allocate(first.getDevice());
    out.setNTT(false);
    out.disableGerm();
}

// ---- loops

/// Calls body(r, range) in parallel for ranges that together are the indices below `count` of the rows up to
/// `level`: a row at a time or, if there is only one row, a share of it for each thread.
template <class Body>
void forEachRowOrShare(u64 level, u64 count, Body&& body) {
    if (level > 0) {
        forEachIndex(level + 1, [&](u64 r) { body(r, Range{0, count}); });
        return;
    }
    forEachShare(count, [&](u64 begin, u64 end) { body(0, Range{begin, end}); });
}

/// out[c * step] = in[c] for c < count, and zeros between; out may be in if the step is 1.
void spreadRow(const u64* in, u64 count, u64 step, u64* out) {
    if (step == 1) {
        std::copy_n(in, count, out);
        return;
    }
    // A piece is overwritten while it is still in the cache.
    const u64 piece = std::max<u64>(1, 2048 / step);
    for (u64 begin = 0; begin < count; begin += piece) {
        const u64 end = std::min(begin + piece, count);
        std::fill(out + begin * step, out + end * step, 0);
        for (u64 c = begin; c < end; ++c) out[c * step] = in[c];
    }
}

/// Sets the rows of a mod-up polynomial above its level to zero.
void clearAboveLevel(Polynomial& polynomial) {
    std::fill(polynomial.getRow(polynomial.getLevel() + 1), polynomial.getData().end(), 0);
}

} // namespace

void RingSwitcher::combine(const std::vector<const Polynomial*>& in, Polynomial& out) const {
    requirePartition(in, out);
    for (const Polynomial* part : in) requireCoefficients(*part);
    requireCommonDevice(in);
    requireBackend(in.front()->getDevice(), combineNames);
    shapeAs(*in.front(), out);
    const u64 k = in.size();
    forEachRowOrShare(out.getLevel(), in.front()->getDegree(), [&](u64 r, Range range) {
        u64* whole = out.getRow(r);
        if (k == 1)
            std::copy(in[0]->getRow(r) + range.begin, in[0]->getRow(r) + range.end, whole + range.begin);
        else
            transposition::move(
                {0, k}, range, [&](u64 j) { return in[j]->getRow(r); }, [&](u64 c) { return whole + c * k; });
    });
}

void RingSwitcher::combine(const std::vector<const LevelledElement*>& in, Polynomial& out) const {
    require(in.size() == out.getDegree(), message::totalDimensionsDiffer);
    requireCommonDevice(in);
    requireBackend(in.front()->getDevice(), combineNames);
    shapeAs(*in.front(), out);
    forEachRowOrShare(out.getLevel(), in.size(), [&](u64 r, Range range) {
        for (u64 j = range.begin; j < range.end; ++j) out.getRow(r)[j] = (*in[j])[r];
    });
}

void RingSwitcher::combineBatch(const std::vector<const LevelledVector*>& in,
                                std::vector<Polynomial*>& out) const {
    requireCommonDevice(in);
    for (const Polynomial* polynomial : out)
        require(in.size() == polynomial->getDegree(), message::vectorsMissDegree);
    for (const LevelledVector* vector : in)
        require(out.size() == vector->getDimension(), message::polynomialsMissDimension);
    requireBackend(in.front()->getDevice(), combineBatchNames);
    for (Polynomial* polynomial : out) shapeAs(*in.front(), *polynomial);
    const Range vectors{0, in.size()}, polynomials{0, out.size()};
    const u64 across = transposition::numTiles(in.size()), down = transposition::numTiles(out.size());
    forEachIndex((in.front()->getLevel() + 1) * down * across, [&](u64 index) {
        const u64 r = index / (down * across);
        transposition::moveTile(
            transposition::tile(vectors, index % across),
            transposition::tile(polynomials, index / across % down), [&](u64 i) { return in[i]->getRow(r); },
            [&](u64 j) { return out[j]->getRow(r); });
    });
}

void RingSwitcher::split(const Polynomial& in, std::vector<Polynomial*>& out) const {
    requirePartition(out, in);
    requireCoefficients(in);
    require(!out.empty(), message::noOperand);
    requireBackend(in.getDevice(), splitNames);
    for (Polynomial* part : out) shapeAs(in, *part);
    const u64 k = out.size();
    forEachRowOrShare(in.getLevel(), in.getDegree() / k, [&](u64 r, Range range) {
        const u64* whole = in.getRow(r);
        if (k == 1)
            std::copy(whole + range.begin, whole + range.end, out[0]->getRow(r) + range.begin);
        else
            transposition::move(
                range, {0, k}, [&](u64 c) { return whole + c * k; },
                [&](u64 j) { return out[j]->getRow(r); });
    });
}

void RingSwitcher::split(const Polynomial& in, std::vector<LevelledElement*>& out) const {
    require(out.size() == in.getDegree(), message::totalDimensionsDiffer);
    requireCoefficients(in);
    require(!out.empty(), message::noOperand);
    requireBackend(in.getDevice(), splitNames);
    for (LevelledElement* part : out) shapeAs(in, *part);
    forEachRowOrShare(in.getLevel(), out.size(), [&](u64 r, Range range) {
        for (u64 j = range.begin; j < range.end; ++j) (*out[j])[r] = in.getRow(r)[j];
    });
}

void RingSwitcher::split(const Polynomial& in, LevelledVector& out) const {
    require(in.getDegree() == out.getDimension(), message::totalDimensionsDiffer);
    requireCoefficients(in);
    requireBackend(in.getDevice(), splitNames);
    shapeAs(in, out);
    forEachRowOrShare(in.getLevel(), in.getDegree(), [&](u64 r, Range range) {
        std::copy(in.getRow(r) + range.begin, in.getRow(r) + range.end, out.getRow(r) + range.begin);
    });
}

void RingSwitcher::embed(const Polynomial& in, Polynomial& out) const {
    const u64 step = stepBetween(in.getDegree(), out.getDegree());
    requireCoefficients(in);
    requireBackend(in.getDevice(), embedNames);
    shapeAs(in, out);
    forEachIndex(in.getLevel() + 1,
                 [&](u64 r) { spreadRow(in.getRow(r), in.getDegree(), step, out.getRow(r)); });
    if (&out != &in) clearAboveLevel(out);
}

void RingSwitcher::embed(const LevelledElement& in, Polynomial& out) const {
    requireBackend(in.getDevice(), embedNames);
    shapeAs(in, out);
    forEachIndex(in.getLevel() + 1, [&](u64 r) { spreadRow(&in[r], 1, out.getDegree(), out.getRow(r)); });
    clearAboveLevel(out);
}

void RingSwitcher::extract(const Polynomial& in, Polynomial& out) const {
    const u64 step = stepBetween(out.getDegree(), in.getDegree());
    requireCoefficients(in);
    requireBackend(in.getDevice(), extractNames);
    shapeAs(in, out);
    forEachIndex(in.getLevel() + 1, [&](u64 r) {
        for (u64 c = 0; c < out.getDegree(); ++c) out.getRow(r)[c] = in.getRow(r)[c * step];
    });
}

void RingSwitcher::extract(const Polynomial& in, LevelledElement& out) const {
    requireCoefficients(in);
    requireBackend(in.getDevice(), extractNames);
    shapeAs(in, out);
    for (u64 r = 0; r <= in.getLevel(); ++r) out[r] = in.getRow(r)[0];
}

} // namespace Torvo
