#pragma once

#include "arithmetic/elements/Ring.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// The constants of the conversions, on one device. Names as in `FastBaseConv`.
struct ConversionTables {
    const DeviceSpecificArray<u64>& hatInvQ;
    const DeviceSpecificArray2D<u64>& hatQ;
    const DeviceSpecificArray<u64>& hatInvP;
    const DeviceSpecificArray2D<u64>& hatP;
    const DeviceSpecificArray<u64>& invP;
};

/// The steps of mod-up and mod-down, each on one row of `degree` words. `FastBaseConv` runs them over whole
/// polynomials, step after step, or one after the other while a row is in cache. Nothing is checked, nothing
/// is allocated; rows come out in range 1.
///
/// A row is lifted when it holds centred coefficients as `Modulus::liftCentred` leaves them, so that many such
/// rows are summed without a test per word. With a single row there is no sum: it stays in range 1.
class RowConversion {
public:
    RowConversion(const Ring& ring, const ConversionTables& tables) : ring_(ring), tables_(tables) {}

    const Ring& ring() const { return ring_; }

    /// Row i < L of a polynomial, in NTT form if `isNTT`, as its digit's conversions need it: lifted. `lifted`
    /// may be `in`.
    void liftDigitRow(u64 i, const u64* in, bool isNTT, u64* lifted) const;
    /// Digit g of a polynomial at `level`, modulo prime t, which is not one of its own, in NTT form. The lifted
    /// rows of the digit follow each other from `liftedRows` on.
    void raiseDigit(u64 g, u64 t, u64 level, const u64* liftedRows, u64* row) const;

    /// The row of temporary prime j, from NTT form to lifted.
    void liftTemporaryRow(u64 j, u64* row) const;
    /// row = (minuend - r) / P modulo prime t < L, in NTT form if `isNTT`, else on coefficients, where the
    /// lifted rows of r modulo the temporary primes follow each other from `liftedRows` on. `minuend` is in that
    /// form too, and is not `row`.
    void divideRow(u64 t, const u64* liftedRows, const u64* minuend, bool isNTT, u64* row) const;

private:
    Ring ring_;
    ConversionTables tables_;
};

} // namespace Torvo
