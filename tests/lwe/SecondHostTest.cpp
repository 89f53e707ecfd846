#include "support/SecondHost.hpp"

#include "support/LWEPhase.hpp"
#include "support/PinnedWords.hpp"

#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>

#include <gtest/gtest.h>

#include <functional>

namespace Torvo::LWE {
namespace {

using namespace test;

struct Keyed {
    Context context = servingSecondHost(ParameterPreset::SD3);
    SecretKey key{context}, keyThere = onSecondHost(key);

    Ciphertext encrypted(const SecretKey& under) const {
        Ciphertext out(context);
        drawnFrom(1, [&] { Encryptor(context).encrypt(0.75, under, out); });
        return out;
    }
};

TEST(LWESecondHost, NumbersAreEncryptedAndDecryptedThere) {
    const Keyed k;
    const Ciphertext here = k.encrypted(k.key), there = k.encrypted(k.keyThere);
    EXPECT_EQ(here.getDevice(), Device{});
    EXPECT_EQ(there.getDevice(), secondHost);
    EXPECT_EQ(there.getBx().getDevice(), secondHost);
    EXPECT_TRUE(sameWords(there, here));
    double number = 0, numberThere = 0;
    Decryptor(k.context).decrypt(here, k.key, number);
    Decryptor(k.context).decrypt(there, k.keyThere, numberThere);
    EXPECT_EQ(numberThere, number);
}

TEST(LWESecondHost, NumbersThatOperationsBringGoThere) {
    const Keyed k;
    const HomEvaluator e(k.context);
    const Ciphertext ct = k.encrypted(k.key), there = k.encrypted(k.keyThere);
    const std::function<void(const Ciphertext&, Ciphertext&)> operations[] = {
        [&](const auto& in, auto& out) { e.add(in, 0.5, out); },
        [&](const auto& in, auto& out) { e.multInteger(in, -3, out); },
        [&](const auto& in, auto& out) { e.mult(in, 0.3, out); },
        [&](const auto& in, auto& out) { e.levelDown(in, 1, out); },
    };
    for (const auto& operation : operations) {
        Ciphertext out(k.context), outThere(k.context);
        operation(ct, out);
        operation(there, outThere);
        EXPECT_EQ(outThere.getDevice(), secondHost);
        EXPECT_TRUE(sameWords(outThere, out));
    }
}

} // namespace
} // namespace Torvo::LWE
