#include "support/ForkedChild.hpp"
#include "support/NewThread.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"

#include <gtest/gtest.h>

#include <omp.h>

#include <bit>
#include <cmath>

/// Whole flows in children of a process that has computed with a team.
namespace Torvo {
namespace {

using test::Scheme;

/// Encrypts, multiplies and decrypts; the largest error of a slot.
double multiplicationError(const Scheme& scheme) {
    test::Seeded random(77);
    const u64 level = scheme.encryptionLevel();
    const Message a = random.message(5), b = random.message(5);
    Message expected(5);
    scheme.evaluator.mult(a, b, expected);
    Ciphertext product(scheme.context);
    scheme.evaluator.mult(scheme.encrypt(a, level), scheme.encrypt(b, level), product);
    return test::maxError(scheme.decrypt(product), expected);
}

// Each operand has the error of its encryption, and is of size sqrt(2) at most; the product has a key switch,
// divided by the scale with everything else, and a rescale.
double bound(const Scheme& scheme) {
    const u64 level = scheme.encryptionLevel();
    const double fresh = scheme.errors.atLevel(scheme.errors.encryption(), level);
    const double switched = scheme.errors.atLevel(scheme.errors.keySwitch(), level);
    const double rescaled = scheme.errors.atLevel(scheme.errors.rescale(), level - 1);
    return 2 * std::sqrt(2.0) * fresh + fresh * fresh + switched + rescaled;
}

void expectChildrenCompute(int threads) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    test::onNewThread([&] {
        omp_set_num_threads(threads);
        for (int round = 0; round < 3; ++round) {
            EXPECT_LT(multiplicationError(scheme), bound(scheme));
            for (int child = 0; child < 2; ++child) {
                const auto error = test::inChild(
                    [&] { return std::vector{std::bit_cast<u64>(multiplicationError(scheme))}; });
                ASSERT_EQ(error.size(), 1U);
                EXPECT_LT(std::bit_cast<double>(error[0]), bound(scheme));
            }
        }
    });
}

TEST(ForkedChildren, EncryptMultiplyAndDecryptAfterATeamOfTwo) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    expectChildrenCompute(2);
}

TEST(ForkedChildren, EncryptMultiplyAndDecryptAfterATeamOfFour) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    expectChildrenCompute(4);
}

TEST(ForkedChildren, OfChildrenComputeToo) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    EXPECT_LT(multiplicationError(scheme), bound(scheme));
    const auto error = test::inChild([&] {
        multiplicationError(scheme);
        return test::inChild([&] { return std::vector{std::bit_cast<u64>(multiplicationError(scheme))}; });
    });
    ASSERT_EQ(error.size(), 1U);
    EXPECT_LT(std::bit_cast<double>(error[0]), bound(scheme));
}

} // namespace
} // namespace Torvo
