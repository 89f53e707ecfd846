#include "support/CiphertextWords.hpp"
#include "support/Scheme.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>

using namespace Torvo;
using namespace Torvo::test;

// An operation that found its key works with it to its end. The rotation by 3 has a key of its own; without
// it, it would be put together from those by 4 and by -1, with other words.
TEST(UnloadedKeys, OperationsGiveTheSameWordsWhileKeysAreDropped) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    Seeded random{16};
    SCOPED_TRACE(random.describe());
    const Ciphertext x = scheme.encrypt(random.message(scheme.logFullSlots()), 5);
    const TemporaryDirectory directory;
    KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    generator.genMultKey();
    for (const u64 index : {3, 4, 31}) generator.genLeftRotKey(index);
    pack.save(directory.path());
    const HomEvaluator evaluator(scheme.context, pack);
    Ciphertext rotated(scheme.context), product(scheme.context);
    evaluator.leftRotate(x, 3, rotated);
    evaluator.mult(x, x, product);

    std::atomic<bool> isOver = false;
    auto evictor = std::async(std::launch::async, [&] {
        while (!isOver) {
            pack.unloadLeftRotKey(3);
            pack.unloadMultKey();
        }
    });
    for (int round = 0; round < 100; ++round) {
        Ciphertext out(scheme.context);
        evaluator.leftRotate(x, 3, out);
        EXPECT_TRUE(sameWords(out, rotated)) << "round " << round;
        evaluator.mult(x, x, out);
        EXPECT_TRUE(sameWords(out, product)) << "round " << round;
    }
    isOver = true;
    evictor.get();
}
