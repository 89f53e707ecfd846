// The file of a linear transform, written by hand from the table of docs/files.md.

#include "functions/LinearTransformImpl.hpp"
#include "support/AllocationBudget.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"

#include <Torvo/LinearTransform.hpp>

#include <gtest/gtest.h>

#include <cmath>

namespace Torvo {
namespace {

using namespace test;
using Complex = std::complex<double>;
using Numbers = std::vector<Complex>;

Bytes head(std::uint32_t tag, u64 size, u64 count) {
    return Bytes::frame().u32(tag).u64s({size, count});
}

/// A diagonal with these rows, and the numbers 1 + 2 i, 2 + 3 i, ... there.
Bytes& add(Bytes& file, u64 index, const std::vector<u64>& rows) {
    file.u64s({index, rows.size()});
    for (const u64 row : rows) file.u64s({row});
    file.u64s({rows.size()});
    for (u64 k = 0; k < rows.size(); ++k)
        file.f64(static_cast<double>(k) + 1).f64(static_cast<double>(k) + 2);
    return file;
}

std::string fileOf(u64 size, const std::vector<std::pair<u64, std::vector<u64>>>& diagonals) {
    Bytes file = head(9, size, diagonals.size());
    for (const auto& [index, rows] : diagonals) add(file, index, rows);
    return file.str();
}

LinearTransform twoDiagonals() {
    return LinearTransform::fromDiagonals(
        4, {{0, {{1, 2}, {2, 3}, {3, 4}, {4, 5}}}, {3, {0.0, {1, 2}, 0.0, {2, 3}}}});
}

TEST(LinearTransformFile, IsThatOfItsTable) {
    const std::string file = fileOf(4, {{0, {0, 1, 2, 3}}, {3, {1, 3}}});
    LinearTransform other = LinearTransform::fromPermutation({1, 0});
    expectFile(twoDiagonals(), file, other);
    EXPECT_EQ(other.getSize(), 4u);
    EXPECT_EQ(other.getDiagonalIndices(), (std::vector<unsigned long>{0, 3}));
    EXPECT_EQ(twoDiagonals().savedSize(), file.size());
    expectRobust(file, file.size(), other);
    LinearTransform zero;
    expectFile(LinearTransform(), fileOf(1, {{0, {}}}), zero);
    expectFile(LinearTransform::fromMatrix({{0.0, 0.0}}), fileOf(2, {{0, {}}}), zero);
    EXPECT_EQ(zero.getSize(), 2u);
}

TEST(LinearTransformFile, OfTheOtherByteOrderIsRead) {
    std::string file(1, '\0');
    for (const auto& field :
         {Bytes().u32(9), Bytes().u64s({2}), Bytes().u64s({1}), Bytes().u64s({1}), Bytes().u64s({1}),
          Bytes().u64s({0}), Bytes().u64s({1}), Bytes().f64(0.5), Bytes().f64(-0.25)})
        file.append(field.str().rbegin(), field.str().rend());
    LinearTransform transform;
    loadFrom(file, transform);
    Message out;
    transform.apply(Message(Numbers{3.0, 4.0}), out);
    EXPECT_EQ(out[0], Complex(2, -1));
    EXPECT_EQ(out[1], Complex(0));
}

TEST(LinearTransformFile, OfWhatNoTransformHasIsRefusedAndChangesNothing) {
    LinearTransform transform = twoDiagonals();
    const std::string before = saved(transform);
    const auto expectRefused = [&](const std::string& file) {
        EXPECT_REFUSED(loadFrom(file, transform), notVerified);
        EXPECT_EQ(saved(transform), before);
    };
    const std::string good = fileOf(4, {{0, {0}}}).substr(21);
    for (const std::uint32_t tag : {0, 7, 8, 10}) expectRefused(head(tag, 4, 1).str() + good);
    for (const u64 size : {u64{0}, u64{3}, u64{1} << 20, ~u64{0}})
        expectRefused(head(9, size, 1).str() + good);
    for (const u64 count : {u64{0}, u64{5}, ~u64{0}}) expectRefused(head(9, 4, count).str() + good);
    expectRefused(fileOf(4, {{4, {0}}}));
    expectRefused(fileOf(4, {{1, {0}}, {1, {0}}}));
    expectRefused(fileOf(4, {{2, {0}}, {1, {0}}}));
    expectRefused(fileOf(4, {{0, {4}}}));
    expectRefused(fileOf(4, {{0, {1, 1}}}));
    expectRefused(fileOf(4, {{0, {2, 1}}}));
    expectRefused(fileOf(4, {{0, {0, 1, 2, 3, 4}}}));
    expectRefused(fileOf(4, {{1, {}}}));
    expectRefused(fileOf(4, {{0, {}}, {1, {0}}}));
    const double nan = std::nan("");
    for (const auto& [re, im] :
         {std::pair(nan, 0.0), std::pair(0.0, nan), std::pair(HUGE_VAL, 0.0), std::pair(0.0, 0.0)})
        expectRefused(head(9, 4, 1).u64s({0, 1, 2, 1}).f64(re).f64(im).str());
    expectRefused(head(9, 4, 1).u64s({0, 1, 2, 0}).str());
    expectRefused(head(9, 4, 1).u64s({0, 1, 2, 2}).f64(1).f64(1).f64(1).f64(1).str());
}

TEST(LinearTransformFile, ThatEndsTooEarlyChangesNothing) {
    LinearTransform transform = twoDiagonals();
    const std::string before = saved(transform);
    EXPECT_THROW_TEXT(loadFrom(head(9, 4, 1).u64s({0, 4, 0, 1}).str(), transform), cereal::Exception,
                      shortRead(32, 16));
    EXPECT_EQ(saved(transform), before);
}

TEST(LinearTransformFile, TakesNoMemoryByAForgedCount) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    LinearTransform transform;
    const AllocationBudget budget(u64{1} << 16);
    EXPECT_REFUSED(loadFrom(head(9, 4, 1).u64s({0, u64{1} << 60}).str(), transform), notVerified);
    EXPECT_REFUSED(loadFrom(head(9, 4, 1).u64s({0, 1, 2, u64{1} << 60}).str(), transform), notVerified);
    EXPECT_FALSE(budget.isExceeded());
}

TEST(LinearTransformFile, OnAFullDiskIsRefused) {
    EXPECT_THROW(LinearTransform::fromPermutation(std::vector<unsigned long>{1, 0}).save("/dev/full"),
                 std::exception);
}

TEST(LinearTransformFile, HoldsWhatWasSavedOfAMatrix) {
    Seeded random(93);
    SCOPED_TRACE(random.describe());
    std::vector<Numbers> rows(8, Numbers(5));
    for (auto& row : rows)
        for (Complex& entry : row)
            entry = random.below(3) == 0 ? 0 : Complex(random.real(-1, 1), random.real(-1, 1));
    const LinearTransform transform = LinearTransform::fromMatrix(rows);
    LinearTransform loaded;
    loadFrom(saved(transform), loaded);
    const Message in = random.message(4);
    Message out, expected;
    loaded.apply(in, out);
    transform.apply(in, expected);
    EXPECT_EQ(maxError(out, expected), 0);
}

} // namespace
} // namespace Torvo
