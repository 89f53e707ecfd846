#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "support/FailingAllocations.hpp"
#include "support/OldMemory.hpp"
#include "support/WatchedMemory.hpp"
#include "support/WideArithmetic.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <initializer_list>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Whether an operation that fails leaves secrets in freed memory.
namespace Torvo::test {

/// All memory allocated during the test is filled, so that the test does not find what it has freed itself.
class SecretsLeftBehind : public testing::Test {
    PoisonedMemory poisoned_{1};
};

using Secrets = std::vector<FreedMemory::Secret>;

/// A polynomial's live rows, as plain words.
using Rows = std::vector<std::vector<u64>>;

inline Rows rowsOf(const Polynomial& polynomial) {
    Rows rows;
    for (u64 i = 0; i <= polynomial.getLevel(); ++i)
        rows.emplace_back(polynomial.getRow(i), polynomial.getRow(i) + polynomial.getDegree());
    return rows;
}

/// op(x, y, p) of every word of rows in NTT form, up to the shorter operand.
template <class Operation>
Rows wordByWord(const Rows& a, const Rows& b, const std::vector<u64>& primes, Operation&& op) {
    Rows out(std::min(a.size(), b.size()));
    for (u64 i = 0; i < out.size(); ++i)
        for (u64 k = 0; k < a[i].size(); ++k) out[i].push_back(op(a[i][k], b[i][k], primes[i]));
    return out;
}

inline Rows productOf(const Rows& a, const Rows& b, const std::vector<u64>& primes) {
    return wordByWord(a, b, primes,
                      [](u64 x, u64 y, u64 p) { return static_cast<u64>(static_cast<u128>(x) * y % p); });
}

inline Rows sumOf(const Rows& a, const Rows& b, const std::vector<u64>& primes) {
    return wordByWord(a, b, primes, [](u64 x, u64 y, u64 p) { return (x + y) % p; });
}

/// Some words from the middle of each row, put in their place: the unused bytes of an object that is copied
/// later would show what a variable here had left on the stack.
inline Secrets secretsOf(std::initializer_list<Rows> polynomials) {
    Secrets secrets;
    for (const Rows& rows : polynomials)
        for (const auto& row : rows) {
            FreedMemory::Secret& secret = secrets.emplace_back();
            std::copy_n(row.begin() + static_cast<std::ptrdiff_t>(row.size() / 3), secret.size(),
                        secret.begin());
        }
    return secrets;
}

/// The result of `operation` with one failing allocation, that after `before` others: whether the operation
/// succeeded, and whether it reached that allocation.
struct Outcome {
    template <class Operation>
    Outcome(u64 before, Operation&& operation) {
        const FailingAllocation failing(before);
        try {
            operation();
        } catch (const std::bad_alloc&) {
            isDone = false;
        }
        goesOn = failing.hasFailed();
    }

    bool isDone = true;
    bool goesOn = true;
};

/// Lets the first, second, ... allocation of `operation` fail until it needs no more. After each run, which
/// `run` does, `check` is called with whether the operation went well.
template <class Run, class Check>
void forEachFailure(Run&& run, Check&& check) {
    bool goesOn = true;
    for (u64 before = 0; goesOn; ++before) {
        SCOPED_TRACE("allocation " + std::to_string(before));
        ASSERT_LT(before, 10000U);
        const Outcome outcome = run(before);
        EXPECT_NE(outcome.isDone, outcome.goesOn);
        check(outcome.isDone);
        goesOn = outcome.goesOn;
    }
}

/// Each run from one seed: none of `secrets` is in what was freed, nor is it when all goes well.
template <class Operation, class Check>
void expectNothingLeftBehind(const Secrets& secrets, Operation&& operation, Check&& check) {
    ASSERT_FALSE(secrets.empty());
    forEachFailure(
        [&](u64 before) {
            const OneSeededThread seeded;
            const FreedMemory freed(secrets);
            const Outcome outcome(before, operation);
            EXPECT_EQ(freed.countFound(), 0U);
            return outcome;
        },
        check);
}

/// On a whole team, whose threads draw what they draw: that nothing but an exception comes of a failure.
template <class Operation, class Check>
void expectSafeOnAllThreads(Operation&& operation, Check&& check) {
    forEachFailure([&](u64 before) { return Outcome(before, operation); }, check);
}

} // namespace Torvo::test
