#include "bootstrap/BootConstants.hpp"

#include "arithmetic/chain/PrimeModuliSparse.hpp"
#include "arithmetic/kernels/ThrowingLoop.hpp"
#include "bootstrap/BootParameter.hpp"
#include "context/ContextContent.hpp"
#include "context/RadixDecomposition.hpp"
#include "encoding/MessageImpl.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

namespace Torvo {

namespace {

constexpr double twoPi = 2 * std::numbers::pi;

/// The diagonals of one stage: those of indices first, first + 1, ..., in units of `step`. The plaintext list
/// holds them from the `skipped`-th on.
struct StageDiagonals {
    StageDiagonals(const RadixDecomposition& plan, u64 stage)
        : step(static_cast<long>(plan.step[stage])), baby(static_cast<long>(plan.babySteps[stage])) {
        const auto radix = static_cast<long>(plan.radix[stage]);
        if (stage == 0) {
            first = plan.giantSteps[0] == 1 ? 0 : -(radix / 2);
        } else {
            // The list begins with the second position.
            first = -radix;
            skipped = 1;
        }
    }

    long index(long k) const { return (first + k + skipped) * step; }
    /// The rotation that the giant step of entry k applies later. The diagonal is rotated back by it in
    /// advance.
    long giantRotation(long k) const { return ((k + skipped) / baby * baby + first) * step; }

    long step, baby;
    long first = 0, skipped = 0;
};

/// A stage after the first has diagonals on both sides: -radix + 1 to radix - 1.
u64 diagonalCount(const RadixDecomposition& plan, u64 stage) {
    return stage == 0 ? plan.radix[0] : 2 * plan.radix[stage] - 1;
}

/// The product of the inverses of the first `count` radix-2 factors of a transform of `points` points.
SparseComplexMatrix buildInverseBlock(u64 points, u64 count) {
    std::vector<SparseComplexMatrix> factors = BootConstants::buildFactors(points, count);
    for (auto& factor : factors) {
        factor.conjugateTranspose();
        factor *= 0.5;
    }
    SparseComplexMatrix merged = std::move(factors[0]);
    for (u64 k = 1; k < count; ++k) {
        const SparseComplexMatrix factor = std::move(factors[k]); // its memory goes with it
        merged = factor * merged;
    }
    return merged;
}

} // namespace

BootShapes::BootShapes(u64 log_slots, u64 chain_length) {
    const RadixDecomposition plan(log_slots);
    for (u64 s = 0; s < plan.numStages; ++s) {
        slotToCoeff.push_back({diagonalCount(plan, s), s + 1});
        coeffToSlot.push_back({diagonalCount(plan, s), chain_length - 1 - s});
    }
}

u64 BootShapes::plaintextCount() const {
    u64 count = 0;
    for (const auto* transform : {&slotToCoeff, &coeffToSlot})
        for (const BootStageShape& stage : *transform) count += stage.count;
    return count;
}

u64 BootShapes::rowCount() const {
    u64 count = 0;
    for (const auto* transform : {&slotToCoeff, &coeffToSlot})
        for (const BootStageShape& stage : *transform) count += stage.count * (stage.level + 1);
    return count;
}

BootConstants::BootConstants(u64 log_slots, double coeff_to_slot_constant, double slot_to_coeff_constant,
                             const Context& context, std::shared_ptr<EnDecoder> encoder)
    : recipe_{context, log_slots, coeff_to_slot_constant, slot_to_coeff_constant},
      encoder_(std::move(encoder)) {
    v0_encodings_.set(Device{}, {});
    inv_v0_encodings_.set(Device{}, {});
    generateDFTEncodings();
}

BootConstants::BootConstants(const BootRecipe& recipe, BootStages&& stages)
    : recipe_(recipe), file_(std::move(stages.file)) {
    v0_encodings_.set(Device{}, std::move(stages.slotToCoeff));
    inv_v0_encodings_.set(Device{}, std::move(stages.coeffToSlot));
}

bool BootConstants::isIn(const Device& device) const {
    const std::lock_guard lock(mutex_);
    return isIn_(device);
}

bool BootConstants::isIn_(const Device& device) const {
    return v0_encodings_.contains(device) && inv_v0_encodings_.contains(device);
}

const std::vector<std::vector<Plaintext>>& BootConstants::getV0(const Device& device) const {
    const std::lock_guard lock(mutex_);
    return v0_encodings_.at(device);
}

const std::vector<std::vector<Plaintext>>& BootConstants::getInvV0(const Device& device) const {
    const std::lock_guard lock(mutex_);
    return inv_v0_encodings_.at(device);
}

void BootConstants::load(const Device& device) {
    const std::lock_guard lock(mutex_);
    if (isIn_(device)) return;
    v0_encodings_.ensure(device);
    inv_v0_encodings_.ensure(device);
}

void BootConstants::buildPartialMatrix(u64 row, u64 col, u64 size, SparseComplexMatrix& matrix) {
    const u64 half = size / 2;
    for (u64 i = 0, e = 1; i < half; ++i, e = 5 * e % (4 * size)) {
        const double angle = static_cast<double>(e) * twoPi / static_cast<double>(4 * size);
        const std::complex<double> w = std::exp(std::complex<double>(0.0, angle));
        matrix.coeffRef(row + i, col + i) = 1.0;
        matrix.coeffRef(row + i + half, col + i) = 1.0;
        matrix.coeffRef(row + i, col + i + half) = w;
        matrix.coeffRef(row + i + half, col + i + half) = -w;
    }
}

std::vector<SparseComplexMatrix> BootConstants::buildFactors(u64 points, u64 count) {
    std::vector<SparseComplexMatrix> factors(count, SparseComplexMatrix(points, points, 2, 2));
    for (u64 s = 0; s < count; ++s)
        for (u64 base = 0, size = points >> s; base < points; base += size)
            buildPartialMatrix(base, base, size, factors[s]);
    return factors;
}

Message BootConstants::extractDiagonal(const SparseComplexMatrix& matrix, long diag, Corner corner) {
    const auto rows = static_cast<long>(matrix.getRows()), cols = static_cast<long>(matrix.getCols());
    while (corner == Corner::Wraps && diag < 0) diag += cols;
    Message diagonal;
    diagonal.impl().resize(matrix.getRows());
    for (long i = 0; i < rows; ++i) {
        const long col = corner == Corner::Wraps ? (i + diag) % cols : i + diag;
        const bool isOutside = col < 0 || cols <= col;
        diagonal[static_cast<u64>(i)] =
            isOutside ? 0.0 : matrix.coeff(static_cast<u64>(i), static_cast<u64>(col));
    }
    return diagonal;
}

/// A message of n slots that has the period P is encoded as its first P slots are: every stage of the embedding
/// of distance P and more doubles P numbers exactly and makes zeros of the others, and the division by n, a
/// power of two, is exact too. So the words are the same, and the polynomial is one in X^(N / 2P).
Plaintext BootConstants::encodePeriodic(const Message& period, u64 level) const {
    const Context& context = recipe_.context;
    const u64 gap = context->parameter.degree / (2 * period.getSize());
    if (gap == 1) return encoder_->encode(period, level, 0);
    Plaintext plaintext = encoder_->encodeWithoutNTT(period, level, 0);
    forwardNTTOfSparse(context->primes, plaintext.getMx(), gap);
    plaintext.setLogSlots(recipe_.log_slots);
    return plaintext;
}

std::vector<Plaintext> BootConstants::encodeStage(const SparseComplexMatrix& block, u64 stage, double factor,
                                                  u64 level) const {
    const RadixDecomposition plan(recipe_.log_slots);
    const StageDiagonals diagonals(plan, stage);
    const Corner corner = stage == 0 ? Corner::Wraps : Corner::Ends;
    std::vector<std::optional<Plaintext>> encoded(diagonalCount(plan, stage));
    forEachIndexOrThrow(encoded.size(), [&](u64 entry) {
        const auto k = static_cast<long>(entry);
        Message diagonal = extractDiagonal(block, diagonals.index(k), corner);
        for (auto& slot : diagonal) slot *= factor;
        encoded[entry] = encodePeriodic(rightRotate(diagonal, diagonals.giantRotation(k)), level);
    });
    std::vector<Plaintext> plaintexts;
    plaintexts.reserve(encoded.size());
    for (auto& plaintext : encoded) plaintexts.push_back(std::move(*plaintext));
    return plaintexts;
}

void BootConstants::generateDFTEncodings() {
    const Parameter& parameter = recipe_.context->parameter;
    const RadixDecomposition plan(recipe_.log_slots);
    const BootShapes shapes(recipe_.log_slots, parameter.chain_length);
    // The fold of a sparse message multiplies it by a power of two, which the constants divide out again.
    const auto foldedSlots = static_cast<double>(parameter.num_slots >> recipe_.log_slots);
    const double inverseFactor =
        equalShare(recipe_.coeff_to_slot_constant / foldedSlots, BootParameter::coeff_to_slot_depth);
    const double forwardFactor =
        equalShare(recipe_.slot_to_coeff_constant, BootParameter::slot_to_coeff_depth);

    auto& inverseStages = inv_v0_encodings_.at(Device{});
    auto& forwardStages = v0_encodings_.at(Device{});
    for (u64 s = 0; s < plan.numStages; ++s) {
        // The matrix of a stage after the first consists of equal blocks on its diagonal: one stands for all.
        SparseComplexMatrix block = buildInverseBlock(plan.radix[s] * plan.step[s], plan.logRadix[s]);
        inverseStages.push_back(encodeStage(block, s, inverseFactor, shapes.coeffToSlot[s].level));
        // Each merged factor was multiplied by 0.5. The radix undoes all of them together.
        block.conjugateTranspose();
        block *= static_cast<double>(plan.radix[s]);
        forwardStages.push_back(encodeStage(block, s, forwardFactor, shapes.slotToCoeff[s].level));
    }
}

} // namespace Torvo
