#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>

#include <memory>

namespace Torvo::LWE {

class HomEvaluatorImpl;

/// The linear operations on plain LWE ciphertexts. Outputs are last and may be an input. Const members may
/// run at once on different outputs.
class TORVO_API HomEvaluator {
public:
    explicit HomEvaluator(const Context& context);

    void negate(const Ciphertext& in, Ciphertext& out) const;

    void add(const Ciphertext& in, double c, Ciphertext& out) const;
    void sub(const Ciphertext& in, double c, Ciphertext& out) const;
    /// Operands at different levels meet at the lower one by `levelDown`; the rescale counter is that of `a`.
    /// @throws RuntimeException "Two operands have different RescaleCounter"; "Two operands are in different
    ///         devices"; then as `levelDown`
    void add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;

    /// Exact product by a whole number; costs no level.
    void multInteger(const Ciphertext& in, long n, Ciphertext& out) const;
    /// The product by a real number, which owes one rescale more.
    void multWithoutRescale(const Ciphertext& in, double c, Ciphertext& out) const;
    /// `multWithoutRescale`, then `rescale`.
    void mult(const Ciphertext& in, double c, Ciphertext& out) const;
    /// Divides by the top prime and drops it.
    /// @throws RuntimeException "The level of the operand is zero"; "[rescale] Rescale Counter of the
    ///         Ciphertext is zero or less"
    void rescale(Ciphertext& ct) const;

    /// The same number at a lower level, at that level's scale; `target` equal to the level copies.
    /// @throws RuntimeException "[level down] target level is greater than level of Ciphertext."; "The
    ///         Operand should have rescale counter zero"
    void levelDown(const Ciphertext& in, unsigned long target, Ciphertext& out) const;
    /// @throws RuntimeException "The level of the operand is zero"; "The Operand should have rescale counter
    ///         zero"
    void levelDownOne(const Ciphertext& in, Ciphertext& out) const;

private:
    std::shared_ptr<HomEvaluatorImpl> impl_;
};

} // namespace Torvo::LWE
