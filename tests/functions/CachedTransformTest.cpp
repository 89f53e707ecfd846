#include <Torvo/CachedTransform.hpp>

#include "support/CiphertextWords.hpp"
#include "support/FailingAllocations.hpp"
#include "support/ForkedChild.hpp"
#include "support/LinearMaps.hpp"
#include "support/Sanitizer.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/LinearFunctions.hpp>

#include <gtest/gtest.h>

#include <new>
#include <thread>

namespace Torvo {
namespace {

using namespace test;

class CachedTransforms : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const Context& context = scheme.context;
    const HomEvaluator& evaluator = rotatingEvaluator(scheme);
    Seeded random{872};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};

    LinearTransform dense(u64 size) { return LinearTransform::fromMatrix(randomMatrix(random, size, size)); }
};

TEST_F(CachedTransforms, WhatWasEncodedIsKeptUntilItIsCleared) {
    CachedTransform transform = dense(8);
    const CachedTransform copy = transform;
    Ciphertext out(context);
    const auto apply = [&](u64 level) {
        applyTransform(evaluator, scheme.encrypt(random.message(3), level), transform, out);
    };
    apply(5);
    const u64 once = transform.getEncodedBytes();
    EXPECT_EQ(once, 8 * (5 + 1 + 5) * 64 * sizeof(u64));
    apply(5);
    EXPECT_EQ(transform.getEncodedBytes(), once);
    apply(3);
    EXPECT_EQ(copy.getEncodedBytes(), once + 8 * (3 + 1 + 5) * 64 * sizeof(u64));
    transform.clear();
    EXPECT_EQ(copy.getEncodedBytes(), 0);
    apply(3);
    EXPECT_GT(copy.getEncodedBytes(), 0);
    EXPECT_EQ(copy.getSize(), 8U);
}

TEST_F(CachedTransforms, ManyThreadsShareWhatIsKeptWhileItIsCleared) {
    CachedTransform transform = dense(16);
    const Ciphertext in = scheme.encrypt(random.message(5), 5);
    Ciphertext expected(context);
    applyTransform(evaluator, in, transform, expected);
    transform.clear();
    std::vector<Ciphertext> results(4, Ciphertext(context));
    std::vector<std::thread> threads;
    for (Ciphertext& result : results)
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) {
                applyTransform(evaluator, in, transform, result);
                if (&result == &results[0]) transform.clear();
            }
        });
    for (std::thread& thread : threads) thread.join();
    for (const Ciphertext& result : results) EXPECT_TRUE(sameWords(result, expected));
    transform.clear();
    applyTransform(evaluator, in, transform, expected);
    EXPECT_EQ(transform.getEncodedBytes(), 31 * (5 + 1 + 5) * 64 * sizeof(u64)); // one of each is kept
}

TEST_F(CachedTransforms, InAForkedChildHaveTheSameWords) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const CachedTransform transform = dense(16);
    const Ciphertext in = scheme.encrypt(random.message(5), 3);
    const auto words = [&] {
        Ciphertext out(context);
        applyTransform(evaluator, in, transform, out);
        const u64* row = out.getPoly(1).getRow(2);
        return std::vector<u64>(row, row + 64);
    };
    const std::vector<u64> expected = words();
    EXPECT_EQ(inChild(words), expected);
}

TEST_F(CachedTransforms, AFailedAllocationLeavesTheOutputAndNothingHalfKept) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    CachedTransform transform = dense(4);
    const Ciphertext in = scheme.encrypt(random.message(4), 4);
    const Ciphertext before = usedOnCoefficients(context);
    Ciphertext out = before, expected(context);
    applyTransform(evaluator, in, transform, expected);
    const u64 kept = transform.getEncodedBytes();
    u64 failures = 0;
    for (u64 allocations = 0;; allocations += 3) {
        ASSERT_LT(allocations, 20000U);
        transform.clear();
        bool hasFailed = false;
        {
            const FailingAllocation failing(allocations, FailingAllocation::Thread::Calling);
            try {
                applyTransform(evaluator, in, transform, out);
            } catch (const std::bad_alloc&) {
            }
            hasFailed = failing.hasFailed();
        }
        if (!hasFailed) break;
        ++failures;
        ASSERT_TRUE(sameWords(out, before)) << allocations;
        ASSERT_TRUE(transform.getEncodedBytes() == 0 || transform.getEncodedBytes() == kept) << allocations;
    }
    EXPECT_GT(failures, 10);
    EXPECT_TRUE(sameWords(out, expected));
}

} // namespace
} // namespace Torvo
