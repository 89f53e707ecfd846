#include "bootstrap/SparseComplexMatrix.hpp"

#include "support/Expect.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using Dense = std::vector<std::vector<Complex>>;

constexpr const char* fullColumn =
    "[SparseComplexMatrix] Inserting non-zero value over the given number of non-zero elements in a single "
    "column";

Dense denseOf(const SparseComplexMatrix& matrix) {
    Dense dense(matrix.getRows(), std::vector<Complex>(matrix.getCols()));
    for (u64 i = 0; i < matrix.getRows(); ++i)
        for (u64 j = 0; j < matrix.getCols(); ++j) dense[i][j] = matrix.coeff(i, j);
    return dense;
}

/// Small Gaussian integers, so that sums of products are exact in any order.
Complex smallNumber(test::Seeded& random) {
    return {static_cast<double>(random.below(9)) - 4.0, static_cast<double>(random.below(9)) - 4.0};
}

/// `perColumn` elements in each column.
SparseComplexMatrix randomMatrix(test::Seeded& random, u64 rows, u64 cols, u64 perColumn) {
    SparseComplexMatrix matrix(rows, cols, perColumn, perColumn);
    for (u64 j = 0; j < cols; ++j)
        for (u64 k = 0; k < perColumn; ++k) matrix.coeffRef(random.below(rows), j) = smallNumber(random);
    return matrix;
}

TEST(SparseComplexMatrix, IsEmptyAtFirst) {
    const SparseComplexMatrix matrix(3, 5, 4, 2);
    EXPECT_EQ(matrix.getRows(), 3U);
    EXPECT_EQ(matrix.getCols(), 5U);
    EXPECT_EQ(matrix.getNonzerosPerRow(), 4U);
    EXPECT_EQ(matrix.getNonzerosPerCol(), 2U);
    u64 slots = 0;
    for (auto it = matrix.begin(); !(it == matrix.end()); ++it, ++slots) {
        EXPECT_TRUE(it.isFree());
        EXPECT_EQ(it.row(), ~u64{0});
        EXPECT_EQ(it.value(), Complex(0.0));
        EXPECT_EQ(it.col(), slots / 2);
    }
    EXPECT_EQ(slots, 10U);
    EXPECT_EQ(denseOf(matrix), Dense(3, std::vector<Complex>(5)));
}

TEST(SparseComplexMatrix, StoresAColumnInTheOrderOfInsertion) {
    SparseComplexMatrix matrix(4, 2, 2, 3);
    matrix.coeffRef(2, 1) = {1, 2};
    matrix.coeffRef(0, 1) = {3, 4};
    matrix.coeffRef(2, 1) += Complex(10, 0); // the element that is there
    EXPECT_EQ(matrix.coeff(2, 1), Complex(11, 2));
    EXPECT_EQ(matrix.coeff(0, 1), Complex(3, 4));
    EXPECT_EQ(matrix.coeff(1, 1), Complex(0, 0));
    auto it = matrix.getColBegin(1);
    EXPECT_EQ(it.row(), 2U);
    EXPECT_EQ((++it).row(), 0U);
    EXPECT_TRUE((++it).isFree());
    EXPECT_TRUE(++it == matrix.getColEnd(1));
    EXPECT_TRUE(matrix.getColEnd(0) == matrix.getColBegin(1));
}

TEST(SparseComplexMatrix, RefusesAnElementTooMany) {
    SparseComplexMatrix matrix(4, 2, 2, 2);
    matrix.coeffRef(0, 0) = 1.0;
    matrix.coeffRef(3, 0) = 2.0;
    EXPECT_REFUSED(matrix.coeffRef(1, 0), fullColumn);
    matrix.coeffRef(3, 0) = 5.0;
    matrix.coeffRef(1, 1) = 6.0;
    EXPECT_EQ(denseOf(matrix), (Dense{{1, 0}, {0, 6}, {0, 0}, {5, 0}}));
}

TEST(SparseComplexMatrix, MultipliesLikeADenseMatrix) {
    test::Seeded random(11);
    SCOPED_TRACE(random.describe());
    for (int repeat = 0; repeat < 20; ++repeat) {
        const SparseComplexMatrix a = randomMatrix(random, 7, 5, 2), b = randomMatrix(random, 5, 6, 3);
        const SparseComplexMatrix product = a * b;
        EXPECT_EQ(product.getRows(), 7U);
        EXPECT_EQ(product.getCols(), 6U);
        EXPECT_EQ(product.getNonzerosPerRow(), 6U);
        EXPECT_EQ(product.getNonzerosPerCol(), 6U);
        const Dense x = denseOf(a), y = denseOf(b);
        for (u64 i = 0; i < 7; ++i)
            for (u64 j = 0; j < 6; ++j) {
                Complex sum = 0;
                for (u64 k = 0; k < 5; ++k) sum += x[i][k] * y[k][j];
                ASSERT_EQ(product.coeff(i, j), sum) << i << ", " << j;
            }
    }
}

TEST(SparseComplexMatrix, RefusesAProductOfSizesThatDoNotMatch) {
    SparseComplexMatrix a(2, 3, 1, 1), b(2, 3, 1, 1);
    EXPECT_REFUSED(a * b, "[SparseComplexMatrix] the size of matrix does not match");
}

TEST(SparseComplexMatrix, IsScaledElementByElement) {
    test::Seeded random(12);
    SparseComplexMatrix matrix = randomMatrix(random, 4, 4, 2);
    Dense expected = denseOf(matrix);
    for (auto& row : expected)
        for (auto& x : row) x *= Complex(2, -3);
    matrix *= Complex(2, -3);
    EXPECT_EQ(denseOf(matrix), expected);
}

TEST(SparseComplexMatrix, IsTransposedAndConjugatedInPlace) {
    SparseComplexMatrix matrix(2, 3, 3, 2);
    matrix.coeffRef(0, 0) = {1, 1};
    matrix.coeffRef(0, 1) = {2, 2};
    matrix.coeffRef(0, 2) = {3, 3};
    matrix.coeffRef(1, 2) = {4, 4};
    matrix.conjugateTranspose();
    EXPECT_EQ(matrix.getRows(), 3U);
    EXPECT_EQ(matrix.getCols(), 2U);
    EXPECT_EQ(matrix.getNonzerosPerRow(), 2U);
    EXPECT_EQ(matrix.getNonzerosPerCol(), 3U);
    EXPECT_EQ(denseOf(matrix), (Dense{{{1, -1}, 0}, {{2, -2}, 0}, {{3, -3}, {4, -4}}}));
}

TEST(SparseComplexMatrix, TransposedHasNoRoomForARowAboveItsBound) {
    SparseComplexMatrix matrix(2, 2, 1, 1);
    matrix.coeffRef(0, 0) = 1.0;
    matrix.coeffRef(0, 1) = 1.0; // two in a row
    EXPECT_REFUSED(matrix.conjugateTranspose(), fullColumn);
}

TEST(SparseComplexMatrix, AllocatesFreeSlotsAnew) {
    SparseComplexMatrix matrix(2, 2, 1, 1);
    matrix.coeffRef(1, 1) = 7.0;
    matrix.allocateFor(2, 1);
    EXPECT_EQ(denseOf(matrix), Dense(2, std::vector<Complex>(2)));
    EXPECT_TRUE(matrix.getColBegin(1).isFree());
}

} // namespace
} // namespace Torvo
