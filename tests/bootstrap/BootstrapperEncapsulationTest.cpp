#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/NewThread.hpp"
#include "support/ScriptedEntropy.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <complex>
#include <optional>

namespace Torvo {
namespace {

const Context& sparseContext() {
    return test::contextOf(ParameterPreset::SGd0);
}

/// The one pair of presets with encapsulation, at one slot, which needs the fewest rotation keys.
struct Encapsulated {
    static const Encapsulated& get() {
        static const Encapsulated made;
        return made;
    }

    Context context = test::contextOf(ParameterPreset::FGd);
    SecretKey secretKey{context};
    KeyGenerator generator{context, sparseContext(), secretKey};
    KeyPack keys = generator.getKeyPack();
    HomEvaluator evaluator{context, keys};
    BootstrapperImpl bootstrapper{evaluator, sparseContext(), 0, true};
    test::ErrorModel errors{context};

    void genSwitchKeys() const {
        if (!keys.isSparseSecretEncapsulationKeyLoaded()) generator.genSparseSecretEncapsulationKey();
    }
    Ciphertext encrypt(const Message& message, u64 level) const {
        Ciphertext out(context);
        Encryptor(context).encrypt(message, secretKey, out, level, 0);
        return out;
    }
    Message decrypt(const Ciphertext& ciphertext) const {
        Message out;
        Decryptor(context).decrypt(ciphertext, secretKey, out);
        return out;
    }
    /// A ciphertext at level 0 in either form.
    Ciphertext low(const Message& message, bool ntt) const {
        Ciphertext out = encrypt(message, 0);
        if (!ntt)
            for (u64 i = 0; i < 2; ++i) context->primes.backwardNTT(out.getPoly(i), out.getPoly(i));
        return out;
    }
    /// One switch at `level`, with the roundings of a thin key; the dense one has larger roundings still.
    double switchError(u64 level) const {
        return errors.atLevel(errors.keySwitch() + errors.encryption(), level);
    }
};

const Encapsulated& pair() {
    return Encapsulated::get();
}

TEST(EncapsulationRealPreset, RefusesAContextThatIsNotThePartner) {
    const HomEvaluator& evaluator = pair().evaluator;
    EXPECT_REFUSED(Bootstrapper(evaluator, test::contextOf(ParameterPreset::FX), 99),
                   "[Bootstrapper] parameter of context and context_sparse does not match");
    EXPECT_REFUSED(Bootstrapper(evaluator, sparseContext(), 16), "log_slots should not exceed 15");
    EXPECT_TRUE(Bootstrapper(evaluator, sparseContext(), 1).isBootstrapReady(1));
    EXPECT_FALSE(Bootstrapper(evaluator, sparseContext(), 1, true).isBootstrapReady(15));
}

TEST(EncapsulationRealPreset, NeedsASecondContextForItsKey) {
    const SecretKey secretKey(pair().context);
    EXPECT_REFUSED(KeyGenerator(pair().context).genSparseSecretEncapsulationKey(),
                   "[KeyGenerator] The KeyGenerator was constructed without a default secret key");
    EXPECT_REFUSED(
        KeyGenerator(pair().context, secretKey).genSparseSecretEncapsulationKey(),
        "Key Generator is not constructed for the parameter supporting sparse secret encapsulation");
}

TEST(EncapsulationRealPreset, RefusesSizesAndMissingKeysInOrder) {
    const KeyPack empty(pair().context, sparseContext());
    const BootstrapperImpl keyless(HomEvaluator(pair().context, empty), sparseContext(), 0, true);
    const BootstrapperImpl contextless(pair().evaluator, std::nullopt, 0, true);
    Ciphertext in = pair().encrypt(Message(0, 0.5), 0), out = pair().encrypt(Message(0, 0.25), 1);
    const Ciphertext before = out;
    in.setNumPoly(3);
    EXPECT_REFUSED(keyless.switchKeyDTS(in, out, false), "Size should be 2");
    EXPECT_REFUSED(keyless.switchKeySTD(in, out, false), "Size should be 2");
    in.setNumPoly(2);
    const char* noKey = "Failed to load sparse secret encapsulation key";
    EXPECT_REFUSED(keyless.switchKeyDTS(in, out, false), noKey);
    EXPECT_REFUSED(keyless.switchKeySTD(in, out, false), noKey);
    EXPECT_REFUSED(contextless.switchKeyDTS(in, out, false), noKey);
    EXPECT_TRUE(test::sameWords(out, before));
}

TEST(EncapsulationRealPreset, SwitchesThereAndBackInEveryForm) {
    pair().genSwitchKeys();
    const Message m(0, {0.5, -0.25});
    const auto& b = pair().bootstrapper;
    for (const bool from : {false, true})
        for (const bool between : {false, true})
            for (const bool to : {false, true}) {
                SCOPED_TRACE(testing::Message() << from << between << to);
                Ciphertext x = pair().low(m, from), y(pair().context);
                b.switchKeyDTS(x, y, between);
                EXPECT_EQ(y.getContext(), pair().context);
                EXPECT_EQ(y.getLevel(), 0U);
                EXPECT_EQ(y.getLogSlots(), 0U);
                EXPECT_EQ(y.getPoly(0).isNTT(), between);
                EXPECT_EQ(y.getPoly(1).isNTT(), between);
                // No longer under the dense secret, with which it decrypts to uniform noise modulo q0.
                EXPECT_GT(std::abs(pair().decrypt(y)[0] - m[0]), 1.0);
                b.switchKeySTD(y, x, to);
                EXPECT_EQ(x.getPoly(0).isNTT(), to);
                EXPECT_EQ(x.getPoly(1).isNTT(), to);
                EXPECT_EQ(x.getRescaleCounter(), 0);
                EXPECT_LT(test::maxError(pair().decrypt(x), m), 4 * pair().switchError(0));
                // In place the first element is copied before it is lost.
                b.switchKeySTD(y, y, to);
                EXPECT_TRUE(test::sameWords(x, y));
                x = pair().low(m, from);
                b.switchKeyDTS(x, y, between);
                b.switchKeyDTS(x, x, between);
                EXPECT_TRUE(test::sameWords(x, y));
            }
}

TEST(EncapsulationRealPreset, KeepsSlotsAndDebtsOfWhatItSwitches) {
    pair().genSwitchKeys();
    Ciphertext in = pair().encrypt(Message(3, 0.5), 2), out = pair().low(Message(1, 0.25), false);
    in.setRescaleCounter(1);
    out.setNumPoly(3); // what it held before is lost
    pair().bootstrapper.switchKeySTD(in, out, true);
    EXPECT_EQ(out.getNumPoly(), 2U);
    EXPECT_EQ(out.getLevel(), 2U);
    EXPECT_EQ(out.getLogSlots(), 3U);
    EXPECT_EQ(out.getRescaleCounter(), 1);
    in = pair().low(Message(3, 0.5), true);
    pair().bootstrapper.switchKeyDTS(in, out, true);
    EXPECT_EQ(out.getLogSlots(), 3U);
    EXPECT_EQ(out.getLevel(), 0U);
    in = pair().encrypt(Message(3, 0.5), 1);
    EXPECT_REFUSED(pair().bootstrapper.switchKeyDTS(in, out, true),
                   "The level of input ciphertext does not fit in current context");
}

TEST(EncapsulationRealPreset, RaisesUnderTheSparseSecretWithSmallMultiples) {
    pair().genSwitchKeys();
    const Message m(0, {0.5, -0.25});
    Ciphertext t(pair().context);
    pair().bootstrapper.switchKeyDTS(pair().low(m, true), t, false);
    pair().bootstrapper.levelRecover(t, t); // takes it without a transform
    EXPECT_EQ(t.getLevel(), 24U);
    pair().bootstrapper.switchKeySTD(t, t, true);
    EXPECT_TRUE(t.isNTT());
    EXPECT_EQ(t.getLevel(), 24U);
    // The phase m + q0 I is a sum of residues uniform in (-q0/2, q0/2), one for b and one for each
    // coefficient of the secret that is not zero: of deviation sqrt(33 / 12) = 1.7 q0, so that the largest of
    // 65536 exceeds 12 q0 with chance 1e-7. With the dense secret's 193 terms, of deviation 4 q0, about 180
    // would.
    t.setLogSlots(15);
    Plaintext phase(pair().context);
    Decryptor(pair().context).decrypt(t, pair().secretKey, phase);
    pair().context->primes.backwardNTT(phase.getMx(), phase.getMx());
    const double q0 = static_cast<double>(pair().context->primes.getPrime(0));
    // This is far below the product of two primes.
    const u64 p = pair().context->primes.getPrime(1), q = pair().context->primes.getPrime(24);
    double largest = 0;
    for (u64 k = 0; k < 65536; ++k) {
        // x = x_q + q * ((x_p - x_q) / q mod p), centred.
        const u64 xq = phase.getMx().getRow(24)[k], xp = phase.getMx().getRow(1)[k];
        const u64 inverse = test::widePower(q % p, p - 2, p);
        const u64 quotient = test::wideMul(test::wideSub(xp, xq % p, p), inverse, p);
        const double x = static_cast<double>(xq) +
                         static_cast<double>(q) *
                             (quotient > p / 2 ? static_cast<double>(quotient) - static_cast<double>(p)
                                               : static_cast<double>(quotient));
        largest = std::max(largest, std::abs(x));
    }
    EXPECT_LE(largest / q0, 12.0);
    EXPECT_GE(largest / q0, 4.0); // and there are multiples
}

TEST(EncapsulationRealPreset, BootstrapsAndTakesAnyNewKey) {
    // The fold of one slot to 2^15 takes a rotation by each power of two.
    pair().generator.genMultKey();
    pair().generator.genConjKey();
    pair().generator.genRotKeysForBootstrap(0, true);
    pair().genSwitchKeys();
    const Message m(0, {0.75, -0.5});
    const Ciphertext in = pair().encrypt(m, 3);
    const test::BootErrorModel errors(pair().context, pair().bootstrapper.getParameter());
    const double bound = errors.complexBound(0.75);
    for (int repeat = 0; repeat < 2; ++repeat) {
        const auto key = pair().keys.getSparseSecretEncapsulationKey();
        Ciphertext out(pair().context);
        pair().bootstrapper.bootstrap(in, out, true);
        EXPECT_EQ(out.getLevel(), 12U);
        EXPECT_LT(test::maxError(pair().decrypt(out), m), bound);
        // Both halves of a key are used within one bootstrap: a new one changes nothing for ciphertexts.
        pair().generator.genSparseSecretEncapsulationKey();
        EXPECT_NE(pair().keys.getSparseSecretEncapsulationKey(), key);
    }
}

// The sparse secret is discarded, but its seed would reveal it. So the masks that are drawn after it come
// from another seed, and the sparse secret does not come from the seed in the thread's last key file.
TEST(EncapsulationRealPreset, TheSparseSecretHasASeedOfItsOwn) {
    pair();
    test::onNewThread([] {
        threadGenerator()();
        const auto before = getSeed();
        const test::ScriptedEntropy entropy({});
        pair().generator.genSparseSecretEncapsulationKey();
        EXPECT_EQ(entropy.callCount(), 2U);
        EXPECT_NE(getSeed(), before);
        EXPECT_GT(threadGenerator().getIndex(), 0U) << "masks and errors were drawn from the last seed";
        setSeed({1, 2, 3, 4});
        pair().generator.genSparseSecretEncapsulationKey();
        EXPECT_EQ(entropy.callCount(), 2U) << "for reproducible tests";
        EXPECT_EQ(getSeed(), (std::array<unsigned long, 4>{1, 2, 3, 4}));
    });
}

} // namespace
} // namespace Torvo
