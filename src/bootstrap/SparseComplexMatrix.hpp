#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

#include <complex>
#include <iterator>

namespace Torvo {

/// A complex matrix with few elements in each column, stored by columns with a fixed number of slots each.
/// A free slot has the row index ~0. Not synchronised.
class SparseComplexMatrix {
public:
    static constexpr u64 freeSlot = ~u64{0};

    SparseComplexMatrix(u64 rows, u64 cols, u64 nonzeros_per_row, u64 nonzeros_per_col);

    u64 getRows() const { return rows_; }
    u64 getCols() const { return cols_; }
    u64 getNonzerosPerRow() const { return nonzeros_per_row_; }
    u64 getNonzerosPerCol() const { return nonzeros_per_col_; }

    /// The element, 0 when it is not stored.
    std::complex<double> coeff(u64 row, u64 col) const;
    /// The element's slot; if it is not stored yet, it takes a free slot of the column.
    /// @throws RuntimeException "[SparseComplexMatrix] Inserting non-zero value over the given number of
    ///         non-zero elements in a single column"
    std::complex<double>& coeffRef(u64 row, u64 col);

    /// @throws RuntimeException "[SparseComplexMatrix] the size of matrix does not match"
    SparseComplexMatrix operator*(const SparseComplexMatrix& other) const;
    SparseComplexMatrix& operator*=(std::complex<double> c);

    /// Resizes both arrays to cols * nonzeros slots, all free.
    void allocateFor(u64 cols, u64 nonzeros);
    /// In place.
    void conjugateTranspose();

    /// A position in the storage slots, free ones included.
    class Iterator {
    public:
        Iterator(u64 position, u64 nonzeros_per_col, const std::complex<double>* values,
                 const unsigned long* rows)
            : position_(position), nonzeros_per_col_(nonzeros_per_col), values_(values), rows_(rows) {}

        u64 row() const { return rows_[position_]; }
        u64 col() const { return position_ / nonzeros_per_col_; }
        std::complex<double> value() const { return values_[position_]; }
        bool isFree() const { return row() == freeSlot; }
        Iterator& operator++() {
            ++position_;
            return *this;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.position_ == b.position_; }

    private:
        u64 position_;
        u64 nonzeros_per_col_;
        const std::complex<double>* values_;
        const unsigned long* rows_;
    };

    Iterator begin() const { return at(0); }
    Iterator end() const { return getColEnd(cols_ - 1); }
    Iterator getColBegin(u64 col) const { return at(col * nonzeros_per_col_); }
    Iterator getColEnd(u64 col) const { return at((col + 1) * nonzeros_per_col_); }

private:
    Iterator at(u64 position) const {
        return {position, nonzeros_per_col_, values_.getData(), rowIndices_.getData()};
    }
    /// The slot of column `col` that holds `row`, or else the column's first free one; past its end if the
    /// column is full.
    u64 findSlot(u64 row, u64 col) const;

    u64 rows_;
    u64 cols_;
    u64 nonzeros_per_row_;
    u64 nonzeros_per_col_;
    DeviceSpecificArray<std::complex<double>> values_;
    DeviceSpecificArray<unsigned long> rowIndices_;
};

} // namespace Torvo
