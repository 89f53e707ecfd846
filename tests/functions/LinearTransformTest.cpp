#include <Torvo/LinearTransform.hpp>

#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/LinearMaps.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <random>

namespace Torvo {
namespace {

using namespace test;

using Indices = std::vector<unsigned long>;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

const Context& toy() {
    return contextOf(ParameterPreset::FX);
}

Matrix zeros(u64 rows, u64 columns) {
    return Matrix(rows, std::vector<Complex>(columns));
}

TEST(LinearTransform, IsTheProductOfItsMatrixWithEachBlock) {
    Seeded random(71);
    SCOPED_TRACE(random.describe());
    for (const u64 size : {1UL, 2UL, 4UL, 32UL}) {
        const Matrix matrix = randomMatrix(random, size, size);
        const Message in = random.message(6);
        Message out;
        LinearTransform::fromMatrix(matrix).apply(in, out);
        EXPECT_LT(maxError(out, productOf(matrix, size, in)), 1e-13) << size;
    }
}

TEST(LinearTransform, PadsAMatrixWithZerosToTheNextPowerOfTwo) {
    Seeded random(72);
    SCOPED_TRACE(random.describe());
    for (const auto& [rows, columns, size] :
         {std::tuple{3UL, 5UL, 8UL}, {5UL, 3UL, 8UL}, {1UL, 4UL, 4UL}, {4UL, 1UL, 4UL}, {1UL, 1UL, 1UL}}) {
        const Matrix matrix = randomMatrix(random, rows, columns);
        const LinearTransform transform = LinearTransform::fromMatrix(matrix);
        EXPECT_EQ(transform.getSize(), size);
        Message in = random.message(4), expected = productOf(matrix, size, in);
        transform.apply(in, in);
        EXPECT_LT(maxError(in, expected), 1e-14) << rows << " " << columns;
    }
}

TEST(LinearTransform, NamesTheDiagonalsThatAreNotZero) {
    Matrix matrix = zeros(8, 8);
    EXPECT_EQ(LinearTransform::fromMatrix(matrix).getDiagonalIndices(), Indices{0});
    matrix[6][1] = {0, 1};
    matrix[2][2] = 3;
    matrix[0][7] = 1;
    EXPECT_EQ(LinearTransform::fromMatrix(matrix).getDiagonalIndices(), (Indices{0, 3, 7}));
    EXPECT_EQ(LinearTransform::fromDiagonals(4, {{2, {0, 0, 1, 0}}, {3, {0, 0, 0, 0}}}).getDiagonalIndices(),
              Indices{2});
}

TEST(LinearTransform, OfDiagonalsIsThatOfTheirMatrix) {
    Seeded random(73);
    SCOPED_TRACE(random.describe());
    Matrix matrix = zeros(8, 8);
    std::map<unsigned long, std::vector<Complex>> diagonals;
    for (const u64 d : {0UL, 3UL, 7UL}) {
        for (u64 i = 0; i < 8; ++i) {
            matrix[i][(i + d) % 8] = {random.real(-1, 1), random.real(-1, 1)};
            diagonals[d].push_back(matrix[i][(i + d) % 8]);
        }
    }
    const Message in = random.message(3);
    Message out;
    LinearTransform::fromDiagonals(8, diagonals).apply(in, out);
    EXPECT_LT(maxError(out, productOf(matrix, 8, in)), 1e-14);
}

TEST(LinearTransform, OfAPermutationMovesTheSlots) {
    Seeded random(74);
    SCOPED_TRACE(random.describe());
    std::vector<unsigned long> sources(16);
    std::iota(sources.begin(), sources.end(), 0);
    std::shuffle(sources.begin(), sources.end(), std::mt19937_64(random.word()));
    const Message in = random.message(4);
    Message out;
    LinearTransform::fromPermutation(sources).apply(in, out);
    for (u64 i = 0; i < 16; ++i) EXPECT_EQ(out[i], in[sources[i]]) << i;
}

TEST(LinearTransform, NeedsARotationForEachDiagonalOnAsManySlotsAndTwoOnMore) {
    const auto rotations = [](const LinearTransform& transform, u64 log_slots) {
        // Without baby steps each rotation has its key.
        Indices indices = transform.getRotationIndices(toy(), log_slots, 1);
        return indices;
    };
    const LinearTransform shift = LinearTransform::fromPermutation({1, 2, 3, 0});
    EXPECT_EQ(rotations(shift, 2), Indices{1});
    EXPECT_EQ(rotations(shift, 3), (Indices{1, 5}));
    EXPECT_EQ(rotations(shift, 5), (Indices{1, 29}));
    // Entries on one side of the diagonal alone.
    Matrix upper = zeros(4, 4), lower = zeros(4, 4);
    upper[1][2] = lower[3][0] = 1;
    EXPECT_EQ(rotations(LinearTransform::fromMatrix(upper), 4), Indices{1});
    EXPECT_EQ(rotations(LinearTransform::fromMatrix(lower), 4), Indices{13});
    EXPECT_EQ(rotations(LinearTransform::fromMatrix(zeros(4, 4)), 4), Indices{});
}

TEST(LinearTransform, NeedsFewKeysForManyRotations) {
    Seeded random(75);
    SCOPED_TRACE(random.describe());
    const LinearTransform dense = LinearTransform::fromMatrix(randomMatrix(random, 32, 32));
    for (u64 level = 1; level < 25; ++level) {
        const Indices indices = dense.getRotationIndices(toy(), 5, level);
        EXPECT_LE(indices.size(), 16U) << level;
        EXPECT_TRUE(std::ranges::is_sorted(indices)) << level;
    }
    // 8 - 1 and 4 - 1, or 4 - 1 and 8 - 1.
    EXPECT_EQ(dense.getRotationIndices(toy(), 5, 12, {10}).size(), 10U);
}

TEST(LinearTransform, RefusesWhatIsNoMatrix) {
    EXPECT_REFUSED(LinearTransform::fromMatrix({}), "[LinearTransform] the matrix has no entries; give at "
                                                    "least one row with one entry");
    EXPECT_REFUSED(LinearTransform::fromMatrix({{}, {1.0}}), "[LinearTransform] the matrix has no entries; "
                                                             "give at least one row with one entry");
    EXPECT_REFUSED(LinearTransform::fromMatrix({{1.0, 2.0}, {notANumber}}),
                   "[LinearTransform] row 1 of the matrix has 1 entries, but row 0 has 2; give rows of one "
                   "length");
    Matrix tooLarge(1, std::vector<Complex>(524289, notANumber));
    EXPECT_REFUSED(LinearTransform::fromMatrix(tooLarge),
                   "[LinearTransform] a matrix of 1 rows and 524289 columns is given, but no ring has more "
                   "than 524288 slots; split it into blocks");
    Matrix matrix = zeros(3, 4);
    matrix[2][1] = {1.5, -infinity};
    EXPECT_REFUSED(LinearTransform::fromMatrix(matrix),
                   "[LinearTransform] the entry in row 2, column 1 is 1.5 + -inf i; give finite numbers");
    matrix[0][3] = {notANumber, 0};
    EXPECT_REFUSED(LinearTransform::fromMatrix(matrix),
                   "[LinearTransform] the entry in row 0, column 3 is nan + 0 i; give finite numbers");
}

TEST(LinearTransform, RefusesWhatIsNoDiagonal) {
    const std::map<unsigned long, std::vector<Complex>> given{{1, {notANumber}}, {9, {}}};
    EXPECT_REFUSED(LinearTransform::fromDiagonals(6, given),
                   "[LinearTransform] a transform of 6 slots is given; the number should be a power of two, "
                   "and at most 524288");
    EXPECT_REFUSED(LinearTransform::fromDiagonals(0, given),
                   "[LinearTransform] a transform of 0 slots is given; the number should be a power of two, "
                   "and at most 524288");
    EXPECT_REFUSED(LinearTransform::fromDiagonals(1UL << 63, given),
                   "[LinearTransform] a transform of 9223372036854775808 slots is given; the number should "
                   "be a power of two, and at most 524288");
    EXPECT_REFUSED(LinearTransform::fromDiagonals(4, given),
                   "[LinearTransform] diagonal 9 is given, but a transform of 4 slots has diagonals 0 to 3; "
                   "take the index modulo 4");
    EXPECT_REFUSED(LinearTransform::fromDiagonals(16, given),
                   "[LinearTransform] diagonal 1 has 1 numbers; give 16, one for each row");
    EXPECT_REFUSED(LinearTransform::fromDiagonals(2, {{1, {0.0, {0, infinity}}}}),
                   "[LinearTransform] the entry in row 1 of diagonal 1 is 0 + inf i; give finite numbers");
}

TEST(LinearTransform, RefusesWhatIsNoPermutation) {
    EXPECT_REFUSED(LinearTransform::fromPermutation({}),
                   "[LinearTransform] a transform of 0 slots is given; the number should be a power of two, "
                   "and at most 524288");
    EXPECT_REFUSED(LinearTransform::fromPermutation({0, 0, 9}),
                   "[LinearTransform] a transform of 3 slots is given; the number should be a power of two, "
                   "and at most 524288");
    EXPECT_REFUSED(LinearTransform::fromPermutation({0, 0, 4, 1}),
                   "[LinearTransform] slot 2 of the permutation comes from slot 4, but there are slots 0 to "
                   "3; give each of them once");
    EXPECT_REFUSED(LinearTransform::fromPermutation({1, 3, 2, 3}),
                   "[LinearTransform] slots 1 and 3 of the permutation both come from slot 3; give each slot "
                   "once");
}

TEST(LinearTransform, RefusesAMessageThatIsNotInBlocks) {
    const LinearTransform transform = LinearTransform::fromPermutation({1, 0, 3, 2});
    Message in(1, 0.5), out(0, 7.0);
    EXPECT_REFUSED(transform.apply(in, out), "[LinearTransform] a message of 2 slots is given, but the "
                                             "transform maps blocks of 4; give a multiple of 4 slots");
    EXPECT_REFUSED(transform.apply(Message(), out), "[LinearTransform] a message of 0 slots is given, but "
                                                    "the transform maps blocks of 4; give a multiple of 4 "
                                                    "slots");
    EXPECT_EQ(out.getSize(), 1U);
    EXPECT_EQ(out[0], 7.0);
}

TEST(LinearTransform, RefusesAPlaceThatTheRingDoesNotHave) {
    Seeded random(76);
    const LinearTransform dense = LinearTransform::fromMatrix(randomMatrix(random, 32, 32));
    const auto rotations = [&](u64 log_slots, u64 level, u64 maxKeys = ~0UL) {
        return dense.getRotationIndices(toy(), log_slots, level, {maxKeys});
    };
    EXPECT_REFUSED(dense.getRotationIndices(nullptr, 6, 25),
                   "The context is null. Make one with makeContext.");
    EXPECT_REFUSED(rotations(6, 25, 0), "[LinearTransform] log slots 6 is given, but the ring allows at most "
                                        "5; give that or less, or use a larger ring");
    EXPECT_REFUSED(rotations(~0UL, 25, 0), "[LinearTransform] log slots 18446744073709551615 is given, but "
                                           "the ring allows at most 5; give that or less, or use a larger "
                                           "ring");
    EXPECT_REFUSED(rotations(4, 25, 0), "[LinearTransform] the transform maps blocks of 32 slots, which log "
                                        "slots 4 do not hold; give more log slots, or a smaller transform");
    EXPECT_REFUSED(rotations(5, 25, 0), "[LinearTransform] level 25 is given, but a transform spends a level "
                                        "and the chain of FX ends at 24; give a level from 1 to 24");
    EXPECT_REFUSED(rotations(5, 0, 0), "[LinearTransform] level 0 is given, but a transform spends a level "
                                       "and the chain of FX ends at 24; give a level from 1 to 24");
    EXPECT_REFUSED(rotations(5, 24, 9), "[LinearTransform] 9 keys are allowed, but the 32 rotations of this "
                                        "transform need 10 at least; allow that many, or split the "
                                        "transform");
}

TEST(LinearTransform, AssignsAndCopiesAsAValue) {
    LinearTransform a = LinearTransform::fromPermutation({1, 0}), b = LinearTransform::fromPermutation({0});
    const LinearTransform copy = a;
    b = a;
    a = LinearTransform::fromPermutation({0, 1, 2, 3});
    EXPECT_EQ(copy.getDiagonalIndices(), Indices{1});
    EXPECT_EQ(b.getSize(), 2U);
    EXPECT_EQ(a.getSize(), 4U);
}

} // namespace
} // namespace Torvo
