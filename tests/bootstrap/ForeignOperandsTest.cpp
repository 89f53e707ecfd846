#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <gtest/gtest.h>

#include <functional>

namespace Torvo {
namespace {

using test::boot;
using test::sameWords;
using test::toy;

const char* const foreign = "Operands are not of the ring of the generated context.";

/// Expects every flow to refuse `in`, with outputs as they were.
void expectRefused(Ciphertext in) {
    const Ciphertext before = toy().encrypt(Message(5, 0.25), 5);
    for (const BootstrapperImpl* bootstrapper : {&boot().batched, &boot().inSequence}) {
        Ciphertext out = before, second = before;
        in.setEncodingType(EncodingType::Slot);
        for (const bool isComplex : {false, true}) {
            EXPECT_REFUSED(bootstrapper->bootstrap(in, out, isComplex), foreign);
            EXPECT_REFUSED(bootstrapper->bootstrapExtended(in, out, isComplex), foreign);
        }
        EXPECT_REFUSED(bootstrapper->bootstrap(in, out, second), foreign);
        EXPECT_REFUSED(bootstrapper->bootstrapExtended(in, out, second), foreign);
        EXPECT_REFUSED(bootstrapper->levelDownAndSlotToCoeff(in, out), foreign);
        in.setEncodingType(EncodingType::Coefficient);
        EXPECT_REFUSED(bootstrapper->halfBoot(in, out, true), foreign);
        EXPECT_TRUE(sameWords(out, before));
        EXPECT_TRUE(sameWords(second, before));
    }
}

// 25 ciphertext primes and 5 temporary ones: between the two counts, at all of them, beyond.
TEST(BootstrapperForeignOperands, ALevelSetByHandBeyondTheChainIsRefused) {
    for (const u64 level : {25, 29, 30, 31, 100})
        for (const bool isModUp : {false, true}) {
            SCOPED_TRACE(testing::Message() << "level " << level << (isModUp ? ", mod-up" : ""));
            Ciphertext in = isModUp ? Ciphertext(toy().context, true) : toy().encrypt(Message(5, 0.5), 5);
            in.setLevel(level);
            expectRefused(in);
        }
}

TEST(BootstrapperForeignOperands, ACiphertextOfOtherPrimesIsRefused) {
    const Context other = makeContext(6, 5, 50, 40, 51, 1);
    Ciphertext in(other);
    Encryptor(other).encrypt(Message(5, 0.5), SecretKey(other), in);
    expectRefused(in);
}

TEST(BootstrapperForeignOperands, TheStepsRefuseThemToo) {
    Ciphertext in(makeContext(6, 1, 50, 40, 51, 1)), out(toy().context);
    EXPECT_REFUSED(boot().batched.levelRecover(in, out), foreign);
}

} // namespace
} // namespace Torvo
