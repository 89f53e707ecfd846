#include "support/AllocationBudget.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/SecretKey.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

/// Two kinds of file are recipes: a few bytes from which much more is made. The context determines the cost,
/// so that the caller can know it before the load.
namespace Torvo {
namespace {

using test::AllocationBudget;

constexpr u64 logDegree = 13, degree = u64{1} << logDegree, numBase = 8, numDigits = 2, numTemp = 4;
constexpr u64 numPrimes = numBase + numTemp;
constexpr u64 mebibyte = u64{1} << 20;
constexpr u64 unlimited = u64{1} << 40;

Context ring() {
    return makeContext(logDegree, numBase, 50, 40, 60, numDigits);
}

TEST(LoadCosts, ASecretKeyInShortFormCostsWhatAKeyOfItsContextCosts) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Context context = ring();
    const SecretKey first(context); // stays, so that its memory does not serve again without being counted
    std::ostringstream file;
    first.saveSeedOnly(file);
    std::istringstream stream(file.str());
    const AllocationBudget budget(unlimited);
    const SecretKey key(context, stream);
    constexpr u64 expected = degree * (8 * numPrimes + 4);
    EXPECT_GE(budget.peak(), expected);
    EXPECT_LE(budget.peak(), expected + 2 * mebibyte); // the words of the generator and small things
    RecordProperty("bytes", std::to_string(budget.peak()));
}

// For each prime at most eight tables of N words in all (both directions, each with its quotients, the last
// stage once more, and once more in floating point), and 36 N bytes for the embedding.
TEST(LoadCosts, AContextFileCostsEightTablesForEveryPrime) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const test::TemporaryDirectory folder;
    const std::string path = folder.path() + "/ring.context";
    saveContextToFile(ring(), path);
    const AllocationBudget budget(unlimited);
    const Context context = makeContextFromFile(path);
    EXPECT_GE(budget.peak(), degree * 8 * 4 * numPrimes);
    EXPECT_LE(budget.peak(), degree * (8 * 8 * numPrimes + 36) + mebibyte);
    RecordProperty("bytes", std::to_string(budget.peak()));
}

} // namespace
} // namespace Torvo
