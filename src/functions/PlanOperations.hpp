#pragma once

#include "functions/Operations.hpp"
#include "functions/PlanImpl.hpp"

#include <Torvo/Plan.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Torvo {

/// On what a plan keeps of ciphertexts: the numbers with and without their errors, and the counts.
class PlanOperations : public Operations<PlannedCiphertext> {
public:
    explicit PlanOperations(const Plan& plan) : plan_(plan.getImpl()) {}

    PlannedCiphertext unset() const override { return {}; }
    u64 level(const PlannedCiphertext& x) const override { return x.getLevel(); }
    u64 logSlots(const PlannedCiphertext& x) const override { return x.getLogSlots(); }
    double scaleRatio(u64 from, u64 to) const override;
    double rescaleGain(u64 level) const override;
    SlotNoise noise(u64 from, u64 to, u64 log_slots) const override;
    u64 mostLogSlots() const override;
    void readWithLogSlots(const PlannedCiphertext& in, u64 log_slots, PlannedCiphertext& out) const override;

    void requireOperand(const PlannedCiphertext& x) const override;
    void requireRotations(const std::vector<u64>& /*indices*/) const override {}
    void requireTransforms(const TransformTable& transforms, u64 log_slots) const override;
    void requireMultiplicationKey() const override {}
    void prepare(const std::string& what, u64 levels, Range range,
                 std::vector<PlannedCiphertext*> values) const override;
    bool givesLevelsBack() const override { return plan_->precision().has_value(); }

    void add(const PlannedCiphertext& a, const PlannedCiphertext& b, PlannedCiphertext& out) const override;
    void sub(const PlannedCiphertext& a, const PlannedCiphertext& b, PlannedCiphertext& out) const override;
    void add(const PlannedCiphertext& in, std::complex<double> c, PlannedCiphertext& out) const override;
    void addSlots(const PlannedCiphertext& in, const Message& numbers, PlannedCiphertext& out) const override;
    void negate(const PlannedCiphertext& in, PlannedCiphertext& out) const override;

    void multInteger(const PlannedCiphertext& in, long n, PlannedCiphertext& out) const override;
    void multImagUnit(const PlannedCiphertext& in, PlannedCiphertext& out) const override;
    void multAtLevel(const PlannedCiphertext& in, std::complex<double> c, u64 level,
                     PlannedCiphertext& out) const override;
    void multSlotsAtLevel(const PlannedCiphertext& in, const Message& factors, u64 level,
                          PlannedCiphertext& out) const override;
    void tensor(const PlannedCiphertext& a, const PlannedCiphertext& b,
                PlannedCiphertext& out) const override;
    void relinearize(PlannedCiphertext& in_out) const override;
    void rescale(PlannedCiphertext& in_out) const override;
    void levelDown(const PlannedCiphertext& in, u64 level, PlannedCiphertext& out) const override;

    void leftRotate(const PlannedCiphertext& in, u64 index, PlannedCiphertext& out) const override;
    void leftRotate(const PlannedCiphertext& in, const std::vector<u64>& indices,
                    std::vector<PlannedCiphertext>& outs) const override;
    void conjugate(const PlannedCiphertext& in, PlannedCiphertext& out) const override;

    std::vector<PlannedCiphertext> transform(const std::vector<const PlannedCiphertext*>& ins,
                                             const TransformTable& transforms, u64 level,
                                             double factor) const override;

private:
    using Step = PlanImpl::Step;

    /// A number as a ciphertext at `level` that owes `owed` rescales takes it: cut off at its scale.
    std::complex<double> cut(std::complex<double> c, u64 level, int owed) const;
    /// What a key switch adds to a value that owes `owed` rescales.
    void disturbByKeySwitch(PlannedCiphertext& x) const;
    template <class Sign>
    void combine(const PlannedCiphertext& a, const PlannedCiphertext& b, PlannedCiphertext& out,
                 Sign sign) const;
    void bootstrap(PlannedCiphertext& x, bool isComplex) const;

    std::shared_ptr<PlanImpl> plan_;
};

} // namespace Torvo
