#include "functions/SignComposite.hpp"
#include "functions/SignTables.hpp"
#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/Statistics.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::powerOfHalf;
using test::realMessage;
using test::sameWords;
using test::Scheme;
using test::Seeded;
using test::toy;
using test::toyBootstrapping;
using test::toyWithRotations;

using Edges = std::vector<double>;
using Real = long double;

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Those between the bounds, at which alone numbers are compared.
Edges within(const Edges& edges, double bound) {
    Edges inner;
    for (const double edge : edges)
        if (std::abs(edge) < bound) inner.push_back(edge);
    return inner;
}

/// The distance from an edge that a number is told from it.
double marginOf(const Edges& edges, double bound, const Accuracy& accuracy) {
    double largest = 0;
    for (const double edge : within(edges, bound)) largest = std::max(largest, std::abs(edge));
    return powerOfHalf(accuracy.margin) * (bound + largest);
}

/// Numbers that are surely in a bin, and those that may be partly.
struct Count {
    Real sure = 0, close = 0;
};

/// By looking at each number of the block that begins at slot `first`, in all messages.
Count countOf(const std::vector<Message>& x, u64 first, u64 length, double lower, double upper, double bound,
              double margin) {
    const auto isClose = [&](double number, double edge) {
        return std::abs(edge) < bound && std::abs(number - edge) < margin;
    };
    Count count;
    for (const Message& each : x)
        for (u64 i = first; i < first + length; ++i) {
            const double number = each[i].real();
            if (isClose(number, lower) || isClose(number, upper))
                ++count.close;
            else if (lower <= number && number <= upper)
                ++count.sure;
        }
    return count;
}

struct Setting {
    Edges edges;
    double bound = 1;
    Accuracy accuracy;
    u64 length = 0;
};

/// Expects all bins to be right: n numbers err by n 2^-error, and by `noise`.
void expectCounts(const Setting& s, const std::vector<Message>& x, const std::vector<Message>& bins,
                  double noise) {
    ASSERT_EQ(bins.size() + 1, s.edges.size());
    const u64 slots = x.front().getSize(), length = s.length == 0 ? slots : s.length;
    const Real n = static_cast<Real>(length * x.size()), error = n * powerOfHalf(s.accuracy.error) + noise;
    const double margin = marginOf(s.edges, s.bound, s.accuracy);
    for (u64 i = 0; i < slots; ++i) {
        Real sum = 0;
        for (u64 k = 0; k < bins.size(); ++k) {
            const Count count =
                countOf(x, i - i % length, length, s.edges[k], s.edges[k + 1], s.bound, margin);
            const Real got = bins[k][i].real();
            sum += got;
            ASSERT_GE(got, count.sure - error) << "bin " << k << " slot " << i;
            ASSERT_LE(got, count.sure + count.close + error) << "bin " << k << " slot " << i;
        }
        const bool hasAll = s.edges.front() <= -s.bound && s.edges.back() >= s.bound;
        ASSERT_TRUE(!hasAll || std::fabs(sum - n) <= noise * static_cast<Real>(bins.size())) << sum;
    }
}

std::vector<Message> messagesOf(Seeded& random, u64 logSlots, u64 count, double bound) {
    std::vector<Message> messages;
    for (u64 k = 0; k < count; ++k) messages.push_back(realMessage(random, logSlots, -bound, bound));
    return messages;
}

/// Numbers of the whole domain, with its ends, and with all edges and what lies on both sides of their margins.
Message denseMessage(const Setting& s) {
    Message m(12);
    u64 next = 0;
    for (const double edge : within(s.edges, s.bound))
        for (const double step : {0.0, 0.01, 0.5, 0.99, 1.0, 1.01})
            for (const double sign : {-1.0, 1.0})
                m[next++] = std::clamp(edge + sign * step * marginOf(s.edges, s.bound, s.accuracy), -s.bound,
                                       s.bound);
    for (u64 i = next; i < m.getSize(); ++i)
        m[i] =
            s.bound * (2 * static_cast<double>(i - next) / static_cast<double>(m.getSize() - 1 - next) - 1);
    return m;
}

std::vector<Message> decrypted(const std::vector<Ciphertext>& ciphertexts) {
    std::vector<Message> messages;
    for (const Ciphertext& each : ciphertexts) messages.push_back(toy().decrypt(each));
    return messages;
}

std::vector<Message> predicted(const std::vector<PlannedCiphertext>& planned) {
    std::vector<Message> messages;
    for (const PlannedCiphertext& each : planned) messages.push_back(each.getMessage());
    return messages;
}

double largestErrorOf(const std::vector<PlannedCiphertext>& planned) {
    double largest = 0;
    for (const PlannedCiphertext& each : planned) largest = std::max(largest, each.getLargestError());
    return largest;
}

/// The predicted errors are those of one run, so that another run may err by a few times the largest of them.
constexpr double runs = 6;

u64 levelsOfSign(const Accuracy& accuracy) {
    u64 levels = 0;
    for (const u64 degree : signDegrees(accuracy.margin, accuracy.error)) levels += levelsOfDegree(degree);
    return levels;
}

// ---- the whole domain

TEST(Histogram, CountsEveryNumberOfTheDomainInItsBin) {
    for (const Edges& edges :
         {Edges{-1, -0.25, 0.5, 1}, Edges{-0.75, -0.25, 0.25, 0.75}, Edges{-infinity, 0, infinity},
          Edges{-0.5, 0.5}, Edges{0.25, 2}, Edges{-3, -2, -0.5, 4}})
        for (const Accuracy accuracy : {Accuracy{4, 4}, Accuracy{8, 8}, Accuracy{6, 13}})
            for (const double bound : {1.0, 0.3, 20.0}) {
                Setting s{edges, bound, accuracy, 1};
                for (double& edge : s.edges) edge *= bound;
                SCOPED_TRACE(testing::Message()
                             << edges.size() << " edges from " << s.edges.front() << " margin "
                             << accuracy.margin << " error " << accuracy.error);
                const std::vector<Message> x{denseMessage(s)};
                std::vector<Message> bins;
                histogram(toy().evaluator, x, s.edges, bins, accuracy, {1, bound});
                expectCounts(s, x, bins, 1e-10);
                s.length = 64;
                histogram(toy().evaluator, x.front(), s.edges, bins, accuracy, {64, bound});
                expectCounts(s, x, bins, 1e-8);
            }
}

TEST(Histogram, ANumberAtAnEdgeCountsPartlyInBothBins) {
    std::vector<Message> bins;
    histogram(toy().evaluator, Message(5, 0.25), {-1, 0.25, 1}, bins, {8, 8}, {1});
    EXPECT_NEAR(bins[0][0].real(), 0.5, 1e-10);
    EXPECT_NEAR(bins[1][0].real(), 0.5, 1e-10);
}

// ---- encrypted

TEST(Histogram, IsThatOfEachBlockInAllCiphertexts) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(601);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{5, 6};
    for (const u64 logSlots : {5, 3})
        for (const u64 length : {0, 1, 4})
            for (const u64 count : {1, 2, 3}) {
                const Setting s{{-0.5, 0.125, 1}, 1, accuracy, length};
                SCOPED_TRACE(testing::Message()
                             << count << " times 2^" << logSlots << " slots in blocks of " << length);
                const std::vector<Message> x = messagesOf(random, logSlots, count, 1);
                std::vector<Message> inTheClear;
                histogram(scheme.evaluator, x, s.edges, inTheClear, accuracy, {length});
                expectCounts(s, x, inTheClear, 1e-10);

                const Plan plan(scheme.context);
                std::vector<PlannedCiphertext> planned;
                std::vector<Ciphertext> encrypted;
                for (const Message& each : x) {
                    planned.push_back(plan.encrypt(each, 12));
                    encrypted.push_back(scheme.encrypt(each, 12));
                }
                encrypted.front() = scheme.encrypt(x.front(), 11);
                planned.front() = plan.encrypt(x.front(), 11);
                histogram(plan, planned, s.edges, planned, accuracy, {length});
                expectCounts(s, x, predicted(planned), 1e-10);
                histogram(scheme.evaluator, encrypted, s.edges, encrypted, accuracy, {length});
                for (u64 k = 0; k < 2; ++k) {
                    EXPECT_EQ(encrypted[k].getLevel(), 11 - levelsOfSign(accuracy) - (length == 4 ? 1 : 0));
                    EXPECT_EQ(planned[k].getLevel(), encrypted[k].getLevel());
                    EXPECT_EQ(encrypted[k].getRescaleCounter(), 0);
                    EXPECT_EQ(encrypted[k].getNumPoly(), 2);
                }
                EXPECT_LT(largestErrorOf(planned), 0x1p-18);
                expectCounts(s, x, decrypted(encrypted), runs * largestErrorOf(planned) + 0x1p-20);
            }
}

TEST(Histogram, NeighbouringBinsShareTheSignAtTheirEdge) {
    const Plan single(toy().context);
    PlannedCiphertext x = single.encrypt(Message(5, 0.5)), out;
    sign(single, x, 1, out, {5, 6});
    const u64 products = single.getReport().relinearizations;
    const auto productsOf = [&](const Edges& edges, u64 count) {
        const Plan plan(toy().context);
        std::vector<PlannedCiphertext> outs;
        histogram(plan, std::vector(count, plan.encrypt(Message(5, 0.5))), edges, outs, {5, 6});
        return plan.getReport().relinearizations;
    };
    EXPECT_EQ(productsOf({-0.5, -0.25, 0.25, 0.5}, 1), 4 * products);
    EXPECT_EQ(productsOf({-1, -0.5, -0.25, 0.25, 0.5, 1}, 1), 4 * products);
    EXPECT_EQ(productsOf({-infinity, 0, infinity}, 3), 3 * products);
    EXPECT_EQ(productsOf({-4, -2, 1}, 3), 0);
}

TEST(Histogram, BinsOnOneSideOfAllNumbersTakeNoLevels) {
    const Ciphertext x = toy().encrypt(Message(5, 0.5), 2);
    std::vector<Ciphertext> outs;
    histogram(HomEvaluator(toy().context, KeyPack(toy().context)), x, {-4, -1, 1, 7}, outs, {4, 4}, {8});
    ASSERT_EQ(outs.size(), 3);
    for (const u64 k : {0, 1, 2}) {
        EXPECT_EQ(outs[k].getLevel(), 2);
        EXPECT_LT(test::maxError(toy().decrypt(outs[k]), Message(5, k == 1 ? 8 : 0)), 0x1p-25);
    }
}

// ---- bootstraps

TEST(Histogram, StartsFromAnyLevelWithABootstrappingEvaluator) {
    Seeded random(602);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{8, 8};
    for (const u64 count : {1, 3})
        for (const u64 length : {0, 4})
            for (u64 level = 3; level <= 12; level += 3) {
                SCOPED_TRACE(testing::Message()
                             << count << " in blocks of " << length << " from level " << level);
                const Setting s{{-1, -0.5, 0.25, 1}, 1, accuracy, length};
                const std::vector<Message> x = messagesOf(random, 5, count, 1);
                const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
                std::vector<PlannedCiphertext> planned;
                std::vector<Ciphertext> encrypted;
                for (const Message& each : x) {
                    planned.push_back(plan.encrypt(each, level));
                    encrypted.push_back(toy().encrypt(each, level));
                }
                histogram(plan, planned, s.edges, planned, accuracy, {length});
                histogram(toyBootstrapping(), encrypted, s.edges, encrypted, accuracy, {length});
                EXPECT_GE(plan.getReport().bootstraps, 1);
                EXPECT_EQ(encrypted[0].getLevel(), planned[0].getLevel());
                EXPECT_GE(encrypted[0].getLevel(), 4); // counts leave the unit square
                // A sign may err by an eighth more than promised, and a bootstrap in front of the mask's level is none.
                const double n = static_cast<double>(count) * (length == 0 ? 32 : 4);
                expectCounts(s, x, decrypted(encrypted),
                             n * (powerOfHalf(accuracy.error) / 8 + 2 * boot().realBound()));
            }
}

TEST(Histogram, ValuesThatRunOutAreBootstrappedInPairs) {
    const auto bootstrapsOf = [](u64 count, const Edges& edges) {
        const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
        std::vector<PlannedCiphertext> outs;
        histogram(plan, std::vector(count, plan.encrypt(Message(5, 0.5), 12)), edges, outs, {8, 8});
        return plan.getReport().bootstraps;
    };
    // Of two values, one bootstrap where the levels of the stages run out.
    const u64 ofPair = bootstrapsOf(1, {-0.5, 0.5});
    EXPECT_GT(ofPair, 0);
    EXPECT_EQ(bootstrapsOf(2, {-1, 0, 1}), ofPair);
    EXPECT_EQ(bootstrapsOf(4, {-1, 0, 1}), 2 * ofPair);
    EXPECT_EQ(bootstrapsOf(2, {-0.5, 0, 0.5}), 3 * ofPair);
}

// ---- refusals

TEST(Histogram, RefusalsComeInOrderAndLeaveTheOutputsAlone) {
    const HomEvaluator withoutKeys(toy().context, KeyPack(toy().context));
    const Ciphertext x = toy().encrypt(Message(5, 0.5), 12), low = toy().encrypt(Message(5, 0.5), 6);
    const std::vector<Ciphertext> before{toy().encrypt(Message(5, 0.25), 3)};
    std::vector<Ciphertext> outs = before;
    const std::vector<Ciphertext> none;
    const Ciphertext foreign = Scheme::of(ParameterPreset::SD3).encrypt(Message(5, 0.5), 1);
    const double nan = std::nan("");
    const Accuracy wrong{3, 3};
    EXPECT_REFUSED(histogram(withoutKeys, none, {}, outs, wrong, {3, nan}),
                   "histogram is given no ciphertext; give at least one");
    EXPECT_REFUSED(histogram(withoutKeys, foreign, {}, outs, wrong, {3, nan}),
                   "Operands are not of the ring of the generated context.");
    EXPECT_REFUSED(histogram(withoutKeys, x, {}, outs, wrong, {3, nan}),
                   "histogram is given blocks of 3 slots; give a power of two up to the 32 slots of the "
                   "ciphertext, or 0 for one block of all");
    EXPECT_REFUSED(histogram(withoutKeys, x, {}, outs, wrong, {4, nan}),
                   "histogram is given the bound nan; give a positive, finite one");
    EXPECT_REFUSED(histogram(withoutKeys, x, {}, outs, wrong, {4, 0x1p40}),
                   "histogram is given the bound 1099511627776 of its numbers; give one from 2^-32 to 2^32");
    for (const Edges& edges : {Edges{}, Edges{0.5}})
        EXPECT_REFUSED(histogram(withoutKeys, x, edges, outs, wrong, {4}),
                       "histogram takes two edges or more, but is given " + std::to_string(edges.size()) +
                           "; give both ends of each bin");
    const auto edge = [](const std::string& given) {
        return "histogram is given edge " + given + "; give edges in ascending order";
    };
    EXPECT_REFUSED(histogram(withoutKeys, x, {0, 0.5, 0.25}, outs, wrong, {4}),
                   edge("2 at 0.25, but the one in front of it at 0.5"));
    EXPECT_REFUSED(histogram(withoutKeys, x, {0.5, 0.5}, outs, wrong, {4}),
                   edge("1 at 0.5, but the one in front of it at 0.5"));
    EXPECT_REFUSED(histogram(withoutKeys, x, {nan, 0.5}, outs, wrong, {4}),
                   edge("1 at 0.5, but the one in front of it at nan"));
    EXPECT_REFUSED(histogram(withoutKeys, x, {0, nan}, outs, wrong, {4}),
                   edge("1 at nan, but the one in front of it at 0"));
    EXPECT_REFUSED(histogram(withoutKeys, x, {infinity, infinity}, outs, wrong, {4}),
                   edge("1 at inf, but the one in front of it at inf"));
    EXPECT_REFUSED(histogram(withoutKeys, x, {0, 0.5}, outs, wrong, {4}),
                   "histogram is asked for with a margin of 2^-3 and an error of 2^-3; give 4 to 16 bits of "
                   "margin and 4 to 16 bits of error");
    EXPECT_REFUSED(histogram(withoutKeys, std::vector{x, low}, {0, 0.5}, outs, {4, 4}, {4}),
                   "histogram needs 7 levels, but the ciphertext has 6. Bootstrap it first, or give a "
                   "BootstrappingEvaluator in place of the evaluator.");
    EXPECT_REFUSED(histogram(withoutKeys, x, {0, 0.5}, outs, {4, 4}, {4}),
                   "Failed to load the left rotation keys for indices 1, 2, 30, 31");
    // Those of 7 and 6 could be composed of others, which are missing too.
    EXPECT_REFUSED(histogram(withoutKeys, toy().encrypt(Message(3, 0.5), 12), {0, 0.5}, outs, {4, 4}, {4}),
                   "Failed to load the left rotation keys for indices 1, 2, 6, 7");
    EXPECT_REFUSED(histogram(withoutKeys, low, {0, 0.5}, outs, {4, 4}, {1}),
                   "Failed to load the multiplication key");
    EXPECT_TRUE(sameWords(outs, before));
    Message empty;
    std::vector<Message> messages;
    EXPECT_REFUSED(histogram(toy().evaluator, empty, {0, 1}, messages),
                   "The message has no slots. Give one with at least one slot.");
}

TEST(Histogram, NoiseThatLetsNoErrorBePromisedIsRefused) {
    const Plan coarse(makeContext(ParameterPreset::FTa), {});
    std::vector<PlannedCiphertext> outs;
    EXPECT_REFUSED(
        histogram(coarse, coarse.encrypt(Message(14, 0.5)), {0, 0.5}, outs, {8, 8}),
        "histogram needs signs from 2^-8 on, within 2^-8, but the noise of this parameter lets no error be "
        "promised there. Take a larger margin or a parameter with a larger scale.");
}

// ---- threads, memory and outputs

TEST(Histogram, TwoThreadsAndUsedOutputsGiveTheSameWords) {
    Seeded random(603);
    const Ciphertext x = toyWithRotations().encrypt(realMessage(random, 5, -1, 1), 8);
    const auto compute = [&](std::vector<Ciphertext>& outs) {
        histogram(toy().evaluator, x, {-0.5, 0, 1}, outs, {4, 4}, {4});
    };
    test::expectSameWordsInEach(std::vector<std::vector<Ciphertext>>{{}, test::anyOutputs()}, compute);
}

TEST(Histogram, AFailedAllocationLeavesTheOutputsAlone) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Ciphertext x = toyWithRotations().encrypt(Message(5, 0.75), 7);
    test::expectUnchangedByFailedAllocations(test::anyOutputs(), 41, [&](std::vector<Ciphertext>& outs) {
        histogram(toy().evaluator, x, {-1, 0, 1}, outs, {4, 4}, {4});
    });
}

// ---- a real degree

/// With --gtest_output=json:FILE the numbers of docs/functions.md.
TEST(HistogramRealPreset, ErrsAsThePlanPredicts) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    generator.genMultKey();
    Seeded random(604);
    SCOPED_TRACE(random.describe());
    const Setting s{{-1, -0.25, 0.5, 1}, 1, {6, 8}, 4};
    const std::vector<Message> x = messagesOf(random, scheme.logFullSlots(), 1, 1);
    const Plan plan(scheme.context);
    std::vector<PlannedCiphertext> planned;
    histogram(plan, plan.encrypt(x[0]), s.edges, planned, s.accuracy, {s.length});
    for (const unsigned long index : plan.getReport().leftRotations) generator.genLeftRotKey(index);
    std::vector<Ciphertext> outs;
    histogram(HomEvaluator(scheme.context, pack), scheme.encrypt(x[0], scheme.encryptionLevel()), s.edges,
              outs, s.accuracy, {s.length});
    std::vector<Message> got;
    double measured = 0;
    for (u64 k = 0; k < outs.size(); ++k) {
        EXPECT_EQ(outs[k].getLevel(), planned[k].getLevel());
        got.push_back(scheme.decrypt(outs[k]));
        measured = std::max(measured, test::maxError(got[k], planned[k].getMessage()));
    }
    EXPECT_LE(measured, 4 * largestErrorOf(planned));
    EXPECT_GE(measured, largestErrorOf(planned) / 4);
    expectCounts(s, x, got, measured);
    test::recordSpending(scheme.encryptionLevel() - outs[0].getLevel(), plan, largestErrorOf(planned),
                         measured);
}

} // namespace
} // namespace Torvo
