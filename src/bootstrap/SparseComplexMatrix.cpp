#include "bootstrap/SparseComplexMatrix.hpp"

#include "bootstrap/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace Torvo {

SparseComplexMatrix::SparseComplexMatrix(u64 rows, u64 cols, u64 nonzeros_per_row, u64 nonzeros_per_col)
    : rows_(rows), cols_(cols), nonzeros_per_row_(nonzeros_per_row), nonzeros_per_col_(nonzeros_per_col) {
    allocateFor(cols, nonzeros_per_col);
}

void SparseComplexMatrix::allocateFor(u64 cols, u64 nonzeros) {
    values_.resize(cols * nonzeros);
    rowIndices_.resize(cols * nonzeros);
    std::fill(values_.begin(), values_.end(), 0.0);
    std::fill(rowIndices_.begin(), rowIndices_.end(), freeSlot);
}

u64 SparseComplexMatrix::findSlot(u64 row, u64 col) const {
    u64 slot = col * nonzeros_per_col_;
    const u64 end = slot + nonzeros_per_col_;
    while (slot != end && rowIndices_[slot] != row && rowIndices_[slot] != freeSlot) ++slot;
    return slot;
}

std::complex<double> SparseComplexMatrix::coeff(u64 row, u64 col) const {
    const u64 slot = findSlot(row, col);
    return slot != (col + 1) * nonzeros_per_col_ && rowIndices_[slot] == row ? values_[slot] : 0.0;
}

std::complex<double>& SparseComplexMatrix::coeffRef(u64 row, u64 col) {
    const u64 slot = findSlot(row, col);
    require(slot != (col + 1) * nonzeros_per_col_, message::columnIsFull);
    rowIndices_[slot] = row;
    return values_[slot];
}

SparseComplexMatrix SparseComplexMatrix::operator*(const SparseComplexMatrix& other) const {
    require(cols_ == other.rows_, message::matrixSizesDiffer);
    SparseComplexMatrix product(rows_, other.cols_, nonzeros_per_row_ * other.nonzeros_per_row_,
                                nonzeros_per_col_ * other.nonzeros_per_col_);
    for (auto right = other.begin(); right != other.end(); ++right) {
        if (right.isFree()) continue;
        for (auto left = getColBegin(right.row()); left != getColEnd(right.row()); ++left)
            if (!left.isFree()) product.coeffRef(left.row(), right.col()) += left.value() * right.value();
    }
    return product;
}

SparseComplexMatrix& SparseComplexMatrix::operator*=(std::complex<double> c) {
    for (auto& value : values_) value *= c;
    return *this;
}

void SparseComplexMatrix::conjugateTranspose() {
    struct Element {
        std::complex<double> value;
        u64 row, col;
    };
    std::vector<Element> elements;
    for (auto it = begin(); it != end(); ++it)
        if (!it.isFree()) elements.push_back({std::conj(it.value()), it.col(), it.row()});
    std::swap(rows_, cols_);
    std::swap(nonzeros_per_row_, nonzeros_per_col_);
    allocateFor(cols_, nonzeros_per_col_);
    for (const Element& element : elements) coeffRef(element.row, element.col) = element.value;
}

} // namespace Torvo
