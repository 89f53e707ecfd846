#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/PinnedWords.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <gtest/gtest.h>

/// Constants by which mod-up ciphertexts are multiplied reach the rows of the temporary primes too.
namespace Torvo {
namespace {

using namespace test;

template <EncryptionType E>
struct ModUp {
    explicit ModUp(ParameterPreset preset) : context(contextOf(preset)) {}

    Context context;
    HomEvaluator evaluator{context, KeyPack(context)};
    CiphertextBase<E> x = wordsOfCiphertext<E>(context, 1, 1, true);
    /// Holds words of its own, so that rows that nobody writes show.
    CiphertextBase<E> used = wordsOfCiphertext<E>(context, 1, 2, true);

    CiphertextBase<E> negated() const {
        CiphertextBase<E> out(context);
        evaluator.negate(x, out);
        return out;
    }
};

template <EncryptionType E>
void expectTheImaginaryUnitTwiceIsMinusOne(ParameterPreset preset) {
    const ModUp<E> m(preset);
    auto once = m.used, twice = m.used;
    m.evaluator.multImagUnit(m.x, once);
    EXPECT_FALSE(sameWords(once, m.x));
    m.evaluator.multImagUnit(once, twice);
    EXPECT_TRUE(sameWords(twice, m.negated()));
}

TEST(ModUpOperands, TheImaginaryUnitTwiceIsMinusOneInEveryRow) {
    expectTheImaginaryUnitTwiceIsMinusOne<RLWE>(ParameterPreset::FX);
    expectTheImaginaryUnitTwiceIsMinusOne<MLWE>(ParameterPreset::SD3D6R2);
}

template <EncryptionType E>
void expectANegativeIntegerIsASum(ParameterPreset preset) {
    const ModUp<E> m(preset);
    auto product = m.used, sum = m.negated();
    m.evaluator.multInteger(m.x, -3, product);
    m.evaluator.sub(sum, m.x, sum);
    m.evaluator.sub(sum, m.x, sum);
    EXPECT_TRUE(sameWords(product, sum));
}

TEST(ModUpOperands, ANegativeIntegerMultipliesEveryRow) {
    expectANegativeIntegerIsASum<RLWE>(ParameterPreset::FX);
    expectANegativeIntegerIsASum<MLWE>(ParameterPreset::SD3D6R2);
}

} // namespace
} // namespace Torvo
