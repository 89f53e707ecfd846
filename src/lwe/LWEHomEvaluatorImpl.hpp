#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "core/Integers.hpp"
#include "encoding/ConstantEnDecoder.hpp"
#include "lwe/LWECiphertextImpl.hpp"

#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>

namespace Torvo::LWE {

/// The implementation of `HomEvaluator`, whose documentation holds for the members of the same name.
class HomEvaluatorImpl {
public:
    explicit HomEvaluatorImpl(const Context& context);

    void negate(const Ciphertext& in, Ciphertext& out) const;
    void add(const Ciphertext& in, double c, Ciphertext& out) const;
    void sub(const Ciphertext& in, double c, Ciphertext& out) const;
    void add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void multInteger(const Ciphertext& in, long n, Ciphertext& out) const;
    void multWithoutRescale(const Ciphertext& in, double c, Ciphertext& out) const;
    void mult(const Ciphertext& in, double c, Ciphertext& out) const;
    void rescale(Ciphertext& in_out) const;
    void levelDown(const Ciphertext& in, u64 targetLevel, Ciphertext& out) const;
    void levelDownOne(const Ciphertext& in, Ciphertext& out) const;

private:
    void requireOwn(const Ciphertext& operand) const { requireOfChain(context_, operand); }
    LevelledElement encodeConstant(double c, u64 level, int rescale_counter, const Device& device) const;
    void multParts(const Ciphertext& in, const LevelledElement& factor, Ciphertext& out) const;
    template <class Sign>
    void combine(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    template <class Sign>
    void combineParts(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;

    Context context_;
    ConstantEnDecoder constantEnDecoder_;
};

} // namespace Torvo::LWE
