#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>

#include <memory>

namespace Torvo::LWE {

class HomEvaluatorImpl;

/// The linear operations on plain LWE ciphertexts. The output is the last argument and may be an input. Const
/// members may run at once on different outputs.
///
/// Every operation may also throw RuntimeException "Operands are in different devices."; "The generated
/// context does not support the operation with current operands; check the device."; "Operands are not of the
/// ring of the generated context.": a ciphertext of other primes, or at a level that the chain of the
/// evaluator or that of the ciphertext does not have.
///
/// Operations that take a real number refuse, as the last check, one that is too large for level and scale,
/// infinite or NaN, with "[encode] Cannot encode the number ...", the text of the ring's encoder
/// (`EnDecoder`).
class TORVO_API HomEvaluator {
public:
    explicit HomEvaluator(const Context& context);

    /// Minus the number. Exact; the result owes as many rescales as `in`.
    void negate(const Ciphertext& in, Ciphertext& out) const;

    /// The number is truncated to an integer at the scale that `in` has after the rescales it owes.
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level"
    void add(const Ciphertext& in, double c, Ciphertext& out) const;
    void sub(const Ciphertext& in, double c, Ciphertext& out) const;
    /// An operand at the higher level is brought to the lower one by `levelDown`; the rescale counter is that
    /// of `a`.
    /// @throws RuntimeException "Two operands have different RescaleCounter"; "Two operands are in different
    ///         devices"; then as `levelDown`; "Operands have different dimensions." for ciphertexts of
    ///         different contexts
    void add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;

    /// Exact product by a whole number; costs no level.
    void multInteger(const Ciphertext& in, long n, Ciphertext& out) const;
    /// The product by a real number, which owes one rescale more.
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level" when the level
    ///         does not allow that rescale
    void multWithoutRescale(const Ciphertext& in, double c, Ciphertext& out) const;
    /// `multWithoutRescale`, then `rescale`. The error is multiplied by |c|. Added to it are |x| units for
    /// the truncation of c to an integer and at most (1 + weight) / 2 units for the division; weight is the
    /// number of coefficients of the key that are not 0, and a unit is 2^-scale of the level reached.
    /// @throws RuntimeException "The level of the operand is zero", then as `multWithoutRescale`
    void mult(const Ciphertext& in, double c, Ciphertext& out) const;
    /// Divides by the top prime and drops it.
    /// @throws RuntimeException "The level of the operand is zero"; "[rescale] Rescale Counter of the
    ///         Ciphertext is zero or less"
    void rescale(Ciphertext& in_out) const;

    /// The same number at a lower level, at that level's scale. If `targetLevel` equals the level, `in` is
    /// copied.
    /// @throws RuntimeException "[level down] target level is greater than level of Ciphertext."; "The
    ///         Operand should have rescale counter zero"
    void levelDown(const Ciphertext& in, unsigned long targetLevel, Ciphertext& out) const;
    /// The same number one level lower.
    /// @throws RuntimeException "The level of the operand is zero"; "The Operand should have rescale counter
    ///         zero"
    void levelDownOne(const Ciphertext& in, Ciphertext& out) const;

private:
    std::shared_ptr<HomEvaluatorImpl> impl_;
};

} // namespace Torvo::LWE
