#include <Torvo/LinearFunctions.hpp>

#include "functions/Operations.hpp"
#include "support/Contexts.hpp"
#include "support/LinearMaps.hpp"
#include "support/ToyRotations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace Torvo {
namespace {

using namespace test;

constexpr auto standard = BootstrappingEvaluator::Precision::Standard;
constexpr u64 least = 3; ///< level of a ciphertext to be bootstrapped, for numbers of the unit square

/// A window of 3 by 3 at every second pixel of an image of 8 by 8 with a border above and left, for each of four maps.
Matrix convolution(Seeded& random) {
    Matrix matrix(64, std::vector<Complex>(64));
    std::vector<double> weights(4 * 9);
    for (double& weight : weights) weight = random.real(-1, 1);
    for (u64 o = 0; o < 64; ++o)
        for (u64 k = 0; k < 9; ++k) {
            const u64 y = 2 * (o % 16 / 4) + k / 3, x = 2 * (o % 4) + k % 3;
            if (y > 0 && x > 0) matrix[o][(y - 1) * 8 + x - 1] = weights[o / 16 * 9 + k];
        }
    return matrix;
}

Matrix dense(Seeded& random, u64 outputs, u64 inputs) {
    Matrix matrix = randomMatrix(random, outputs, inputs);
    for (auto& row : matrix)
        for (Complex& entry : row) entry = entry.real();
    return matrix;
}

/// A convolution, a dense hidden layer and a dense output of ten logits, with squares between them, for images that lie
/// beside each other. Weights are such that each layer's numbers for `images` come close to `bound`.
class DigitsNetwork {
public:
    DigitsNetwork(Seeded& random, u64 width, u64 logSlots, double bound) : images_(logSlots), bound_(bound) {
        for (auto& slot : images_) slot = random.real(0, 1);
        std::vector<Matrix> matrices{width == 64 ? convolution(random) : dense(random, width, width),
                                     dense(random, width, width), dense(random, 10, width)};
        results_ = images_;
        for (u64 l = 0; l < matrices.size(); ++l) {
            if (l > 0)
                for (auto& slot : results_) slot *= slot;
            const double factor = 0.9 * bound / maxAbs(productOf(matrices[l], width, results_));
            for (auto& row : matrices[l])
                for (Complex& entry : row) entry *= factor;
            layers_.emplace_back(LinearTransform::fromMatrix(matrices[l]));
            gains_.push_back(0);
            for (const auto& row : matrices[l]) {
                double sum = 0;
                for (const Complex& entry : row) sum += std::abs(entry);
                gains_[l] = std::max(gains_[l], sum);
            }
            results_ = productOf(matrices[l], width, results_);
            Message biases(logSlots);
            for (auto& bias : biases) bias = random.real(-0.1, 0.1) * bound;
            biases_.push_back(biases);
            for (u64 i = 0; i < results_.getSize(); ++i) results_[i] += biases[i];
        }
    }

    const Message& images() const { return images_; }
    const Message& logits() const { return results_; }
    /// What the numbers of stage k are at most, before it and, for k + 1, behind it: a layer and a square take turns.
    double boundBefore(u64 k) const { return k == 0 ? 1 : k % 2 == 1 ? bound_ : bound_ * bound_; }
    static constexpr u64 stages = 5;

    template <class On, class Value>
    void operator()(const On& on, Value& x) const {
        const FunctionEvaluator<Value> source = on;
        const Operations<Value>& operations = source.operations();
        for (u64 k = 0; k < stages; ++k) {
            const double before = boundBefore(k), behind = boundBefore(k + 1);
            if (k % 2 == 0) {
                applyTransform(on, x, layers_[k / 2], x, {before, true, behind});
                operations.addSlots(x, biases_[k / 2], x);
            } else {
                operations.prepare("square", 1, {before, true}, {&x});
                operations.mult(x, x, x);
            }
        }
    }

    /// How far the logits may lie from the exact ones if a stage errs by `error` and its input is bootstrapped with an
    /// error of `bootstrap`.
    double errorBehind(double error, double bootstrap) const {
        double sum = 0;
        for (u64 k = 0; k < stages; ++k)
            sum = (sum + bootstrap) * (k % 2 == 0 ? gains_[k / 2] : 2 * bound_ + sum + bootstrap) + error;
        return sum;
    }

private:
    Message images_, results_;
    double bound_;
    std::vector<CachedTransform> layers_;
    std::vector<Message> biases_;
    std::vector<double> gains_; ///< largest sums of the magnitudes of a row
};

/// The levels that are kept for a bootstrap of numbers up to `bound`.
u64 reserve(double bound) {
    return least + (bound > 1 ? 1 : 0);
}

constexpr u64 impossible = 100;

/// The fewest bootstraps from a stage on, of all placements in front of stages that keep what a bootstrap needs.
u64 fewestBootstraps(const DigitsNetwork& network, u64 stage, u64 level, u64 after) {
    if (stage == DigitsNetwork::stages) return 0;
    const u64 kept = reserve(network.boundBefore(stage + 1));
    u64 fewest = impossible;
    if (level >= 1 + kept) fewest = fewestBootstraps(network, stage + 1, level - 1, after);
    if (level >= reserve(network.boundBefore(stage)) && after >= 1 + kept)
        fewest = std::min(fewest, 1 + fewestBootstraps(network, stage + 1, after - 1, after));
    return fewest;
}

struct Setting {
    ParameterPreset preset;
    u64 after; ///< level of what was bootstrapped
    double bound;
};

TEST(DigitsNetworkRealPreset, NoPlacementNeedsFewerBootstrapsFromAnyLevel) {
    Seeded random(611);
    SCOPED_TRACE(random.describe());
    // Five levels, and three or four that bootstraps keep: `FTa` has just eight, `FTb` half of them.
    for (const Setting& setting :
         {Setting{ParameterPreset::FGb, 12, 0.9}, Setting{ParameterPreset::FGb, 12, 3},
          Setting{ParameterPreset::FTa, 8, 0.9}, Setting{ParameterPreset::FTa, 8, 3},
          Setting{ParameterPreset::FTb, 4, 0.9}}) {
        const DigitsNetwork network(random, 64, 7, setting.bound);
        u64 most = 0;
        for (u64 level = least; level <= setting.after; ++level) {
            SCOPED_TRACE(testing::Message() << getLogFullSlots(contextOf(setting.preset)) << " bound "
                                            << setting.bound << " from level " << level);
            const Plan plan(contextOf(setting.preset), standard);
            PlannedCiphertext x = plan.encrypt(network.images(), level);
            network(plan, x);
            const u64 fewest = fewestBootstraps(network, 0, level, setting.after);
            ASSERT_LT(fewest, impossible);
            EXPECT_EQ(plan.getReport().bootstraps, fewest);
            EXPECT_GE(plan.getReport().lowestLevel, least);
            EXPECT_LT(maxError(x.getMessage(), network.logits()), 0x1p-30);
            most = std::max(most, fewest);
        }
        EXPECT_EQ(most, setting.after == 4 ? 5 : setting.after == 8 && setting.bound > 1 ? 2 : 1);
    }
}

TEST(DigitsNetwork, CiphertextsAreBootstrappedAsPlannedFromAnyLevel) {
    Seeded random(612);
    SCOPED_TRACE(random.describe());
    const HomEvaluator& withKeys = toyWithAllRotations().evaluator;
    const BootstrappingEvaluator evaluator(withKeys, Bootstrapper(withKeys));
    for (const double bound : {0.9, 2.0}) {
        const DigitsNetwork network(random, 16, 5, bound);
        for (u64 level = least; level <= 12; ++level) {
            SCOPED_TRACE(testing::Message() << bound << " from level " << level);
            const Plan plan(toy().context, standard);
            PlannedCiphertext planned = plan.encrypt(network.images(), level);
            network(plan, planned);
            EXPECT_EQ(plan.getReport().bootstraps, fewestBootstraps(network, 0, level, 12));
            Ciphertext x = toy().encrypt(network.images(), level);
            network(evaluator, x);
            EXPECT_EQ(x.getLevel(), planned.getLevel());
            const double divisor = std::ceil(bound * bound);
            EXPECT_LT(maxError(toy().decrypt(x), network.logits()),
                      network.errorBehind(transformBound(toy().context, 3, 32) * bound * bound,
                                          divisor * boot().realBound()));
        }
    }
}

} // namespace
} // namespace Torvo
