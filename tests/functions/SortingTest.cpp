#include <Torvo/Sorting.hpp>

#include "functions/PairMatrix.hpp"
#include "functions/SignComposite.hpp"
#include "functions/SignTables.hpp"
#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::maxError;
using test::powerOfHalf;
using test::sameWords;
using test::Scheme;
using test::Seeded;
using test::toy;
using test::toyWithRotations;

using Reals = std::vector<double>;
using Precision = BootstrappingEvaluator::Precision;

constexpr u64 least = test::leastToBootstrap, after = test::afterBootstrap;

/// What numbers have to differ by to be told apart.
double marginOf(const Accuracy& accuracy, double bound) {
    return 2 * bound * powerOfHalf(accuracy.margin) * (1 + powerOfHalf(accuracy.margin));
}

/// The slots in their order: of equal numbers the first one first.
std::vector<u64> orderOf(const Message& m, Order order) {
    std::vector<u64> slots(m.getSize());
    std::iota(slots.begin(), slots.end(), 0);
    std::ranges::stable_sort(slots, [&](u64 i, u64 j) {
        return order == Order::Ascending ? m[i].real() < m[j].real() : m[i].real() > m[j].real();
    });
    return slots;
}

Message sorted(const Message& m, Order order) {
    Message out = m;
    const std::vector<u64> slots = orderOf(m, order);
    for (u64 k = 0; k < slots.size(); ++k) out[k] = m[slots[k]];
    return out;
}

Message ranksOf(const Message& m, Order order) {
    Message out = m;
    const std::vector<u64> slots = orderOf(m, order);
    for (u64 k = 0; k < slots.size(); ++k) out[slots[k]] = static_cast<double>(k);
    return out;
}

/// Multiples of a number a little above the margin, some of them equal; with the ends of the range.
Message separateNumbers(Seeded& random, u64 logNumbers, const Accuracy& accuracy, double bound) {
    Message m(logNumbers);
    const double distance = 1.001 * marginOf(accuracy, bound);
    const auto count = static_cast<u64>(2 * bound / distance);
    for (auto& slot : m) slot = -bound + distance * static_cast<double>(random.below(count + 1));
    m[0] = -bound;
    m[m.getSize() - 1] = m[random.below(m.getSize())];
    return m;
}

/// All functions on the numbers, against the exact results.
template <class Compute>
void expectAll(Compute compute, const Message& m, const Accuracy& accuracy, double bound, double noise) {
    const double error = powerOfHalf(accuracy.error) + noise;
    for (const Order order : {Order::Ascending, Order::Descending}) {
        EXPECT_LT(maxError(compute.rank(m, order), ranksOf(m, order)), error);
        EXPECT_LT(maxError(compute.sort(m, order), sorted(m, order)), error * bound);
    }
    for (const u64 count : {u64{1}, m.getSize() / 2 + 1, m.getSize()}) {
        Message expected = sorted(m, Order::Descending);
        for (u64 k = count; k < m.getSize(); ++k) expected[k] = 0;
        EXPECT_LT(maxError(compute.topK(m, count), expected), error * bound) << count;
    }
    Message largest(m.getLogSlots());
    largest[orderOf(m, Order::Descending)[0]] = 1;
    EXPECT_LT(maxError(compute.argmax(m), largest), error);
    EXPECT_LT(maxError(compute.max(m), Message(m.getLogSlots(), sorted(m, Order::Descending)[0])),
              error * bound);
}

struct InTheClear {
    Accuracy accuracy;
    double bound;

    Message rank(const Message& m, Order order) const {
        Message out;
        Torvo::rank(toy().evaluator, m, bound, out, accuracy, order);
        return out;
    }
    Message sort(const Message& m, Order order) const {
        Message out;
        Torvo::sort(toy().evaluator, m, bound, out, accuracy, order);
        return out;
    }
    Message topK(const Message& m, u64 count) const {
        Message out;
        Torvo::topK(toy().evaluator, m, count, bound, out, accuracy);
        return out;
    }
    Message argmax(const Message& m) const {
        Message out;
        Torvo::argmax(toy().evaluator, m, bound, out, accuracy);
        return out;
    }
    Message max(const Message& m) const {
        Message out;
        Torvo::max(toy().evaluator, m, bound, out, accuracy);
        return out;
    }
};

// ---- the matrix of pairs

TEST(PairMatrix, SpreadsAndSumsUpRowsAndColumns) {
    Seeded random(501);
    SCOPED_TRACE(random.describe());
    const FunctionEvaluator<Message> clear = toy().evaluator;
    for (u64 logNumbers = 1; logNumbers <= 4; ++logNumbers) {
        const PairMatrix<Message> matrix(clear.operations(), logNumbers);
        const u64 n = u64{1} << logNumbers;
        const Message x = random.message(logNumbers);
        const Message columns = matrix.columns(x), rows = matrix.rowsOf(columns),
                      pairs = random.message(2 * logNumbers);
        const Message before = matrix.rowsBefore(rows), sums = matrix.sumsInRowsBefore(pairs),
                      down = matrix.sumsOfColumns(pairs), all = matrix.sumOfNumbers(columns);
        EXPECT_EQ(maxError(matrix.numbers(columns), x), 0);
        std::complex<double> total = 0;
        for (u64 i = 0; i < n; ++i) total += x[i];
        for (u64 i = 0; i < n; ++i)
            for (u64 j = 0; j < n; ++j) {
                const u64 slot = i * n + j;
                std::complex<double> row = 0, column = 0;
                for (u64 k = 0; k < n; ++k) {
                    row += pairs[(i + 1) % n * n + k];
                    column += pairs[k * n + j];
                }
                EXPECT_EQ(columns[slot], x[j]);
                EXPECT_LT(std::abs(rows[slot] - x[i]), 1e-12);
                EXPECT_LT(std::abs(before[slot] - x[(i + 1) % n]), 1e-12);
                EXPECT_LT(std::abs(sums[slot] - row), 1e-12);
                EXPECT_LT(std::abs(down[slot] - column), 1e-12);
                EXPECT_LT(std::abs(all[slot] - total), 1e-12);
            }
    }
}

// ---- in the clear

TEST(Sorting, AllSizesAreExactWithinTheirErrorsInTheClear) {
    Seeded random(502);
    SCOPED_TRACE(random.describe());
    for (u64 logNumbers = 1; logNumbers <= 6; ++logNumbers)
        for (const Accuracy accuracy :
             {Accuracy{4, 4}, Accuracy{8, 8}, Accuracy{15, static_cast<unsigned>(16 - logNumbers)}})
            for (const double bound : {1.0, 40.0}) {
                if (logNumbers > 4 && (bound > 1 || accuracy.margin == 4)) continue;
                SCOPED_TRACE(testing::Message() << (1 << logNumbers) << " numbers, margin " << accuracy.margin
                                                << ", error " << accuracy.error << ", bound " << bound);
                const Message m = separateNumbers(random, logNumbers, accuracy, bound);
                expectAll(InTheClear{accuracy, bound}, m, accuracy, bound, 1e-9);
            }
}

TEST(Sorting, SortsTheMostNumbersInTheClear) {
    Seeded random(503);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{10, 9};
    const Message m = separateNumbers(random, 7, accuracy, 1);
    const InTheClear compute{accuracy, 1};
    EXPECT_LT(maxError(compute.sort(m, Order::Ascending), sorted(m, Order::Ascending)), powerOfHalf(9));
    EXPECT_LT(maxError(compute.argmax(m),
                       [&] {
                           Message one(7);
                           one[orderOf(m, Order::Descending)[0]] = 1;
                           return one;
                       }()),
              powerOfHalf(9));
}

TEST(Sorting, EqualNumbersKeepTheirOrder) {
    const InTheClear compute{{8, 8}, 1};
    for (u64 logNumbers = 1; logNumbers <= 5; ++logNumbers)
        for (const double value : {0.0, 1.0, -1.0, 0.3}) {
            const Message m(logNumbers, value);
            Message ranks(logNumbers);
            for (u64 i = 0; i < m.getSize(); ++i) ranks[i] = static_cast<double>(i);
            for (const Order order : {Order::Ascending, Order::Descending}) {
                EXPECT_LT(maxError(compute.rank(m, order), ranks), powerOfHalf(8));
                EXPECT_LT(maxError(compute.sort(m, order), m), powerOfHalf(8));
            }
            EXPECT_NEAR(compute.argmax(m)[0].real(), 1, powerOfHalf(8));
        }
}

// ---- numbers that are close

/// Eight numbers, of which those of `cluster` stand 0.2 and further, in slots that are drawn, from all others.
Message withCluster(Seeded& random, const Reals& cluster) {
    Reals numbers = cluster;
    for (const double far : {-0.9, -0.6, -0.3, 0.6, 0.75, 0.9})
        if (numbers.size() < 8) numbers.push_back(far);
    for (u64 i = 8; i > 1; --i) std::swap(numbers[i - 1], numbers[random.below(i)]);
    Message m(3);
    for (u64 i = 0; i < 8; ++i) m[i] = numbers[i];
    return m;
}

/// Expects all places but `count` from `first` on as in an exact sort, and the sum of all.
void expectOutsideCluster(const Message& got, const Message& exact, u64 first, u64 count, double error) {
    double sum = 0, exactSum = 0;
    for (u64 k = 0; k < got.getSize(); ++k) {
        sum += got[k].real();
        exactSum += exact[k].real();
        if (k < first || k >= first + count) {
            EXPECT_LT(std::abs(got[k] - exact[k]), error) << k;
        }
    }
    EXPECT_LT(std::abs(sum - exactSum), static_cast<double>(got.getSize()) * error);
}

TEST(Sorting, TwoCloseNumbersStayBetweenEachOther) {
    Seeded random(504);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{6, 8};
    const double margin = marginOf(accuracy, 1), error = powerOfHalf(8);
    for (int step = 0; step <= 60; ++step) {
        const double low = 0.1, high = low + margin * step / 60;
        SCOPED_TRACE(high - low);
        const Message m = withCluster(random, {low, high}), exact = sorted(m, Order::Ascending);
        const Message got = InTheClear{accuracy, 1}.sort(m, Order::Ascending);
        expectOutsideCluster(got, exact, 3, 2, error);
        for (const u64 k : {3, 4}) {
            EXPECT_GT(got[k].real(), low - 2 * error);
            EXPECT_LT(got[k].real(), high + 2 * error);
        }
        EXPECT_NEAR(got[3].real() + got[4].real(), low + high, 2 * error);
    }
}

// The weakest statement: the other places and the sum.
TEST(Sorting, ClustersTouchNoOtherPlaceAndKeepTheSum) {
    Seeded random(505);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{6, 8};
    const double margin = marginOf(accuracy, 1), error = powerOfHalf(8);
    double worst = 0;
    for (int round = 0; round < 200; ++round) {
        const u64 count = 3 + random.below(3);
        Reals cluster{0.1};
        while (cluster.size() < count)
            cluster.push_back(random.below(3) == 0 ? cluster[random.below(cluster.size())]
                                                   : cluster.back() + random.real(0, 0.9) * margin);
        const Message m = withCluster(random, cluster), exact = sorted(m, Order::Descending);
        const Message got = InTheClear{accuracy, 1}.sort(m, Order::Descending);
        // Three or fewer of the far numbers are larger.
        const u64 first =
            static_cast<u64>(std::ranges::count_if(exact, [](auto x) { return x.real() > 0.55; }));
        expectOutsideCluster(got, exact, first, count, error);
        for (u64 k = first; k < first + count; ++k) {
            EXPECT_GT(got[k].real(), -error);
            EXPECT_LT(got[k].real(), std::accumulate(cluster.begin(), cluster.end(), 0.0) + error);
            worst = std::max(worst, std::abs(got[k] - exact[k]));
        }
    }
    EXPECT_GT(worst, 2 * margin); // the header does not promise more without need
}

TEST(Sorting, RanksAddUpWhateverIsClose) {
    Seeded random(506);
    SCOPED_TRACE(random.describe());
    for (int round = 0; round < 50; ++round) {
        Message m(3);
        for (auto& slot : m) slot = random.real(-0.02, 0.02);
        const Message ranks = InTheClear{{5, 8}, 1}.rank(m, Order::Ascending);
        double sum = 0;
        for (const auto& rank : ranks) sum += rank.real();
        EXPECT_NEAR(sum, 28, 4 * powerOfHalf(10)); // each counts itself within half of the error of a sign
    }
}

// ---- encrypted

const BootstrappingEvaluator& bootstrapping() {
    static const BootstrappingEvaluator made = [] {
        Bootstrapper bootstrapper(toyWithRotations().evaluator);
        for (const u64 logSlots : {2, 4}) bootstrapper.makeBootConstants(logSlots);
        return BootstrappingEvaluator(toyWithRotations().evaluator, bootstrapper);
    }();
    return made;
}

/// On ciphertexts of the toy from a level, each beside a plan, which has to spend the same.
struct Encrypted {
    Accuracy accuracy;
    double bound;
    u64 level;

    template <class Call>
    Message run(const Message& m, Call call) const {
        Ciphertext x = toy().encrypt(m, level);
        call(bootstrapping(), x);
        const Plan plan(toy().context, Precision::Standard);
        PlannedCiphertext p = plan.encrypt(m, level);
        call(plan, p);
        EXPECT_EQ(p.getLevel(), x.getLevel());
        EXPECT_EQ(p.getLogSlots(), m.getLogSlots());
        EXPECT_EQ(x.getLogSlots(), m.getLogSlots());
        EXPECT_EQ(x.getRescaleCounter(), 0);
        const Message got = toy().decrypt(x);
        EXPECT_LT(maxError(got, p.getMessage()), 0x1p-8);
        return got;
    }
    Message rank(const Message& m, Order order) const {
        return run(m, [&](const auto& on, auto& x) { Torvo::rank(on, x, bound, x, accuracy, order); });
    }
    Message sort(const Message& m, Order order) const {
        return run(m, [&](const auto& on, auto& x) { Torvo::sort(on, x, bound, x, accuracy, order); });
    }
    Message topK(const Message& m, u64 count) const {
        return run(m, [&](const auto& on, auto& x) { Torvo::topK(on, x, count, bound, x, accuracy); });
    }
    Message argmax(const Message& m) const {
        return run(m, [&](const auto& on, auto& x) { Torvo::argmax(on, x, bound, x, accuracy); });
    }
    Message max(const Message& m) const {
        return run(m, [&](const auto& on, auto& x) { Torvo::max(on, x, bound, x, accuracy); });
    }
};

TEST(Sorting, CiphertextsOfAnyLevelAreSortedWithBootstraps) {
    Seeded random(507);
    SCOPED_TRACE(random.describe());
    for (u64 level = least + 1; level <= after; ++level) {
        const Accuracy accuracy{static_cast<unsigned>(4 + level % 5), static_cast<unsigned>(4 + level % 4)};
        SCOPED_TRACE(testing::Message()
                     << "level " << level << " margin " << accuracy.margin << " error " << accuracy.error);
        const Message m = separateNumbers(random, 2, accuracy, 1);
        // A bootstrap of numbers up to 3 in magnitude errs by three times its error.
        expectAll(Encrypted{accuracy, 1, level}, m, accuracy, 1,
                  powerOfHalf(accuracy.error) / 8 + 4 * boot().realBound());
    }
}

TEST(Sorting, LevelsAreThoseThatAreToldAndKeysThePowersOfTwo) {
    Seeded random(508);
    const auto levelsOfSign = [](u64 margin, u64 error) {
        u64 levels = 0;
        for (const u64 degree : signDegrees(std::max<u64>(margin, 4), std::max<u64>(error, 4)))
            levels += levelsOfDegree(degree);
        return levels;
    };
    const Plan plan(makeContext(ParameterPreset::ST19));
    for (const u64 m : {1, 2, 3, 6}) {
        const Accuracy accuracy{4, 4};
        const Message x = separateNumbers(random, m, accuracy, 0.5);
        PlannedCiphertext out;
        rank(plan, plan.encrypt(x), 0.5, out, accuracy);
        EXPECT_EQ(out.getLevel(), 19 - 2 - levelsOfSign(5, 4 + m - 1)) << m;
        if (m > 1) continue;
        const u64 ranks = 2 + levelsOfSign(5, 4 + m + 2);
        sort(plan, plan.encrypt(x), 0.5, out, accuracy);
        EXPECT_EQ(out.getLevel(), 19 - (ranks + 1 + levelsOfSign(m + 2, 4 + m) + 1));
        topK(plan, plan.encrypt(x), 1, 0.5, out, accuracy);
        EXPECT_EQ(out.getLevel(), 19 - (ranks + 1 + levelsOfSign(m + 2, 4 + m) + 1));
        argmax(plan, plan.encrypt(x), 0.5, out, accuracy);
        EXPECT_EQ(out.getLevel(), 19 - (2 + levelsOfSign(5, m + 1) + levelsOfSign(m + 2, 4)));
        max(plan, plan.encrypt(x), 0.5, out, accuracy);
        EXPECT_EQ(out.getLevel(), 19 - (ranks + levelsOfSign(m + 2, 4 + m) + 1));
    }
    const Plan toyPlan(toy().context, Precision::Standard);
    PlannedCiphertext out;
    sort(toyPlan, toyPlan.encrypt(separateNumbers(random, 2, {8, 8}, 1)), 1, out);
    EXPECT_EQ(toyPlan.getReport().leftRotations, (std::set<unsigned long>{1, 2, 4, 8}));
}

TEST(SortingRealPreset, APlanSortsSixtyFourNumbersOfALargeRing) {
    Seeded random(509);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{8, 8};
    const Message m = separateNumbers(random, 6, accuracy, 1);
    const Plan plan(makeContext(ParameterPreset::FGb), Precision::Standard);
    PlannedCiphertext out;
    sort(plan, plan.encrypt(m), 1, out, accuracy);
    EXPECT_LT(maxError(out.getNoisyMessage(), sorted(m, Order::Ascending)), 1.125 * powerOfHalf(8));
    EXPECT_EQ(plan.getReport().leftRotations,
              (std::set<unsigned long>{1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048}));
    EXPECT_EQ(plan.getReport().rotations,
              2 * 6 + 2 * 6 + 1 + 1 + 1 + 6); // to spread, rows, one, places, columns
}

TEST(SortingRealPreset, FourNumbersAreSortedWithoutBootstraps) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST19);
    const KeyGenerator generator(scheme.context, scheme.secretKey, scheme.keys);
    for (const u64 index : {1, 2, 4, 8}) generator.genLeftRotKey(index);
    Seeded random(512);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{4, 4};
    const Message m = separateNumbers(random, 2, accuracy, 1), descending = sorted(m, Order::Descending);
    const Ciphertext x = scheme.encrypt(m, scheme.encryptionLevel());
    Ciphertext out(scheme.context);
    const auto expectOut = [&](const Message& expected) {
        EXPECT_LT(maxError(scheme.decrypt(out), expected), 1.125 * powerOfHalf(accuracy.error));
    };
    rank(scheme.evaluator, x, 1, out, accuracy);
    expectOut(ranksOf(m, Order::Ascending));
    sort(scheme.evaluator, x, 1, out, accuracy);
    expectOut(sorted(m, Order::Ascending));
    topK(scheme.evaluator, x, 2, 1, out, accuracy);
    Message two = descending;
    two[2] = two[3] = 0;
    expectOut(two);
    argmax(scheme.evaluator, x, 1, out, accuracy);
    Message largest(2);
    largest[orderOf(m, Order::Descending)[0]] = 1;
    expectOut(largest);
    max(scheme.evaluator, x, 1, out, accuracy);
    expectOut(Message(2, descending[0]));
}

TEST(SortingFull, FourNumbersOnFGbErrAsPromised) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FGb);
    const KeyGenerator generator(scheme.context, scheme.secretKey, scheme.keys);
    for (const u64 index : {1, 2, 4, 8}) generator.genLeftRotKey(index);
    generator.genRotKeysForBootstrap(4);
    Bootstrapper bootstrapper(scheme.evaluator, 4);
    const BootstrappingEvaluator evaluator(scheme.evaluator, bootstrapper);
    Seeded random(511);
    SCOPED_TRACE(random.describe());
    const Message m = separateNumbers(random, 2, {8, 8}, 1);
    const Plan plan(scheme.context, Precision::Standard);
    PlannedCiphertext planned = plan.encrypt(m, 5);
    sort(plan, planned, 1, planned);
    Ciphertext x = scheme.encrypt(m, 5);
    sort(evaluator, x, 1, x);
    EXPECT_EQ(x.getLevel(), planned.getLevel());
    EXPECT_LT(maxError(scheme.decrypt(x), sorted(m, Order::Ascending)), 1.125 * powerOfHalf(8));
}

// ---- refusals

TEST(Sorting, RefusalsComeInOrderAndLeaveTheOutputAlone) {
    KeyPack some(toy().context);
    KeyGenerator(toy().context, toy().secretKey, some).genLeftRotKey(2);
    const HomEvaluator withoutKeys(toy().context, KeyPack(toy().context)), withOne(toy().context, some);
    Ciphertext out = toy().encrypt(Message(2, 0.25), 3);
    const Ciphertext before = out;
    const Accuracy wrong{3, 3};
    const double nan = std::nan("");
    const auto encrypted = [](u64 logNumbers) { return toy().encrypt(Message(logNumbers, 0.5), 12); };
    const Ciphertext x = encrypted(2);
    Ciphertext three = x;
    three.setNumPoly(3);
    EXPECT_REFUSED(sort(withoutKeys, three, nan, out, wrong), "Size should be 2");
    const auto count = [](const std::string& name, const std::string& slots) {
        return name + " takes 2 to 128 numbers, one in each slot, but is given " + slots +
               " slots; encrypt a message of as many slots as there are numbers";
    };
    EXPECT_REFUSED(sort(withoutKeys, encrypted(0), nan, out, wrong), count("sort", "1"));
    Message many(8);
    EXPECT_REFUSED(argmax(withoutKeys, many, nan, many, wrong), count("argmax", "256"));
    EXPECT_REFUSED(
        rank(withoutKeys, encrypted(3), nan, out, wrong),
        "rank of 8 numbers compares them in 64 slots, but the ring has 32; take fewer numbers or a "
        "larger ring");
    for (const u64 k : {u64{0}, u64{5}, ~u64{0}})
        EXPECT_REFUSED(topK(withoutKeys, x, k, nan, out, wrong),
                       "topK is asked for the largest " + std::to_string(k) +
                           " of 4 numbers; give 1 to as many as there are");
    EXPECT_REFUSED(sort(withoutKeys, x, nan, out, wrong),
                   "sort of 4 numbers is given the bound nan of its numbers; give one from 2^-32 to 2^32");
    const auto accuracy = [](const std::string& name, const std::string& given, const std::string& most) {
        return name + " of 4 numbers is asked for with " + given + "; give 4 to 15 bits of margin and 4 to " +
               most + " bits of error";
    };
    EXPECT_REFUSED(sort(withoutKeys, x, 1, out, {16, 4}),
                   accuracy("sort", "a margin of 2^-16 and an error of 2^-4", "14"));
    EXPECT_REFUSED(max(withoutKeys, x, 1, out, {4, 15}),
                   accuracy("max", "a margin of 2^-4 and an error of 2^-15", "14"));
    EXPECT_REFUSED(topK(withoutKeys, x, 2, 1, out, {4, 3}),
                   accuracy("topK", "a margin of 2^-4 and an error of 2^-3", "14"));
    EXPECT_REFUSED(rank(withoutKeys, x, 1, out, {4, 16}),
                   accuracy("rank", "a margin of 2^-4 and an error of 2^-16", "15"));
    EXPECT_REFUSED(argmax(withoutKeys, x, 1, out, {4, 17}),
                   accuracy("argmax", "a margin of 2^-4 and an error of 2^-17", "16"));
    EXPECT_REFUSED(sort(withoutKeys, x, 1, out),
                   "Failed to load the left rotation keys for indices 1, 2, 4, 8");
    EXPECT_REFUSED(sort(withOne, x, 1, out), "Failed to load the left rotation keys for indices 1, 4, 8");
    EXPECT_REFUSED(
        sort(toyWithRotations().evaluator, x, 1, out, {4, 4}),
        "sort of 4 numbers needs 18 levels, but the ciphertext has 12. Bootstrap it first, or give "
        "a BootstrappingEvaluator in place of the evaluator.");
    EXPECT_TRUE(sameWords(out, before));
}

// ---- threads and outputs

TEST(Sorting, TwoThreadsAndUsedOutputsGiveTheSameWords) {
    Seeded random(510);
    const Ciphertext x = toy().encrypt(separateNumbers(random, 2, {4, 4}, 1), 12);
    const Ciphertext first = test::expectSameWordsInEach(test::anyOutputs(), [&](Ciphertext& out) {
        max(bootstrapping(), x, 1, out, {4, 4});
    });
    Ciphertext over = x;
    max(bootstrapping(), over, 1, over, {4, 4});
    EXPECT_TRUE(sameWords(first, over));
}

} // namespace
} // namespace Torvo
