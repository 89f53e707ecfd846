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
    std::vector<GiantStep> giants;
    std::array<Polynomial*, 2> out; ///< mod-up, at the level of the input
};

/// The first half of linear transforms of one ciphertext by baby and giant steps, in one pass over the primes. For
/// each prime, live or temporary, the digits are raised once; each baby step is made of them, P times the rotation
/// that it stands for, without a division by P; and each giant step sums its products with the diagonals in one
/// reduction. So no rotation is ever whole in memory.
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
    static u64 digitCount(std::span<const BabyStep> babies);

    u64 primeOf(u64 row) const { return row < live_ ? row : ring_.numBase + row - live_; }
    void makeBabies(u64 row);
    void makeBaby(u64 baby, u64 t, bool isLive);
    void sumGiant(const GiantStep& giant, u64 row, u64* out0, u64* out1);
    void sumRow(u64 row);
    u64* babyRow(u64 baby, u64 element) { return babyRows_.mine(2 * baby + element); }
    u64* switchedRow(u64 sum, u64 giant, u64 row) {
        return switched_.getData() + (places_[sum][giant] * (live_ + ring_.numTemp) + row) * ring_.degree;
    }

    RowConversion convert_;
    const Ring& ring_;
    HoistedInput input_;
    std::span<const BabyStep> babies_;
    std::span<const DiagonalSum> sums_;
    u64 live_;
    std::optional<KeptDigits> digits_; ///< none where no baby step has a key
    ThreadRows babyRows_;              ///< both elements of each
    ThreadRows spare_;                 ///< `digitsAtOnce` digits, then the first element times P
    std::vector<std::vector<u64>> places_;
    DeviceSpecificArray<u64> switched_; ///< the second elements of all giant steps with an automorphism
};

} // namespace Torvo
