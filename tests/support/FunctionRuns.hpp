#pragma once

#include "support/CiphertextWords.hpp"
#include "support/FailingAllocations.hpp"
#include "support/Seeded.hpp"
#include "support/ToyRotations.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/BootstrappingEvaluator.hpp>
#include <Torvo/Plan.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <string>
#include <thread>
#include <vector>

/// What tests of functions of encrypted numbers share.
namespace Torvo::test {

/// Real numbers, uniform in [lower, upper].
inline Message realMessage(Seeded& random, u64 logSlots, double lower, double upper) {
    Message m(logSlots);
    for (auto& slot : m) slot = random.real(lower, upper);
    return m;
}

/// What accuracies are given in.
inline double powerOfHalf(u64 exponent) {
    return std::ldexp(1.0, -static_cast<int>(exponent));
}

/// Levels of the toy scheme: of a ciphertext to be bootstrapped, and of the result.
inline constexpr u64 leastToBootstrap = 3, afterBootstrap = 12;

/// Of the toy scheme, for all of its slots.
inline const BootstrappingEvaluator& toyBootstrapping() {
    static const BootstrappingEvaluator made(toyWithRotations().evaluator,
                                             Bootstrapper(toyWithRotations().evaluator));
    return made;
}

inline testing::AssertionResult sameWords(const std::vector<Ciphertext>& a,
                                          const std::vector<Ciphertext>& b) {
    if (a.size() != b.size())
        return testing::AssertionFailure() << a.size() << " and " << b.size() << " ciphertexts";
    for (u64 k = 0; k < a.size(); ++k)
        if (const auto same = sameWords(a[k], b[k]); !same)
            return testing::AssertionFailure() << "ciphertext " << k << ": " << same.message();
    return testing::AssertionSuccess();
}

/// What docs/functions.md says of a function; with --gtest_output=json:FILE it can be read there.
inline void recordSpending(u64 levels, const Plan& plan, double predicted, double measured) {
    testing::Test::RecordProperty("levels", std::to_string(levels));
    testing::Test::RecordProperty("products", std::to_string(plan.getReport().relinearizations));
    testing::Test::RecordProperty("log2_error_predicted", std::to_string(std::log2(predicted)));
    testing::Test::RecordProperty("log2_error_measured", std::to_string(std::log2(measured)));
}

/// New and used outputs of the toy scheme.
inline std::vector<Ciphertext> anyOutputs() {
    std::vector<Ciphertext> outs = usedOutputs(toy().context);
    outs.emplace_back(toy().context);
    return outs;
}

/// Expects the same words of compute(out) in each output, and on two threads at once. Returns them.
template <class Out, class Compute>
Out expectSameWordsInEach(std::vector<Out> outs, Compute compute) {
    Out first = outs.front(), fromThread = outs.front(), beside = outs.back();
    compute(first);
    std::thread thread([&] { compute(fromThread); });
    compute(beside);
    thread.join();
    EXPECT_TRUE(sameWords(fromThread, first));
    EXPECT_TRUE(sameWords(beside, first));
    for (Out& out : outs) {
        compute(out);
        EXPECT_TRUE(sameWords(out, first));
    }
    return first;
}

/// Lets every `step`-th allocation of compute(out) fail in a call of its own: the output is `before` then, and something
/// else where none failed.
template <class Out, class Compute>
void expectUnchangedByFailedAllocations(
    const Out& before, u64 step, Compute compute,
    FailingAllocation::Thread thread = FailingAllocation::Thread::Calling) {
    Out out = before;
    u64 failures = 0;
    for (u64 count = 0;; count += step) {
        const FailingAllocation failing(count, thread);
        try {
            compute(out);
        } catch (const std::bad_alloc&) {
            ++failures;
            ASSERT_TRUE(sameWords(out, before)) << count;
        }
        if (!failing.hasFailed()) break;
    }
    EXPECT_GT(failures, 5);
    EXPECT_FALSE(sameWords(out, before));
}

} // namespace Torvo::test
