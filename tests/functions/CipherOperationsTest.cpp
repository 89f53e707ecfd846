#include "functions/CipherOperations.hpp"

#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <vector>

namespace Torvo {
namespace {

using test::sameWords;
using test::Scheme;
using test::Seeded;

class CipherOperationsTest : public testing::TestWithParam<KernelForm> {};

TEST_P(CipherOperationsTest, ManyMultiplesInOnePassAreTheWordsOfTheirSum) {
    SKIP_UNLESS_PROCESSOR_RUNS(GetParam());
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const test::ForcedFeature forced(GetParam());
    const CipherOperations operations(scheme.evaluator);
    Seeded random(3);
    SCOPED_TRACE(random.describe());
    // 16 products are added up before they are reduced.
    for (const u64 count : {1, 2, 3, 16, 17, 33})
        for (const bool isComplex : {false, true}) {
            SCOPED_TRACE(testing::Message() << count << (isComplex ? " complex" : " real"));
            std::vector<Ciphertext> cts;
            std::vector<std::complex<double>> factors;
            for (u64 k = 0; k < count; ++k) {
                cts.push_back(scheme.encrypt(random.message(5), 3 + k % 9));
                factors.emplace_back(random.real(-2, 2), isComplex && k % 3 != 1 ? random.real(-2, 2) : 0);
            }
            factors.back() = 0;
            std::vector<const Ciphertext*> terms;
            for (const Ciphertext& ct : cts) terms.push_back(&ct);
            for (const u64 level : {1, 3}) {
                Ciphertext expected(scheme.context), got = cts[0];
                operations.Operations<Ciphertext>::sumMultiplesAtLevel(terms, factors, level, expected);
                operations.sumMultiplesAtLevel(terms, factors, level, got);
                EXPECT_TRUE(sameWords(got, expected));
                EXPECT_EQ(got.getLevel(), level);
                EXPECT_EQ(got.getRescaleCounter(), 1);
            }
            Ciphertext used = cts[0];
            operations.sumMultiplesAtLevel({&used}, {0.5}, 2, used);
            operations.multAtLevel(cts[0], 0.5, 2, cts[0]);
            EXPECT_TRUE(sameWords(used, cts[0]));
        }
}

INSTANTIATE_TEST_SUITE_P(EveryForm, CipherOperationsTest, testing::ValuesIn(test::everyForm), test::formName);

} // namespace
} // namespace Torvo
