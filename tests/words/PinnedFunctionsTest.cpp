#include "support/Contexts.hpp"
#include "support/PinnedWords.hpp"

#include <Torvo/EncodedTransform.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/LinearTransform.hpp>

#include <gtest/gtest.h>

#include <complex>
#include <map>
#include <vector>

namespace Torvo {
namespace {

using namespace test;

/// The first 16 diagonals of a matrix of `size` rows.
LinearTransform sixteenDiagonals(u64 size) {
    std::map<unsigned long, std::vector<std::complex<double>>> diagonals;
    for (u64 d = 0; d < 16; ++d)
        for (const std::complex<double>& number : slotsOf(5, 20 + d))
            if (diagonals[d].size() < size) diagonals[d].push_back(number);
    return LinearTransform::fromDiagonals(size, diagonals);
}

/// Only four baby and four giant steps do with six keys.
TEST(PinnedFunctions, LinearTransforms) {
    const Context context = contextOf(ParameterPreset::FX);
    SKIP_UNLESS_MATHEMATICS_AGREE("FX", context);
    PinnedGroup group("linear transforms");
    const SecretKey key = drawnFrom(1, [&] { return SecretKey(context); });
    const KeyGenerator generator(context, key);
    for (const u64 index : {1UL, 2UL, 3UL, 4UL, 8UL, 12UL})
        drawnFrom(index, [&] { generator.genLeftRotKey(index); });
    const HomEvaluator evaluator(context, generator.getKeyPack());
    const Ciphertext used = wordsOfCiphertext<RLWE>(context, 0, 7);
    for (const u64 level : {1UL, 7UL, 24UL}) {
        Ciphertext in = wordsOfCiphertext<RLWE>(context, level, 9);
        for (const u64 log_slots : {5UL, 4UL}) {
            in.setLogSlots(log_slots);
            const std::string row =
                "16 of " + std::to_string(1 << log_slots) + " at " + std::to_string(level);
            group.result(row, used, [&](Ciphertext& out) {
                EncodedTransform(context, sixteenDiagonals(u64{1} << log_slots), log_slots, level, {6})
                    .apply(evaluator, in, out);
            });
        }
    }
    Ciphertext above = wordsOfCiphertext<RLWE>(context, 9, 10);
    const EncodedTransform encoded(context, sixteenDiagonals(32), 5, 7, {6});
    group.result("from above", used, [&](Ciphertext& out) { encoded.apply(evaluator, above, out); });
}

} // namespace
} // namespace Torvo
