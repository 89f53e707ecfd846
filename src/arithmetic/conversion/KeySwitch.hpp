#pragma once

#include "arithmetic/conversion/KeyRows.hpp"
#include "arithmetic/conversion/RowConversion.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/Modulus.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

#include <algorithm>
#include <array>
#include <span>

namespace Torvo {

/// Rows of raised digits that are kept until they are multiplied. Fewer would have the products read and reduced
/// more often, more would not stay in the cache.
inline constexpr u64 digitsAtOnce = 8;
static_assert(digitsAtOnce <= rows::maxTerms);

/// Spare rows of each thread of the loops to come.
class ThreadRows {
public:
    ThreadRows(u64 rows, u64 length) : length_(length), rows_(rows), words_(rows * length * teamSize()) {}
    /// Row i of the calling thread.
    u64* mine(u64 i) { return words_.getData() + (threadInTeam() * rows_ + i) * length_; }

private:
    u64 length_;
    u64 rows_;
    DeviceSpecificArray<u64> words_;
};

/// A run of words of each row: a few at a time stay in the cache over steps that would each pass over whole rows.
struct Columns {
    u64 begin, count;
};

/// The digits of a polynomial, row by row as they are needed.
class Digits {
public:
    Digits(const RowConversion& convert, const Polynomial& a);

    /// Whether digit g modulo prime t is a row of the polynomial itself.
    bool isOwnRow(u64 g, u64 t) const { return a_.isNTT() && convert_.ring().isInDigit(t, g); }
    /// Digit g modulo prime t, in NTT form: in `spare`, or the polynomial's own row.
    const u64* row(u64 g, u64 t, u64* spare);

private:
    u64* liftedRow(u64 i) { return lifted_.getData() + i * convert_.ring().degree; }

    const RowConversion& convert_;
    const Polynomial& a_;
    DeviceSpecificArray<u64> lifted_;
};

/// The same for a use that reads the digits modulo one prime many times before it goes on to the next: each thread
/// keeps them until then.
class KeptDigits {
public:
    /// Keeps the first `count` digits; with none they are made anew at each use.
    KeptDigits(const RowConversion& convert, const Polynomial& a, u64 count)
        : count_(count), digits_(convert, a), rows_(count, convert.ring().degree) {}

    /// Raises those that are kept, modulo prime t, which the next calls of `row` on this thread are about.
    void keep(u64 t);
    /// The columns of digit g modulo prime t, under `automorphism` unless that is null: in `spare`, or where they
    /// lie. Only a digit that is kept has an image; one that is not kept needs a whole spare row.
    const u64* columns(u64 g, u64 t, const Automorphism* automorphism, Columns columns, u64* spare);

private:
    u64 count_;
    Digits digits_;
    ThreadRows rows_;
};

/// The products of columns of digits with a key modulo prime t, a few digits at a time, while they are in cache; with
/// `accumulate` they are added to `out0` and `out1`, which begin with the first column. digitAt(g, spare) is digit g
/// from there on, in `spare` or elsewhere.
template <class DigitAt>
void sumOfPrime(const Modulus& modulus, u64 t, const KeyRows& key, Columns columns, bool accumulate,
                ThreadRows& spare, DigitAt digitAt, u64* out0, u64* out1) {
    for (u64 g = 0; g < key.digits; g += digitsAtOnce) {
        const auto term = [&](u64 j) {
            return rows::ProductTerm{digitAt(g + j, spare.mine(j)), key.bx[g + j].getRow(t) + columns.begin,
                                     key.ax[g + j].getRow(t) + columns.begin};
        };
        modulus.sumProductsOf(columns.count, std::min(digitsAtOnce, key.digits - g), term, out0, out1,
                              accumulate || g != 0);
    }
}

/// The key switches of one polynomial, one for each key, in one pass. It goes prime by prime, so that neither a
/// digit nor a product is ever whole in memory: for each prime the digits are raised and multiplied with the rows
/// of the keys, and what comes out is divided by P while it is in cache. The temporary primes come first, because
/// every other row needs them.
///
/// With one key the digits are raised a few at a time. With more, or under an automorphism, all of them are kept
/// until the last key has been multiplied.
class KeySwitch {
public:
    /// The two elements of a result.
    using Out = std::array<Polynomial*, 2>;

    /// The results are written to `outs`, as many as keys, at the level of `a`. Operands are not copied.
    KeySwitch(const RowConversion& convert, const Polynomial& a, std::span<const MappedKey> keys, bool isNTT,
              std::span<const Out> outs);
    void run();

private:
    /// The sums of products with key k modulo prime t.
    void sumForKey(u64 k, u64 t, u64* out0, u64* out1);
    /// The j-th sums that are made before the others are divided.
    void sumInAdvance(u64 j);
    void sumAndDivide(u64 t);
    void divide(u64 k, u64 t, u64 element, u64* product);
    void addTo(u64* row, const Addends& addends, u64 element, u64 t);
    u64* sumRow(u64 k, u64 element, u64 j) {
        return sums_.getData() + ((2 * k + element) * (temporary_ + early_) + j) * ring_.degree;
    }

    const RowConversion& convert_;
    const Ring& ring_;
    std::span<const MappedKey> keys_;
    bool isNTT_;
    std::span<const Out> outs_;
    u64 live_;
    u64 temporary_;
    u64 early_; ///< ciphertext primes whose sums are made with those of the temporary primes
    KeptDigits digits_;
    ThreadRows spare_; ///< `digitsAtOnce` digits and two products
    DeviceSpecificArray<u64> sums_;
};

} // namespace Torvo
