#pragma once

#include "functions/Operations.hpp"

#include <Torvo/BootstrappingEvaluator.hpp>
#include <Torvo/HomEvaluator.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Torvo {

/// On ciphertexts, with the levels that they have.
class CipherOperations : public Operations<Ciphertext> {
public:
    explicit CipherOperations(const HomEvaluator& evaluator) : evaluator_(evaluator.getImpl()) {}

    Ciphertext unset() const override;
    u64 level(const Ciphertext& x) const override { return x.getLevel(); }
    u64 logSlots(const Ciphertext& x) const override { return x.getLogSlots(); }
    double scaleRatio(u64 from, u64 to) const override;
    double rescaleGain(u64 level) const override;
    SlotNoise noise(u64 from, u64 to, u64 log_slots) const override;
    u64 mostLogSlots() const override;
    void readWithLogSlots(const Ciphertext& in, u64 log_slots, Ciphertext& out) const override;

    void requireOperand(const Ciphertext& x) const override;
    void requireRotations(const std::vector<u64>& indices) const override;
    void requireTransforms(const TransformTable& transforms, u64 log_slots) const override;
    void requireMultiplicationKey() const override;
    void prepare(const std::string& what, u64 levels, Range range,
                 std::vector<Ciphertext*> values) const override;

    void add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const override;
    void sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const override;
    void add(const Ciphertext& in, std::complex<double> c, Ciphertext& out) const override;
    void addSlots(const Ciphertext& in, const Message& numbers, Ciphertext& out) const override;
    void negate(const Ciphertext& in, Ciphertext& out) const override;

    void multInteger(const Ciphertext& in, long n, Ciphertext& out) const override;
    void multImagUnit(const Ciphertext& in, Ciphertext& out) const override;
    void multAtLevel(const Ciphertext& in, std::complex<double> c, u64 level, Ciphertext& out) const override;
    void multSlotsAtLevel(const Ciphertext& in, const Message& factors, u64 level,
                          Ciphertext& out) const override;
    void sumMultiplesAtLevel(const std::vector<const Ciphertext*>& terms,
                             const std::vector<std::complex<double>>& factors, u64 level,
                             Ciphertext& out) const override;
    void tensor(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const override;
    void relinearize(Ciphertext& in_out) const override;
    void rescale(Ciphertext& in_out) const override;
    void levelDown(const Ciphertext& in, u64 level, Ciphertext& out) const override;

    void leftRotate(const Ciphertext& in, u64 index, Ciphertext& out) const override;
    void leftRotate(const Ciphertext& in, const std::vector<u64>& indices,
                    std::vector<Ciphertext>& outs) const override;
    void conjugate(const Ciphertext& in, Ciphertext& out) const override;

    std::vector<Ciphertext> transform(const std::vector<const Ciphertext*>& ins,
                                      const TransformTable& transforms, u64 level,
                                      double factor) const override;

protected:
    const HomEvaluatorImpl& evaluator() const { return *evaluator_; }

private:
    std::shared_ptr<HomEvaluatorImpl> evaluator_;
};

/// The same on ciphertexts that are bootstrapped where their levels would run out.
class BootstrappingOperations : public CipherOperations {
public:
    explicit BootstrappingOperations(const BootstrappingEvaluator& evaluator)
        : CipherOperations(evaluator.getEvaluator()), bootstrapping_(evaluator) {}

    SlotNoise noise(u64 from, u64 to, u64 log_slots) const override;
    void prepare(const std::string& what, u64 levels, Range range,
                 std::vector<Ciphertext*> values) const override;
    bool givesLevelsBack() const override { return true; }

private:
    BootstrappingEvaluator bootstrapping_;
};

/// `Operations::noise` in a context.
SlotNoise noiseOf(const Context& context, u64 from, u64 to, u64 log_slots);
SlotNoise noiseWithBootstraps(const Context& context, u64 from, u64 to, u64 log_slots,
                              BootstrappingEvaluator::Precision precision);
/// What a rescale from `level` makes larger than the scales say, as `Operations::rescaleGain`.
double rescaleGainOf(const Context& context, u64 level);
/// `Operations::scaleRatio` of a context's scales.
double scaleRatioOf(const Context& context, u64 from, u64 to);

} // namespace Torvo
