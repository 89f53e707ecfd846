// Files of objects that were saved in a state, or in a context, of which the loading one makes little: they
// are taken, and whatever is done with them behaves or is refused.

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace Torvo;
using namespace Torvo::test;

namespace {

const char* const otherRing = "Operands are not of the ring of the generated context.";

/// Calls that may have any result, but may throw only the library's own exceptions.
void expectNoHarm(const std::vector<std::function<void()>>& calls) {
    for (u64 i = 0; i < calls.size(); ++i) {
        try {
            calls[i]();
        } catch (const RuntimeException&) {
        } catch (const std::exception& failure) {
            ADD_FAILURE() << "call " << i << ": " << failure.what();
        }
    }
}

template <class T>
T reloaded(const T& object, const Context& context) {
    T loaded(context);
    loadFrom(saved(object), loaded);
    return loaded;
}

void callEverything(const Scheme& s, const Ciphertext& x) {
    const HomEvaluator& e = s.evaluator;
    const Ciphertext good = s.encrypt(Message(s.logFullSlots(), 0.5), 3);
    const Message message(s.logFullSlots(), 0.25);
    const Plaintext plain = s.encoder.encode(message, 3);
    Ciphertext out(s.context), inPlace = x;
    std::vector<Ciphertext> outs;
    Message slots;
    Plaintext settled(s.context);
    expectNoHarm({
        [&] { e.negate(x, out); },
        [&] { e.add(x, 0.5, out); },
        [&] { e.add(x, message, out); },
        [&] { e.add(x, plain, out); },
        [&] { e.add(x, good, out); },
        [&] { e.sub(good, x, out); },
        [&] { e.sub(x, x, out); },
        [&] { e.mult(x, 0.5, out); },
        [&] { e.mult(x, message, out); },
        [&] { e.mult(x, plain, out); },
        [&] { e.mult(x, x, out); },
        [&] { e.mult(good, x, out); },
        [&] { e.square(x, out); },
        [&] { e.tensor(x, x, out); },
        [&] { e.multImagUnit(x, out); },
        [&] { e.multInteger(x, 3, out); },
        [&] { e.multInteger(x, -3, out); },
        [&] { e.leftRotate(x, 1, out); },
        [&] { e.rightRotate(x, 3, out); },
        [&] { e.leftRotateReduce(x, 1, 4, out); },
        [&] {
            e.rotSum({x, x}, {1, 2}, out);
        },
        [&] { e.conjugate(x, out); },
        [&] { e.killImag(x, out); },
        [&] { e.levelDown(x, 0, out); },
        [&] { e.levelDownOne(x, out); },
        [&] { e.inverseRescale(inPlace); },
        [&] { e.rescale(inPlace); },
        [&] { s.decryptor.decrypt(x, s.secretKey, slots); },
        [&] { s.decryptor.decrypt(x, s.secretKey, settled); },
        [&] { s.decryptor.partialDecrypt(x, s.secretKey, out); },
        [&] { Ciphertext(s.context, x); },
        [&] { static_cast<void>(x.getNumberOfSlots()); },
    });
}

void callEverything(const Scheme& s, const Plaintext& x) {
    const HomEvaluator& e = s.evaluator;
    Plaintext out(s.context), inPlace = x;
    Ciphertext encrypted(s.context);
    expectNoHarm({
        [&] { s.encoder.decode(x); },
        [&] { s.encoder.decodeWithoutFFT(x); },
        [&] { s.encryptor.encrypt(x, s.keys, encrypted); },
        [&] { s.encryptor.encrypt(x, s.secretKey, encrypted); },
        [&] { e.add(x, x, out); },
        [&] { e.mult(x, x, out); },
        [&] { e.mult(x, 0.5, out); },
        [&] { e.multImagUnit(x, out); },
        [&] { e.multInteger(x, -3, out); },
        [&] { e.leftRotate(x, 1, out); },
        [&] { e.conjugate(x, out); },
        [&] { e.relevel(x, 2, out); },
        [&] { e.rescale(inPlace); },
        [&] { e.inverseRescale(inPlace); },
        [&] { static_cast<void>(x.isZero()); },
    });
}

const Scheme& toy() {
    return Scheme::of(ParameterPreset::FX);
}

/// A ciphertext, and a plaintext, with data in all rows of `level`, which may be any.
Ciphertext atLevel(u64 level) {
    Ciphertext x(toy().context);
    x.setLevel(level);
    for (u64 i = 0; i < 2; ++i)
        std::fill(x.getPoly(i).getData().begin(), x.getPoly(i).getData().end(), i + 1);
    return x;
}

Plaintext plaintextAtLevel(u64 level) {
    Plaintext x(toy().context);
    x.setLevel(level);
    std::fill(x.getMx().getData().begin(), x.getMx().getData().end(), 7);
    return x;
}

/// The chain of the toy preset has 25 primes, and 5 temporary ones follow.
const std::vector<u64> levels{0, 24, 25, 29, 30, 31, 70};
const std::vector<u64> logSlots{0, 5, 6, 20, 31, 32, 62, 63, 64, 65, 1000, ~u64{0}};

TEST(LoadedOperands, OfAnyLevelComeBackAsTheyWereSaved) {
    for (const u64 level : levels) {
        SCOPED_TRACE(level);
        const Ciphertext x = atLevel(level);
        const Plaintext p = plaintextAtLevel(level);
        EXPECT_EQ(saved(reloaded(x, toy().context)), saved(x));
        EXPECT_EQ(saved(reloaded(p, toy().context)), saved(p));
        EXPECT_EQ(reloaded(x, toy().context).getLevel(), level);
    }
}

TEST(LoadedOperands, OfAnyLevelDoNoHarm) {
    for (const u64 level : levels) {
        SCOPED_TRACE(level);
        callEverything(toy(), reloaded(atLevel(level), toy().context));
        callEverything(toy(), reloaded(plaintextAtLevel(level), toy().context));
    }
}

TEST(LoadedOperands, AboveTheChainAreNotSwitched) {
    const KeyGenerator generator(toy().context, toy().secretKey, toy().keys);
    generator.genLeftRotKey(1);
    Ciphertext out(toy().context);
    for (const u64 level : {25, 29, 30}) {
        SCOPED_TRACE(level);
        const Ciphertext x = reloaded(atLevel(level), toy().context);
        EXPECT_REFUSED(toy().evaluator.leftRotate(x, 1, out), otherRing);
        EXPECT_REFUSED(toy().evaluator.conjugate(x, out), otherRing);
        EXPECT_REFUSED(toy().evaluator.mult(x, x, out), otherRing);
    }
    EXPECT_REFUSED(toy().evaluator.multInteger(atLevel(30), -3, out), otherRing);
    EXPECT_REFUSED(toy().evaluator.multImagUnit(atLevel(30), out), otherRing);
    EXPECT_REFUSED(toy().decryptor.partialDecrypt(atLevel(30), toy().secretKey, out), otherRing);
}

TEST(LoadedOperands, OfAnyLogSlotsComeBackAsTheyWereSaved) {
    for (const u64 log : logSlots) {
        SCOPED_TRACE(log);
        Ciphertext x = atLevel(2);
        Plaintext p = plaintextAtLevel(2);
        x.setLogSlots(log);
        p.setLogSlots(log);
        EXPECT_EQ(saved(reloaded(x, toy().context)), saved(x));
        EXPECT_EQ(saved(reloaded(p, toy().context)), saved(p));
        EXPECT_EQ(reloaded(p, toy().context).getLogSlots(), log);
        callEverything(toy(), reloaded(x, toy().context));
        callEverything(toy(), reloaded(p, toy().context));
    }
}

TEST(LoadedOperands, HaveANumberOfSlotsOnlyWhereAWordHoldsIt) {
    Ciphertext x(toy().context), out(toy().context);
    Plaintext p(toy().context);
    x.setLogSlots(63);
    EXPECT_EQ(x.getNumberOfSlots(), u64{1} << 63);
    x.setLogSlots(64);
    p.setLogSlots(~u64{0});
    EXPECT_REFUSED(x.getNumberOfSlots(),
                   "The number of slots of log slots 64 does not fit a word; set log slots below 64");
    EXPECT_REFUSED(toy().evaluator.leftRotate(x, 1, out),
                   "The number of slots of log slots 64 does not fit a word; set log slots below 64");
    EXPECT_REFUSED(p.getNumberOfSlots(),
                   "The number of slots of log slots 18446744073709551615 does not fit a "
                   "word; set log slots below 64");
}

TEST(LoadedOperands, MayHaveAnyNumberOfPolynomials) {
    for (const u64 count : {2, 16, 17, 100}) {
        Ciphertext x = atLevel(0);
        x.setNumPoly(count);
        const Ciphertext loaded = reloaded(x, toy().context);
        EXPECT_EQ(loaded.getNumPoly(), count);
        EXPECT_TRUE(sameWords(loaded, x));
        callEverything(toy(), loaded);
    }
}

// ---- the same primes, divided otherwise into those of ciphertexts and temporary ones

/// A ring of two ciphertext primes and a temporary one, as one that has `numBase` of the first kind.
Context ofSplit(u64 numBase) {
    auto content = std::make_shared<ContextContent>(CustomSizes{6, 2, 50, 40, 60, 2}, std::set<Device>{});
    Parameter& parameter = content->parameter;
    parameter.chain_length = numBase;
    parameter.numTP = 3 - numBase;
    parameter.numQP = numBase - 1;
    parameter.gadget_rank = 1;
    parameter.encryption_level = numBase - 1;
    return content;
}

SecretKey keyUnder(const Context& context, const std::string& file) {
    std::istringstream stream(file);
    return SecretKey(context, stream);
}

TEST(OperandsOfAnotherSplit, AreOfTheRingOnceTheyAreLoaded) {
    const Context theirs = ofSplit(2), ours = ofSplit(1);
    const SecretKey key(theirs);
    Seeded random(5);
    SCOPED_TRACE(random.describe());
    const Message message = random.message(getLogFullSlots(theirs));
    for (const auto& [from, to] : {std::pair(theirs, ours), std::pair(ours, theirs)}) {
        const Plaintext encoded = EnDecoder(from).encode(message, 0);
        Ciphertext encrypted(from);
        const SecretKey fromKey = keyUnder(from, saved(key));
        Encryptor(from).encrypt(encoded, fromKey, encrypted);

        const Ciphertext loaded = reloaded(encrypted, to);
        EXPECT_EQ(loaded.getPoly(0).getNumBase(), to->parameter.chain_length);
        const SecretKey toKey = keyUnder(to, saved(fromKey));
        Message back;
        Decryptor(to).decrypt(loaded, toKey, back);
        EXPECT_LT(maxError(back, message), 0x1p-20);
        EXPECT_LT(maxError(EnDecoder(to).decode(reloaded(encoded, to)), message), 0x1p-30);
        EXPECT_EQ(saved(reloaded(loaded, to)), saved(loaded));
        EXPECT_EQ(saved(keyUnder(to, saved(toKey))), saved(toKey));
    }
}

// Level 1 is the top of theirs, and the place of a temporary prime of ours.
TEST(OperandsOfAnotherSplit, MayLieAboveTheChain) {
    const Context theirs = ofSplit(2), ours = ofSplit(1);
    const Plaintext encoded = EnDecoder(theirs).encode(Message(getLogFullSlots(theirs), 0.5), 1);
    const Plaintext loaded = reloaded(encoded, ours);
    EXPECT_EQ(loaded.getLevel(), 1U);
    EXPECT_REFUSED(EnDecoder(ours).decode(loaded), otherRing);
    EXPECT_REFUSED(Ciphertext(ours, reloaded(Ciphertext(theirs), ours)),
                   "The level of input ciphertext does not fit in current context");
}

// Its rows are multiples of another product of temporary primes.
TEST(OperandsOfAnotherSplit, StayOfItInTheModUpState) {
    const Context theirs = ofSplit(2), ours = ofSplit(1);
    Ciphertext x(theirs, true), out(ours, true);
    for (u64 i = 0; i < 2; ++i) fillWithNumbers(x.getPoly(i), 1000 * i);
    const Ciphertext loaded = reloaded(x, ours);
    EXPECT_EQ(saved(loaded), saved(x));
    EXPECT_EQ(loaded.getPoly(0).getNumBase(), 2U);
    const HomEvaluator evaluator(ours, KeyPack(ours));
    const SecretKey key(ours);
    Plaintext plaintext(ours);
    EXPECT_REFUSED(evaluator.negate(loaded, out), otherRing);
    EXPECT_REFUSED(evaluator.add(loaded, loaded, out), otherRing);
    EXPECT_REFUSED(evaluator.multInteger(loaded, 3, out), otherRing);
    EXPECT_REFUSED(Decryptor(ours).decrypt(loaded, key, plaintext), otherRing);
}

} // namespace
