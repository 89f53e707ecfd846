#pragma once

#include "arithmetic/conversion/KeyRows.hpp"
#include "arithmetic/conversion/KeySwitch.hpp"
#include "arithmetic/conversion/RowConversion.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/Automorphism.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

#include <array>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace Torvo {

/// A ciphertext whose rotations share one decomposition. All of it is at one level.
struct HoistedInput {
    const Polynomial& first;  ///< in NTT form, as the next
    const Polynomial& second; ///< the one that is multiplied with the secret
    const Polynomial& digits; ///< `second` as it is decomposed, with the factors of the gadget
    const u64* tempProduct;   ///< for each ciphertext prime the product P of the temporary ones modulo it
};

/// A rotation of the input: its image under an automorphism, switched back by the key. Without automorphism it is
/// the input itself, and there is no key.
struct BabyStep {
    const Automorphism* automorphism;
    KeyRows key;
};

/// A product of a baby step with a diagonal, whose rows are in NTT form and follow each other: first those of the
/// live primes, then those of the temporary ones.
struct DiagonalTerm {
    u64 baby; ///< its index among the steps
    const u64* rows;
};

/// The image of a sum of such products under an automorphism, or the sum itself where that is null.
struct GiantStep {
    const Automorphism* automorphism;
    std::vector<DiagonalTerm> terms; ///< one or more; with the input itself the first alone
};

/// What comes to one result.
struct DiagonalSum {
    std::vector<GiantStep> giants;  ///< the one without automorphism, if any, first
    std::array<Polynomial*, 2> out; ///< mod-up, at the level of the input
};

/// The first half of linear transforms of one ciphertext by baby and giant steps, in one pass over the primes. For
/// each prime, live or temporary, the digits are raised once. Then, a few columns at a time, each baby step is made of
/// them, P times the rotation that it stands for, without a division by P; and each giant step sums its products with
/// the diagonals in one reduction. So not even a row of a rotation is ever whole in memory, and keys and diagonals are
/// read once.
///
/// The image of the first element of a giant step is added to the result where it stands, under P. That of the
/// second needs a key switch, for which `quotient` divides it by P: a caller adds the digits of all quotients,
/// multiplied with the keys of the giant steps, to the results, which then are divided by P once.
///
/// Source: double-hoisted baby-step giant-step evaluation, Bossuat, Mouchet, Troncoso-Pastoriza, Hubaux, IACR ePrint
/// 2020/1203.
class DiagonalSums {
public:
    DiagonalSums(const RowConversion& convert, const HoistedInput& input, std::span<const BabyStep> babies,
                 std::span<const DiagonalSum> sums);
    DiagonalSums(const DiagonalSums&) = delete;
    DiagonalSums& operator=(const DiagonalSums&) = delete;

    /// Writes the results, all of them but what the key switches of the quotients will add.
    void run();
    /// Giant step `giant` of result `sum`, which has an automorphism: `out` becomes the image of its second element
    /// divided by P, in NTT form. To be called once for each, after `run`.
    void quotient(u64 sum, u64 giant, Polynomial& out);

private:
    u64 primeOf(u64 row) const { return row < live_ ? row : ring_.numBase + row - live_; }
    void sumRow(u64 row);
    /// P times the input, in whole rows.
    void scaleInput(u64 t);
    void makeBaby(u64 baby, u64 row, Columns columns);
    void sumGiant(const GiantStep& giant, u64 row, Columns columns, u64* out0, u64* out1);
    void addImages(u64 t);

    const u64* scaledRow(u64 element) { return scaled_.mine(element); }
    const u64* babyColumns(u64 baby, u64 element, Columns columns) {
        return babies_[baby].automorphism == nullptr ? scaledRow(element) + columns.begin
                                                     : babyColumns_.mine(2 * baby + element);
    }
    u64* firstRow(u64 place) { return firstRows_.mine(place); }
    u64* secondRow(u64 place, u64 row) {
        return secondRows_.getData() + (place * (live_ + ring_.numTemp) + row) * ring_.degree;
    }

    RowConversion convert_;
    const Ring& ring_;
    HoistedInput input_;
    std::span<const BabyStep> babies_;
    std::span<const DiagonalSum> sums_;
    u64 live_;
    std::optional<KeptDigits> digits_; ///< none where no baby step has a key
    ThreadRows scaled_;
    ThreadRows babyColumns_;               ///< both elements of each
    ThreadRows spare_;                     ///< columns of `digitsAtOnce` digits
    std::vector<std::vector<u64>> places_; ///< of the giant steps with an automorphism, among all such
    ThreadRows firstRows_;                 ///< their first elements
    DeviceSpecificArray<u64> secondRows_;  ///< their second ones, for all primes
};

} // namespace Torvo
