#pragma once

#include "arithmetic/conversion/DiagonalSums.hpp"
#include "arithmetic/conversion/FastBaseConv.hpp"
#include "arithmetic/conversion/RNSDecomposeData.hpp"
#include "arithmetic/elements/Polynomial.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/EvaluationKey.hpp>

#include <span>
#include <vector>

namespace Torvo {

/// A key for the image of a ciphertext under X -> X^galois.
struct KeyOfMap {
    long galois;
    EvaluationKey* key;
};

/// The sum of products of rotations of a ciphertext with diagonals, rotated as a whole: by the map and the key of
/// `step`, which is null for the sum as it is. Terms name rotations by their place in a list.
struct RotatedSum {
    KeyOfMap step;
    std::vector<DiagonalTerm> terms;
};

/// A ciphertext, the rotations of it that take part, and for each result the sums that it adds to that.
struct SummedDiagonals {
    const Ciphertext& in;
    std::span<const KeyOfMap> rotations;
    std::span<const std::vector<RotatedSum>> results;
};

/// Turns a product of a polynomial and one secret into a ciphertext under another, by the hybrid gadget
/// method: `modUpPQ` splits the polynomial into digits and raises each to the full basis, `multEvalKey`
/// multiplies them with a key and sums, `modDown` divides by the temporary primes. Immutable, thread-safe.
class KeySwitcher {
public:
    explicit KeySwitcher(const Context& context);

    /// One mod-up polynomial per live digit: level / digit size + 1 of them.
    /// @throws RuntimeException "Operands are not of the ring of the generated context.", also for a level
    ///         that its chain does not have
    void modUpPQ(const Polynomial& poly, std::vector<Polynomial>& out) const;
    /// (sum of polys[j] * bx[j], sum of polys[j] * ax[j]), mod-up.
    /// @throws RuntimeException "Operand is empty so device is not defined"; "Elements of operand are in
    ///         different devices."; for a key that has fewer pairs, or pairs of another ring, "the switching
    ///         key is of another ring: " and both shapes
    Ciphertext multEvalKey(const std::vector<Polynomial>& polys, EvaluationKey& key) const;
    /// The sum of such products, polys[i] with *keys[i], in one pass. All are on one device and at one level.
    Ciphertext multEvalKeys(const std::vector<std::vector<Polynomial>>& polys,
                            const std::vector<EvaluationKey*>& keys) const;
    /// out = in / P; rescale counter 0 and all slots, for the caller to set.
    /// @throws RuntimeException "Operands are not of the ring of the generated context." unless `in` is
    ///         mod-up and of this ring
    void modDown(const Ciphertext& in, Ciphertext& out, bool isNTT) const;
    /// The three steps in one pass: a ciphertext, in NTT form if `isNTT`, of `poly` times the secret that the
    /// key switches from.
    Ciphertext switchKey(const Polynomial& poly, EvaluationKey& key, bool isNTT = true) const;
    /// The same in NTT form, with two polynomials at the level of `poly`, in NTT form too, added to its elements.
    /// @throws RuntimeException "Operands are not of the ring of the generated context." for other addends
    Ciphertext switchAndAdd(const Polynomial& poly, EvaluationKey& key, const Polynomial& first,
                            const Polynomial& second) const;
    /// For each key the ciphertext `in`, of two elements in NTT form, under X -> X^galois, switched back to the
    /// secret that it is under. The automorphism commutes with the decomposition, which so is paid once for all.
    std::vector<Ciphertext> rotate(const Ciphertext& in, std::span<const KeyOfMap> keys) const;
    /// For each result a ciphertext at the level of the operands, the sum of its rotated sums of all operands: with one
    /// decomposition for the rotations of an operand, and one division by the temporary primes for each rotated sum and
    /// for each result (`DiagonalSums`). A rotation with a null key is the operand itself. Operands, one or more, are at
    /// one level and have two elements in NTT form, and equally many results. Log slots, encoding and what is owed for
    /// the products are for the caller to set.
    std::vector<Ciphertext> sumDiagonals(std::span<const SummedDiagonals> operands) const;
    /// The first two steps in one pass: what `multEvalKey` returns for the digits of `poly`, which with
    /// `accumulate` is added to `sum`, a product of that level.
    void multiplyDigits(const Polynomial& poly, EvaluationKey& key, bool accumulate, Ciphertext& sum) const;

private:
    /// The factors of the gadget multiplied in, as the digits want it.
    Polynomial timesGadgetFactors(const Polynomial& poly) const;
    /// The guard before `digits` blocks of `key` are read. It compares the key's polynomials, because a key
    /// need not have a context.
    void requireFit(const EvaluationKey& key, const Device& device, u64 digits) const;
    /// What is multiplied with the digits of `poly`, after that guard and those of a sum of products.
    KeyRows rowsFor(const Polynomial& poly, EvaluationKey& key) const;
    /// The guard before a polynomial is added to what `poly` is switched to.
    void requireAddend(const Polynomial& poly, const Polynomial& addend) const;
    /// What one operand adds to each result, before the division.
    std::vector<Ciphertext> diagonalProducts(const SummedDiagonals& operand) const;
    /// A ciphertext with room for products at the level and on the device of `like`.
    Ciphertext unsetProduct(const Polynomial& like) const;

    Context context_;
    FastBaseConv baseConv_;
    RNSDecomposeData decomposeData_;
};

} // namespace Torvo
