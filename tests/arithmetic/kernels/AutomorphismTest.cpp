#include "arithmetic/kernels/Automorphism.hpp"

#include "arithmetic/kernels/NTT.hpp"
#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"
#include "support/NaiveRing.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace Torvo {
namespace {

using namespace test;

constexpr u64 degree = 64, prime = 257; // 1 modulo 128

class Automorphisms : public testing::TestWithParam<KernelForm> {
protected:
    void SetUp() override {
        SKIP_UNLESS_PROCESSOR_RUNS(GetParam());
        forced_.emplace(GetParam());
    }

private:
    std::optional<ForcedFeature> forced_;
};

INSTANTIATE_TEST_SUITE_P(EveryForm, Automorphisms, testing::ValuesIn(everyForm), formName);

TEST_P(Automorphisms, MoveTheValuesOfAPolynomialToThoseOfItsImage) {
    Seeded random(11);
    SCOPED_TRACE(random.describe());
    const NTT ntt(degree, prime);
    for (long k = -127; k < 128; k += 2) {
        const Words f = random.row(degree, prime);
        Words values = f, image(degree), expected = automorphism(f, k, prime);
        ntt.computeForward<1>(values.data());
        ntt.computeForward<1>(expected.data());
        Automorphism(degree, k).apply(values.data(), image.data());
        EXPECT_EQ(image, expected) << k;
    }
}

TEST_P(Automorphisms, GiveARunOfCacheLinesOfTheImage) {
    Seeded random(12);
    SCOPED_TRACE(random.describe());
    const Words values = random.row(degree, prime);
    for (const long k : {-5L, 1L, 25L}) {
        const Automorphism automorphism(degree, k);
        Words image(degree);
        automorphism.apply(values.data(), image.data());
        for (const auto& [begin, count] : {std::pair{0UL, 8UL}, {8UL, 24UL}, {56UL, 8UL}, {16UL, 0UL}}) {
            Words run(count + 1, 7);
            automorphism.apply(values.data(), begin, count, run.data());
            EXPECT_TRUE(std::equal(run.begin(), run.end() - 1, image.begin() + static_cast<long>(begin)))
                << k;
            EXPECT_EQ(run.back(), 7U) << k;
        }
    }
}

TEST_P(Automorphisms, FillEveryCacheLineFromOne) {
    Words positions(degree), image(degree);
    for (u64 i = 0; i < degree; ++i) positions[i] = i;
    for (long k = -127; k < 128; k += 2) {
        Automorphism(degree, k).apply(positions.data(), image.data());
        for (u64 i = 0; i < degree; ++i) EXPECT_EQ(image[i] / 8, image[i / 8 * 8] / 8) << k;
    }
}

} // namespace
} // namespace Torvo
