#pragma once

#include "arithmetic/conversion/DiagonalSums.hpp"
#include "arithmetic/conversion/KeyRows.hpp"
#include "arithmetic/conversion/RowConversion.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/MultipleDevice.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>

#include <span>
#include <vector>

namespace Torvo {

/// Moves polynomials between RNS bases for hybrid key switching. The live primes are split into groups;
/// `modUp` extends each group's digit to all other primes; after the product with a key, `modDown` divides
/// the result by the product P of the temporary primes and returns it to the ciphertext primes. The
/// conversion is the approximate one: the sum of the terms may differ from the digit by a small multiple of
/// the digit's modulus, which the division by P makes harmless. Operands are not checked.
///
/// Names: L ciphertext primes, K temporary ones; Q_g is the product of the primes of digit g. Immutable,
/// thread-safe; inside a caller's parallel region a conversion runs on one thread.
class FastBaseConv {
public:
    explicit FastBaseConv(const Context& context);

    /// One mod-up polynomial in NTT form per live digit g of `a`, which is in either form: with c_i the
    /// centred residue of a * (Q_g / p_i)^-1 modulo p_i, the polynomial is the sum over the live primes p_i
    /// of g of c_i * (Q_g / p_i); its rows in g itself are those of `a`. Holes are left unset. With digits of
    /// a single prime c_i is the centred residue of `a` itself.
    /// @throws RuntimeException "Cannot support the function 'modUpGPUImpl' in the current build
    ///         configuration" (on a GPU; else 'modUp'); std::out_of_range "map::at" for a CPU without tables
    PolynomialVector modUp(const Polynomial& a) const;
    /// (in - r) / P, a ciphertext of the same level, not mod-up, in NTT form if `isNTT`, else in coefficient
    /// form. `in` has two mod-up polynomials in NTT form; r, a representative of `in` modulo P, is the sum
    /// over the temporary primes of the centred residues of in * (P / p)^-1 modulo p, times P / p.
    /// @throws RuntimeException as `modUp`, with 'modDownGPUImpl' and 'modDown'; std::out_of_range "map::at"
    Ciphertext modDown(const Ciphertext& in, bool isNTT) const;

    /// modDown of (sum of d_g * bx_g, sum of d_g * ax_g) over the digits d_g that `modUp` makes of `a`, for each
    /// key, in one pass.
    /// @throws RuntimeException as `modUp`; std::out_of_range "map::at"
    std::vector<Ciphertext> switchKeys(const Polynomial& a, std::span<const MappedKey> keys,
                                       bool isNTT) const;

    /// (sum of d_g * bx_g, sum of d_g * ax_g), before the division; `accumulate` adds it to `out`, which has two
    /// mod-up polynomials at the level of `a`.
    /// @throws RuntimeException as `modUp`; std::out_of_range "map::at"
    void multiplyDigits(const Polynomial& a, const KeyRows& key, bool accumulate, Ciphertext& out) const;

    /// Sums of the rotations of `input` by `babies`, multiplied with diagonals, ready to run. Operands are not copied.
    /// @throws RuntimeException as `modUp`; std::out_of_range "map::at"
    DiagonalSums sumDiagonals(const HoistedInput& input, std::span<const BabyStep> babies,
                              std::span<const DiagonalSum> sums) const;

private:
    RowConversion rowsOn(const Device& device) const;
    Ciphertext unsetCiphertextAt(u64 level) const;
    PolynomialVector modUpCPUImpl(const Polynomial& a) const;
    Ciphertext modDownCPUImpl(const Ciphertext& in, bool isNTT) const;
    std::vector<Ciphertext> switchKeysCPUImpl(const Polynomial& a, std::span<const MappedKey> keys,
                                              bool isNTT) const;
    void multiplyDigitsCPUImpl(const Polynomial& a, const KeyRows& key, bool accumulate,
                               Ciphertext& out) const;

    Context context_;
    MultipleDevice<DeviceSpecificArray<u64>> hatInvQ_; ///< i < L: (Q_g / p_i)^-1 mod p_i
    MultipleDevice<DeviceSpecificArray2D<u64>> hatQ_;  ///< i < L, t < L + K: Q_g / p_i mod p_t
    MultipleDevice<DeviceSpecificArray<u64>> hatInvP_; ///< j < K: (P / p_(L+j))^-1 mod p_(L+j)
    MultipleDevice<DeviceSpecificArray2D<u64>> hatP_;  ///< j < K, t < L: P / p_(L+j) mod p_t
    MultipleDevice<DeviceSpecificArray<u64>> invP_;    ///< t < L: P^-1 mod p_t
};

} // namespace Torvo
