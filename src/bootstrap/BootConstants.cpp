#include "bootstrap/BootConstants.hpp"

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
            count = plan.radix[0];
        } else {
            // Both halves: diagonals -radix + 1 to radix - 1. The list begins with the second position.
            first = -radix;
            skipped = 1;
            count = 2 * plan.radix[stage] - 1;
        }
    }

    long index(long k) const { return (first + k + skipped) * step; }
    /// The rotation that the giant step of entry k applies later. The diagonal is rotated back by it in
    /// advance.
    long giantRotation(long k) const { return ((k + skipped) / baby * baby + first) * step; }

    long step, baby;
    long first = 0, skipped = 0;
    u64 count = 0;
};

} // namespace

BootConstants::BootConstants(u64 log_slots, double coeff_to_slot_constant, double slot_to_coeff_constant,
                             const Context& context, std::shared_ptr<EnDecoder> encoder)
    : log_slots_(log_slots), num_slots_(u64{1} << log_slots), context_(context),
      encoder_(std::move(encoder)) {
    v0_encodings_.set(Device{}, {});
    inv_v0_encodings_.set(Device{}, {});
    generateDFTEncodings(coeff_to_slot_constant, slot_to_coeff_constant);
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

void BootConstants::buildPartialMatrix(u64 row, u64 col, u64 size, SparseComplexMatrix& matrix) const {
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

void BootConstants::buildV0(std::vector<SparseComplexMatrix>& matrices) const {
    matrices.assign(log_slots_, SparseComplexMatrix(num_slots_, num_slots_, 2, 2));
    for (u64 s = 0; s < log_slots_; ++s)
        for (u64 base = 0, size = num_slots_ >> s; base < num_slots_; base += size)
            buildPartialMatrix(base, base, size, matrices[s]);
}

Message BootConstants::extractDiagonal(const SparseComplexMatrix& matrix, long diag) const {
    const u64 rows = matrix.getRows(), cols = matrix.getCols();
    while (diag < 0) diag += static_cast<long>(cols);
    Message diagonal;
    diagonal.impl().resize(rows);
    for (u64 i = 0; i < rows; ++i) diagonal[i] = matrix.coeff(i, (i + static_cast<u64>(diag)) % cols);
    return diagonal;
}

std::vector<Plaintext> BootConstants::encodeStage(const SparseComplexMatrix& matrix, u64 stage, double factor,
                                                  u64 level) const {
    const StageDiagonals diagonals(RadixDecomposition(log_slots_), stage);
    std::vector<std::optional<Plaintext>> encoded(diagonals.count);
    forEachIndexOrThrow(encoded.size(), [&](u64 entry) {
        const auto k = static_cast<long>(entry);
        Message diagonal = extractDiagonal(matrix, diagonals.index(k));
        for (auto& slot : diagonal) slot *= factor;
        encoded[entry] = encoder_->encode(rightRotate(diagonal, diagonals.giantRotation(k)), level, 0);
    });
    std::vector<Plaintext> plaintexts;
    plaintexts.reserve(encoded.size());
    for (auto& plaintext : encoded) plaintexts.push_back(std::move(*plaintext));
    return plaintexts;
}

void BootConstants::generateDFTEncodings(double coeff_to_slot_constant, double slot_to_coeff_constant) {
    const RadixDecomposition plan(log_slots_);
    const u64 top = context_->parameter.chain_length - 1;
    // The fold of a sparse message multiplies it by a power of two, which the constants divide out again.
    const auto foldedSlots = static_cast<double>(context_->parameter.num_slots >> log_slots_);
    const double inverseFactor =
        equalShare(coeff_to_slot_constant / foldedSlots, BootParameter::coeff_to_slot_depth);
    const double forwardFactor = equalShare(slot_to_coeff_constant, BootParameter::slot_to_coeff_depth);

    auto& inverseStages = inv_v0_encodings_.at(Device{});
    auto& forwardStages = v0_encodings_.at(Device{});
    std::vector<SparseComplexMatrix> factors;
    buildV0(factors);
    for (auto& factor : factors) {
        factor.conjugateTranspose();
        factor *= 0.5;
    }
    for (u64 s = 0, offset = 0; s < plan.numStages; offset += plan.logRadix[s], ++s) {
        SparseComplexMatrix merged = std::move(factors[offset]);
        for (u64 k = 1; k < plan.logRadix[s]; ++k) {
            const SparseComplexMatrix factor = std::move(factors[offset + k]); // its memory goes with it
            merged = factor * merged;
        }
        inverseStages.push_back(encodeStage(merged, s, inverseFactor, top - s));
        // Each merged factor was multiplied by 0.5. The radix undoes all of them together.
        merged.conjugateTranspose();
        merged *= static_cast<double>(plan.radix[s]);
        forwardStages.push_back(encodeStage(merged, s, forwardFactor, s + 1));
    }
}

} // namespace Torvo
