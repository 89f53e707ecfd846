#include "ring/RingKeyGenerator.hpp"
#include "context/LWEContextContent.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/KeyEquation.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

namespace Torvo {

namespace {

using namespace test;

const char* const withoutSecretKey =
    "[KeyGenerator] The KeyGenerator was constructed without a default secret key";
const char* const incompatible = "The given two contexts are not compatible at any level";

/// Coefficient `c` of component `i` of a key.
template <class Key>
long coefficientOf(const Key& key, u64 degree, u64 i, u64 c) {
    return key.getCoefficients()[i * degree + c];
}

SmallPolynomial coefficientsOf(const SecretKey& key) {
    return test::coefficientsOf(key, getDegree(key.getContext()));
}

/// s(X^k) in a ring of degree n: coefficient c stands at c * k.
SmallPolynomial embedded(const SecretKey& key, u64 n) {
    const u64 degree = getDegree(key.getContext()), k = n / degree;
    SmallPolynomial out(n);
    for (u64 c = 0; c < degree; ++c) out[c * k] = coefficientOf(key, degree, 0, c);
    return out;
}

/// The output key of a packing: coefficient c of component i stands at c * rank + i.
template <EncryptionType E>
SmallPolynomial interleaved(const SecretKeyBase<E>& key) {
    const u64 degree = getDegree(key.getContext()), rank = getRank(key.getContext());
    SmallPolynomial out(rank * degree);
    for (u64 i = 0; i < rank; ++i)
        for (u64 c = 0; c < degree; ++c) out[c * rank + i] = coefficientOf(key, degree, i, c);
    return out;
}

/// Group k of an input key of components of `degree`, in a ring of degree n: coefficient c of component
/// k * outRank + i stands at i + c * r with r = n / degree.
template <class Key>
SmallPolynomial groupOf(const Key& key, u64 degree, u64 k, u64 outRank, u64 n) {
    SmallPolynomial out(n);
    for (u64 i = 0; i < outRank; ++i)
        for (u64 c = 0; c < degree; ++c)
            out[i + c * (n / degree)] = coefficientOf(key, degree, k * outRank + i, c);
    return out;
}

void expectRingSwitchKey(const RingSwitchKey& key, const Context& context, const SmallPolynomial& to,
                         const SmallPolynomial& from) {
    EXPECT_EQ(key.getContext(), context);
    EXPECT_EQ(key.getKey().getType(), 'w');
    EXPECT_EQ(key.getKey().getRotationIndex(), 0U);
    expectSwitches(context, key.getKey(), to, from);
}

/// All keys of a bundle, or those of `which`.
template <class Key, EncryptionType E>
void expectPackingKeys(const ModPackKeyBundle& keys, const Context& ring, const Key& in, u64 inDegree,
                       u64 numKeys, const SecretKeyBase<E>& out, std::vector<u64> which = {}) {
    ASSERT_EQ(keys.getNumKeys(), numKeys);
    EXPECT_EQ(keys.getContext(), ring);
    const bool all = which.empty();
    for (u64 k = 0; all && k < numKeys; ++k) which.push_back(k);
    const SmallPolynomial to = interleaved(out);
    for (const u64 k : which) {
        SCOPED_TRACE("key " + std::to_string(k));
        const auto key = keys.getModPackKey(k);
        EXPECT_EQ(key->getType(), 'p');
        EXPECT_EQ(key->getRotationIndex(), 0U);
        EXPECT_EQ(key->getContext(), ring);
        expectSwitches(ring, *key, to, groupOf(in, inDegree, k, getRank(out.getContext()), getDegree(ring)));
    }
}

} // namespace

TEST(KeyGeneratorRing, TheComposeKeySwitchesFromTheSecretAtAPowerOfXToTheGenerators) {
    const Context ring = familyRing(8, 3);
    const SecretKey s(ring);
    const KeyGenerator generator(ring, s);
    for (const u64 logDegree : {6, 7, 8}) { // k = 4, 2 and 1
        for (const u64 chainLength : {1, 3}) {
            const SecretKey small(familyRing(logDegree, chainLength));
            expectRingSwitchKey(generator.genComposeKey(small), ring, coefficientsOf(s),
                                embedded(small, 256));
        }
    }
    EXPECT_FALSE(generator.getKeyPack().isMultKeyLoaded());
}

TEST(KeyGeneratorRing, TheDecomposeKeySwitchesFromTheGeneratorsToTheSecretAtAPowerOfX) {
    const Context ring = familyRing(8, 3);
    const SecretKey s(ring);
    const KeyGenerator generator(ring, s);
    for (const u64 logDegree : {6, 7, 8}) {
        for (const u64 chainLength : {1, 2}) {
            const Context switchContext = familyRing(8, chainLength);
            const SecretKey small(familyRing(logDegree, chainLength));
            expectRingSwitchKey(generator.genDecomposeKey(switchContext, small), switchContext,
                                embedded(small, 256), coefficientsOf(s));
        }
    }
}

TEST(KeyGeneratorRing, AModuleIsPackedIntoAModule) {
    const Context ring = familyRing(8, 2);
    struct Shape {
        u64 outLogDegree, outRank, inLogDegree, inRank;
    };
    for (const Shape shape : {Shape{7, 2, 6, 4}, Shape{6, 4, 6, 12}, Shape{7, 2, 6, 2}, Shape{6, 4, 6, 4}}) {
        const SecretKeyBase<MLWE> in(familyModule(shape.inLogDegree, 2, shape.inRank));
        const SecretKeyBase<MLWE> out(familyModule(shape.outLogDegree, 2, shape.outRank));
        SCOPED_TRACE(testing::Message() << "rank " << shape.inRank << " to " << shape.outRank);
        expectPackingKeys(KeyGenerator(ring).genModPackKeyBundle(in, out), ring, in,
                          u64{1} << shape.inLogDegree, shape.inRank / shape.outRank, out);
    }
}

TEST(KeyGeneratorRing, AModuleIsPackedIntoARing) {
    const Context ring = familyRing(8, 3);
    const SecretKey out(familyRing(8, 2));
    for (const u64 inRank : {1, 3}) {
        const SecretKeyBase<MLWE> in(familyModule(7, 2, inRank));
        expectPackingKeys(KeyGenerator(ring).genModPackKeyBundle(in, out), ring, in, 128, inRank, out);
    }
}

TEST(KeyGeneratorRing, PlainLWEIsPackedIntoARingAndIntoAModule) {
    const LWE::SecretKey in(LWE::makeContext(LWE::ParameterPreset::SD3));
    const Context ring = smallRingOfSD3();
    const SecretKey out(ring);
    expectPackingKeys(KeyGenerator(ring).genModPackKeyBundle(in, out), ring, in, 1, 32, out);
    const SecretKeyBase<MLWE> module(ring);
    expectPackingKeys(KeyGenerator(ring).genModPackKeyBundle(in, module), ring, in, 1, 32, module);
}

TEST(KeyGeneratorRing, PresetsOfOneFamilyArePackedIntoEachOther) {
    const Context ring = contextOf(ParameterPreset::FGbD12L0);
    const KeyGenerator generator(ring);
    const SecretKeyBase<MLWE> low(contextOf(ParameterPreset::FGbD6R6L0));
    const LWE::SecretKey lwe(LWE::makeContext(LWE::ParameterPreset::FGbD12L0));
    expectPackingKeys(generator.genModPackKeyBundle(lwe, low), ring, lwe, 1, 64, low, {0, 63});
    const SecretKeyBase<MLWE> high(contextOf(ParameterPreset::FGbD8R4L0));
    expectPackingKeys(generator.genModPackKeyBundle(low, high), ring, low, 64, 4, high, {3});
}

TEST(KeyGeneratorRing, UniformPartsKeepTheirGermsAndEachKeyIsDrawnAnew) {
    const Context ring = familyRing(6, 2);
    const SecretKey s(ring);
    const KeyGenerator generator(ring, s);
    const SecretKeyBase<MLWE> in(familyModule(6, 2, 2));
    const auto keys = generator.genModPackKeyBundle(in, s);
    std::set<std::vector<u64>> first;
    const auto look = [&](const EvaluationKey& key) {
        EXPECT_TRUE(key.getAxIter(Device{})->getGerm().has_value());
        first.insert(wordsOf(*key.getAxIter(Device{}), 0));
    };
    look(*keys.getModPackKey(0));
    look(*keys.getModPackKey(1));
    look(generator.genComposeKey(s).getKey());
    look(generator.genDecomposeKey(ring, s).getKey());
    EXPECT_EQ(first.size(), 4U);
    setSeed({1, 2, 3, 4});
    const RingSwitchKey key = generator.genComposeKey(s);
    setSeed({1, 2, 3, 4});
    const RingSwitchKey again = generator.genComposeKey(s);
    EXPECT_EQ(wordsOf(*key.getKey().getBxIter(Device{}), 0), wordsOf(*again.getKey().getBxIter(Device{}), 0));
}

namespace {

/// The germs of all digits, then their errors: what a switching key takes from the thread's generator, in
/// this order and nothing else, with the generator in its state before the key was made.
void expectDrawnNext(const EvaluationKey& key, const Context& ring, const SmallPolynomial& to,
                     const SmallPolynomial& from) {
    const Polynomial *ax = key.getAxIter(Device{}), *bx = key.getBxIter(Device{});
    const u64 p = getPrimeList(ring)[0];
    for (u64 j = 0; j < key.getGadgetRank(); ++j)
        EXPECT_EQ(ax[j].getGerm()->getWords(), PolyGerm().getWords()) << "digit " << j;
    for (u64 j = 0; j < key.getGadgetRank(); ++j) {
        Polynomial error(ring, true, false);
        RandomSampler().sampleGaussian(error, ring);
        EXPECT_EQ(errorOfDigit(ring, bx[j], ax[j], to, from, j, 0), centred(wordsOf(error, 0), p))
            << "digit " << j;
    }
}

} // namespace

TEST(KeyGeneratorRing, DrawsGermsThenErrorsKeyByKey) {
    const Context ring = familyRing(7, 2);
    const SecretKey s(ring), small(familyRing(6, 2));
    const SecretKeyBase<MLWE> in(familyModule(6, 2, 4)), out(familyModule(6, 2, 2));
    const KeyGenerator generator(ring, s);

    setSeed({5, 6, 7, 8});
    const RingSwitchKey compose = generator.genComposeKey(small);
    const RingSwitchKey decompose = generator.genDecomposeKey(ring, small);
    const ModPackKeyBundle bundle = generator.genModPackKeyBundle(in, out);
    const u64 next = threadGenerator()();

    setSeed({5, 6, 7, 8});
    expectDrawnNext(compose.getKey(), ring, coefficientsOf(s), embedded(small, 128));
    expectDrawnNext(decompose.getKey(), ring, embedded(small, 128), coefficientsOf(s));
    for (const u64 k : {0, 1})
        expectDrawnNext(*bundle.getModPackKey(k), ring, interleaved(out), groupOf(in, 64, k, 2, 128));
    EXPECT_EQ(threadGenerator()(), next);
}

TEST(KeyGeneratorRing, ComposeKeysAreRefusedInOrder) {
    const Context ring = familyRing(7, 2);
    const KeyGenerator generator(ring, SecretKey(ring)), keyless(ring);
    const SecretKey larger(strangerRing(8)); // every rule is broken at once, then every one but the first
    EXPECT_REFUSED(keyless.genComposeKey(larger), withoutSecretKey);
    EXPECT_REFUSED(
        generator.genComposeKey(larger),
        "[genComposeKey] The degree of input ciphertext does not divide the RLWE encryption degree");
    const std::string primes =
        "[genComposeKey] The encryption primes of the ciphertext to switch from is not "
        "subset of the primes of the RLWE encryption";
    EXPECT_REFUSED(generator.genComposeKey(SecretKey(distantRing(6))), primes);
    EXPECT_REFUSED(generator.genComposeKey(SecretKey(familyRing(6, 3))), primes); // one prime too many
    EXPECT_REFUSED(generator.genComposeKey(SecretKey(strangerRing(6))), incompatible);
}

TEST(KeyGeneratorRing, DecomposeKeysAreRefusedInOrder) {
    const Context ring = familyRing(7, 2);
    const KeyGenerator generator(ring, SecretKey(ring)), keyless(ring);
    const Context smaller = strangerRing(6), same = distantRing(7);
    const SecretKey larger(distantRing(8)), longer(familyRing(6, 3)), fitting(familyRing(6, 2));
    EXPECT_REFUSED(keyless.genDecomposeKey(smaller, larger), withoutSecretKey);
    EXPECT_REFUSED(
        generator.genDecomposeKey(smaller, larger),
        "[genDecomposeKey] The degree of the switch key is not same to the RLWE encryption degree");
    EXPECT_REFUSED(generator.genDecomposeKey(same, larger),
                   "[genDecomposeKey] The degree of output ciphertexts does not divide the degree of "
                   "ciphertext to switch to");
    EXPECT_REFUSED(generator.genDecomposeKey(same, longer),
                   "[genDecomposeKey] The encryption primes of the ciphertext to switch to is not subset of "
                   "the primes of the RLWE encryption");
    EXPECT_REFUSED(generator.genDecomposeKey(same, fitting),
                   "[genDecomposeKey] The encryption primes of the ciphertext to switch to is not subset of "
                   "the primes of the switching key");
    EXPECT_REFUSED(generator.genDecomposeKey(strangerRing(7), fitting), incompatible);
    EXPECT_REFUSED(generator.genDecomposeKey(ring, SecretKey(strangerRing(6))), incompatible);
}

namespace {

const char* const wrongDimension = "[genModPackKeyBundle] Total dimension of output secret key is not equal "
                                   "to the RLWE encryption dimension";
const char* const wrongDegree =
    "[genModPackKeyBundle] The degree of input secret key does not divide the degree of output secret key";
const char* const wrongRank =
    "[genModPackKeyBundle] The rank of output secret key does not divide the rank of input secret key";
const char* const wrongPrimes =
    "[genModPackKeyBundle] The encryption primes of the ciphertext to pack to is not subset of the primes of "
    "the switching key";
const char* const wrongOutputPrimes =
    "[genModPackKeyBundle] The encryption primes of the ciphertext to pack to is not subset of the primes of "
    "the output ciphertext";

} // namespace

TEST(KeyGeneratorRing, PackingKeysAreRefusedInOrder) {
    const Context ring = familyRing(8, 2);
    const KeyGenerator generator(ring);
    const auto pack = [&](u64 inLogDegree, u64 inChain, u64 inRank, const Context& out) {
        return generator.genModPackKeyBundle(SecretKeyBase<MLWE>(familyModule(inLogDegree, inChain, inRank)),
                                             SecretKeyBase<MLWE>(out));
    };
    Context distant = distantRing(6);
    distant->parameter.rank = 4;
    EXPECT_REFUSED(pack(7, 3, 3, familyModule(6, 2, 2)), wrongDimension);
    EXPECT_REFUSED(pack(7, 3, 3, distant), wrongDegree);
    EXPECT_REFUSED(pack(6, 3, 3, distant), wrongRank);
    EXPECT_REFUSED(pack(6, 3, 2, distant), wrongRank); // fewer components than the output has
    EXPECT_REFUSED(pack(6, 3, 4, distant), wrongPrimes);
    EXPECT_REFUSED(pack(6, 2, 4, distant), wrongOutputPrimes);
    EXPECT_NO_THROW(pack(6, 1, 4, distant));

    const SecretKeyBase<MLWE> in(familyModule(6, 2, 4));
    EXPECT_REFUSED(KeyGenerator(strangerRing(8)).genModPackKeyBundle(in, in), incompatible);
    // The same rules hold for an output of rank 1.
    EXPECT_REFUSED(generator.genModPackKeyBundle(in, SecretKey(familyRing(7, 2))), wrongDimension);
    EXPECT_REFUSED(generator.genModPackKeyBundle(in, SecretKey(distantRing(8))), wrongOutputPrimes);
}

TEST(KeyGeneratorRing, PackingKeysFromPlainLWEAreRefusedInOrder) {
    const LWE::SecretKey in(LWE::makeContext(LWE::ParameterPreset::SD3)); // dimension 32, level 3
    const Context ring = familyRing(8, 2);
    const KeyGenerator generator(ring);
    const auto moduleKey = [](u64 rank) { return SecretKeyBase<MLWE>(familyModule(6, 2, rank)); };
    EXPECT_REFUSED(generator.genModPackKeyBundle(in, moduleKey(3)), wrongDimension);
    EXPECT_REFUSED(generator.genModPackKeyBundle(in, SecretKey(familyRing(7, 2))), wrongDimension);
    EXPECT_REFUSED(generator.genModPackKeyBundle(in, moduleKey(4)), incompatible);
    const KeyGenerator large(contextOf(ParameterPreset::FGbD12L0));
    EXPECT_REFUSED(large.genModPackKeyBundle(in, SecretKeyBase<MLWE>(contextOf(ParameterPreset::FGbD6R6L0))),
                   wrongRank);

    // Contexts whose chains are cut short: the rules look at nothing else.
    const Context whole = smallRingOfSD3(), shortened = smallRingOfSD3();
    shortened->parameter.chain_length = 3;
    EXPECT_REFUSED(requireModPackKeyBundleCondition(shortened, in.getContext(), shortened), wrongPrimes);
    EXPECT_REFUSED(requireModPackKeyBundleCondition(whole, in.getContext(), shortened), wrongOutputPrimes);
    EXPECT_NO_THROW(requireModPackKeyBundleCondition(whole, in.getContext(), whole));
}

TEST(KeyGeneratorRing, TheLargeRingHasRankOne) {
    const std::string refusal = "[Secret Key] The number of RLWE secret key must be equal to one.";
    const Context module = familyModule(7, 1, 2);
    const SecretKeyBase<MLWE> in(familyModule(6, 1, 2));
    EXPECT_REFUSED(KeyGenerator(module).genModPackKeyBundle(in, in), refusal);
    const SecretKey s(familyRing(7, 1));
    EXPECT_REFUSED(KeyGenerator(s.getContext(), s).genDecomposeKey(module, s), refusal);
}

TEST(KeyGeneratorRing, TheRulesOfPackingStandUnderTheirName) {
    const Context ring = familyRing(7, 1), in = familyModule(6, 1, 2);
    EXPECT_NO_THROW(requireModPackKeyBundleCondition(ring, in, in));
    EXPECT_REFUSED(requireModPackKeyBundleCondition(familyRing(6, 1), in, in), wrongDimension);
}

} // namespace Torvo
