// The files of tests/archives, written once: every later version loads them, finds in them what was put
// there, and writes the same bytes again.

#include "support/Archives.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/KeyEquation.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Scheme.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using namespace test;
using ModuleSecretKey = SecretKeyBase<EncryptionType::MLWE>;

std::string pathOf(const std::string& name) {
    return std::string(TORVO_ARCHIVES) + "/" + name;
}

std::string archived(const std::string& name) {
    const std::string content = contentOf(pathOf(name));
    EXPECT_FALSE(content.empty()) << name;
    return content;
}

Context contextFrom(const std::string& name) {
    return makeContextFromFile(pathOf(name));
}

/// Loads a file into `object`, which then saves as that file.
template <class T>
void loadArchive(const std::string& name, T& object) {
    loadFrom(archived(name), object);
    EXPECT_EQ(saved(object), archived(name)) << name;
}

template <class T>
T loadedFrom(const std::string& name, T object) {
    loadArchive(name, object);
    return object;
}

template <class Key, class AnyContext>
Key fullKey(const AnyContext& context, const std::string& name) {
    Key key(context, pathOf(name));
    EXPECT_EQ(saved(key), archived(name)) << name;
    return key;
}

template <class Key, class AnyContext>
Key regrownKey(const AnyContext& context, const std::string& name) {
    Key key(context, pathOf(name));
    EXPECT_EQ(bytesOf([&](std::ostream& stream) { key.saveSeedOnly(stream); }), archived(name)) << name;
    return key;
}

/// The ring of most files and their secret key.
struct Ring64 {
    Context context = contextFrom("ring.context");
    SecretKey secretKey{fullKey<SecretKey>(context, "secret_key.bin")};
    SmallPolynomial s = coefficientsOf(secretKey, 64);
    Decryptor decryptor{context};
    ErrorModel errors{context};

    Ciphertext ciphertext(const std::string& name) const { return loadedFrom(name, Ciphertext(context)); }
    EvaluationKey key(const std::string& name) const {
        return loadedFrom(name, EvaluationKey(context, 'x', 0));
    }
    Message decrypt(const Ciphertext& ciphertext) const {
        Message message;
        decryptor.decrypt(ciphertext, secretKey, message);
        return message;
    }
    /// An error of the slots of a fresh ciphertext at `level`.
    double fresh(u64 level) const {
        return errors.atLevel(errors.encryption(), level) + ErrorModel::relative;
    }
};

u64 powerOfFive(u64 exponent) {
    u64 power = 1;
    for (u64 i = 0; i < exponent; ++i) power = power * 5 % 128;
    return power;
}

TEST(Archives, ContextsHaveThePrimesTheyHad) {
    const auto expectContext = [](const std::string& name, u64 degree, u64 rank,
                                  const std::vector<u64>& primes) {
        const TemporaryDirectory directory;
        const Context context = contextFrom(name);
        EXPECT_EQ(getDegree(context), degree) << name;
        EXPECT_EQ(getRank(context), rank) << name;
        EXPECT_EQ(getPrimeList(context), primes) << name;
        saveContextToFile(context, directory.path() + "/again.context");
        EXPECT_EQ(contentOf(directory.path() + "/again.context"), archived(name));
    };
    expectContext("ring.context", 64, 1, {1125899906840833, 1099511623297, 1152921504606844289});
    expectContext("partner.context", 64, 1, {1125899906840833, 2251799813684353});
    expectContext("narrow.context", 64, 1, {1152921504606844417, 576460752303421441, 2305843009213689089});
    expectContext("wide.context", 128, 1, {1152921504606844417, 576460752303421441, 2305843009213689089});
    expectContext("module.context", 64, 4,
                  {140737487306753, 2199020634113, 2199023190017, 2199023288321, 140737488273409});
}

TEST(Archives, MessageHoldsItsSlots) {
    const Message expected = archives::message(3), message = loadedFrom("message.bin", Message());
    ASSERT_EQ(message.getSize(), expected.getSize());
    for (u64 i = 0; i < message.getSize(); ++i) EXPECT_EQ(message[i], expected[i]) << i;
}

TEST(Archives, PlaintextHoldsItsMessage) {
    const Ring64 ring;
    const Plaintext plaintext = loadedFrom("plaintext.bin", Plaintext(ring.context));
    EXPECT_EQ(plaintext.getRescaleCounter(), 1);
    EXPECT_EQ(plaintext.getLevel(), 1U);
    const double bound = ring.errors.atLevel(ring.errors.rescale(), 0) + ErrorModel::relative;
    EXPECT_LE(maxError(EnDecoder(ring.context).decode(plaintext), archives::message(3)), bound);
}

TEST(Archives, SecretKeysRegrowFromTheirSeeds) {
    const Ring64 ring;
    const auto regrown = regrownKey<SecretKey>(ring.context, "secret_key_seed.bin");
    EXPECT_EQ(coefficientsOf(regrown, 64), ring.s);
    EXPECT_EQ(saved(regrown), archived("secret_key.bin"));

    const Context module = contextFrom("module.context");
    const auto full = fullKey<ModuleSecretKey>(module, "module_secret_key.bin");
    EXPECT_EQ(saved(regrownKey<ModuleSecretKey>(module, "module_secret_key_seed.bin")), saved(full));
}

TEST(Archives, ASecretKeyThatNothingDrewHoldsItsCoefficients) {
    const Context context = contextFrom("ring.context");
    const auto key = fullKey<SecretKey>(context, "secret_key_given.bin");
    const auto given = archives::givenSecret(64);
    EXPECT_EQ(coefficientsOf(key, 64), SmallPolynomial(given.begin(), given.end()));
    EXPECT_EQ(saved(SecretKey(context, given.data())), archived("secret_key_given.bin"));
}

TEST(Archives, CiphertextsDecryptToTheirMessages) {
    const Ring64 ring;
    const Ciphertext slots = ring.ciphertext("ciphertext.bin");
    EXPECT_LE(maxError(ring.decrypt(slots), archives::message(5)), ring.fresh(1));

    const Ciphertext sparse = ring.ciphertext("ciphertext_sparse.bin");
    EXPECT_EQ(sparse.getRescaleCounter(), 1);
    EXPECT_LE(maxError(ring.decrypt(sparse), archives::message(2)),
              ring.errors.atLevel(ring.errors.encryption() + ring.errors.rescale(), 0) +
                  ErrorModel::relative);
}

TEST(Archives, ACompactCiphertextExpandsToAnEncryptionOfItsMessage) {
    const Ring64 ring;
    const auto compact = loadedFrom("compact_ciphertext.bin", CompactCiphertext(ring.context));
    EXPECT_EQ(compact.getLevel(), 1U);
    EXPECT_EQ(compact.getRescaleCounter(), 1);
    EXPECT_EQ(compact.getLogSlots(), 4U);
    EXPECT_LE(maxError(ring.decrypt(compact.expand()), archives::message(4)),
              ring.errors.atLevel(ring.errors.encryption() + ring.errors.rescale(), 0) +
                  ErrorModel::relative);
}

TEST(Archives, AnEncodedTransformMapsAMessage) {
    const Ring64 ring;
    const auto transform = loadedFrom("encoded_transform.bin", EncodedTransform(ring.context));
    EXPECT_EQ(transform.getLogSlots(), 5U);
    EXPECT_EQ(transform.getLevel(), 1U);
    EXPECT_EQ(transform.getRotationIndices(), (std::vector<unsigned long>{1, 2}));
    const KeyGenerator generator(ring.context, ring.secretKey);
    for (const unsigned long index : transform.getRotationIndices()) generator.genLeftRotKey(index);
    Ciphertext out(ring.context);
    transform.apply(HomEvaluator(ring.context, generator.getKeyPack()), ring.ciphertext("ciphertext.bin"),
                    out);
    Message expected(5);
    const Message in = archives::message(5);
    for (const auto& [d, numbers] : archives::diagonals())
        for (unsigned long i = 0; i < 32; ++i) expected[i] += numbers[i] * in[(i + d) % 32];
    // Four numbers of modulus 1 at most, times an encryption that was switched twice; then a rescale.
    EXPECT_LE(maxError(ring.decrypt(out), expected),
              4 * (ring.fresh(1) + ring.errors.atLevel(2 * ring.errors.keySwitch(), 1)) +
                  ring.errors.atLevel(ring.errors.rescale(), 0));
}

TEST(Archives, ACiphertextOnCoefficientsDecryptsToThem) {
    const Ring64 ring;
    const Ciphertext ciphertext = ring.ciphertext("ciphertext_coefficients.bin");
    EXPECT_EQ(ciphertext.getLevel(), 0U);
    EXPECT_EQ(ciphertext.getEncodingType(), EncodingType::Coefficient);
    std::vector<double> numbers;
    ring.decryptor.decrypt(ciphertext, ring.secretKey, numbers);
    const auto expected = archives::coefficients(64);
    ASSERT_EQ(numbers.size(), expected.size());
    // A coefficient is a mean of the values at the roots, so no larger than the largest of them.
    for (u64 i = 0; i < 64; ++i) EXPECT_NEAR(numbers[i], expected[i], ring.fresh(0)) << i;
}

TEST(Archives, AProductOfThreePolynomialsDecryptsToTheSquares) {
    const Ring64 ring;
    const Ciphertext product = ring.ciphertext("ciphertext_product.bin");
    EXPECT_EQ(product.getNumPoly(), 3U);
    Message squares = archives::message(5);
    for (auto& slot : squares) slot *= slot;
    // (m + e)^2 = m^2 + 2 m e + e^2 with |m| < 0.75, then a division that rounds.
    const double bound = 2 * ring.fresh(1) + ring.errors.atLevel(ring.errors.rescale(), 0);
    EXPECT_LE(maxError(ring.decrypt(product), squares), bound);
}

TEST(Archives, ACiphertextOfAModuleDecryptsToItsMessage) {
    const Context context = contextFrom("module.context");
    const ModuleSecretKey secretKey(context, pathOf("module_secret_key.bin"));
    const auto ciphertext =
        loadedFrom("module_ciphertext.bin", CiphertextBase<EncryptionType::MLWE>(context));
    Message message;
    Decryptor(context).decrypt(ciphertext, secretKey, message);
    const ErrorModel errors(context);
    EXPECT_LE(maxError(message, archives::message(5)),
              errors.atLevel(errors.encryption(), 3) + ErrorModel::relative);
}

TEST(Archives, TheKeysOfADirectoryObeyTheirEquations) {
    const Ring64 ring;
    EncryptionKey encKey(ring.context);
    loadArchive("keys/PK/EncKey.bin", encKey);
    for (u64 row : {0, 1})
        expectIsError(centred(decryptedRow(ring.context, encKey.impl().bx, encKey.impl().ax, ring.s, row),
                              getPrimeList(ring.context)[row]));
    const auto expectKey = [&](const std::string& name, char type, u64 index, const SmallPolynomial& from) {
        SCOPED_TRACE(name);
        const EvaluationKey key = ring.key("keys/PK/" + name);
        EXPECT_EQ(key.getType(), type);
        EXPECT_EQ(key.getRotationIndex(), index);
        EXPECT_EQ(key.getContextHash(), ring.context->context_hash);
        expectSwitches(ring.context, key, ring.s, from);
    };
    expectKey("MultKey.bin", 'm', 0, product(ring.s, ring.s));
    expectKey("ConjKey.bin", 'c', 0, substituted(ring.s, 127));
    expectKey("RotKey1.bin", 'r', 1, substituted(ring.s, 5));
    expectKey("RotKey5.bin", 'r', 5, substituted(ring.s, powerOfFive(archives::rotation)));
}

TEST(Archives, AKeyWrittenInFullIsTheOneThatRegrowsFromItsSeeds) {
    const Ring64 ring;
    const EvaluationKey full = ring.key("mult_key_in_full.bin"), seeded = ring.key("keys/PK/MultKey.bin");
    for (u64 j = 0; j < 2; ++j) {
        const Polynomial &inFull = full.getAxIter(Device{})[j], &regrown = seeded.getAxIter(Device{})[j];
        EXPECT_FALSE(inFull.getGerm().has_value());
        EXPECT_TRUE(regrown.getGerm().has_value());
        for (u64 row = 0; row < 3; ++row) EXPECT_EQ(wordsOf(inFull, row), wordsOf(regrown, row));
    }
}

TEST(Archives, TheDirectoryAndTheStreamAreOfOneKeyPackThatEvaluates) {
    const Ring64 ring;
    const KeyPack directory(ring.context, pathOf("keys")),
        stream = loadedFrom("key_pack.bin", KeyPack(ring.context));
    directory.loadEncKey();
    directory.loadMultKey();
    directory.loadConjKey();
    for (const u64 r : {u64{1}, archives::rotation}) directory.loadLeftRotKey(r);
    EXPECT_EQ(saved(directory), archived("key_pack.bin"));

    const HomEvaluator evaluator(ring.context, stream);
    const Message m = archives::message(5);
    const Ciphertext in = ring.ciphertext("ciphertext.bin");
    Ciphertext out(ring.context);
    evaluator.leftRotate(in, archives::rotation, out);
    Message rotated(5);
    for (u64 i = 0; i < 32; ++i) rotated[i] = m[(i + archives::rotation) % 32];
    const double switching = ring.errors.atLevel(ring.errors.keySwitch(), 1);
    EXPECT_LE(maxError(ring.decrypt(out), rotated), ring.fresh(1) + switching);

    evaluator.mult(in, in, out);
    Message squares = m;
    for (auto& slot : squares) slot *= slot;
    EXPECT_LE(maxError(ring.decrypt(out), squares),
              2 * (ring.fresh(1) + switching) + ring.errors.atLevel(ring.errors.rescale(), 0));
}

TEST(Archives, TheEncapsulationKeySwitchesToTheSparseSecretAndBack) {
    const Ring64 ring;
    const Context partner = contextFrom("partner.context");
    const auto sparse = coefficientsOf(regrownKey<SecretKey>(partner, "partner_secret_key_seed.bin"), 64);
    SparseSecretEncapsulationKey key(ring.context, partner);
    loadArchive("encapsulation_key.bin", key);
    EXPECT_EQ(key.getDTSPart()->getType(), 's');
    EXPECT_EQ(key.getSTDPart()->getType(), 's');
    expectSwitches(partner, *key.getDTSPart(), sparse, ring.s);
    expectSwitches(ring.context, *key.getSTDPart(), ring.s, sparse);
}

TEST(Archives, TheRingSwitchKeySwitchesFromTheSecretAtAPowerOfX) {
    const Context narrow = contextFrom("narrow.context"), wide = contextFrom("wide.context");
    const auto from = coefficientsOf(regrownKey<SecretKey>(narrow, "narrow_secret_key_seed.bin"), 64);
    const auto to = coefficientsOf(regrownKey<SecretKey>(wide, "wide_secret_key_seed.bin"), 128);
    const RingSwitchKey key = loadedFrom("ring_switch_key.bin", RingSwitchKey(wide));
    EXPECT_EQ(key.getKey().getType(), 'w');
    SmallPolynomial embedded(128);
    for (u64 c = 0; c < 64; ++c) embedded[2 * c] = from[c];
    expectSwitches(wide, key.getKey(), to, embedded);
}

TEST(Archives, ThePackingKeysSwitchFromGroupsOfComponents) {
    const auto from =
        regrownKey<ModuleSecretKey>(makeContext(ParameterPreset::FGbD6R6L0), "packing_from_seed.bin");
    const auto to =
        regrownKey<ModuleSecretKey>(makeContext(ParameterPreset::FGbD8R4L0), "packing_to_seed.bin");
    const Context ring = makeContext(ParameterPreset::FGbD12L0);
    const ModPackKeyBundle keys = loadedFrom("packing_keys.bin", ModPackKeyBundle(ring, 4));
    // Coefficient c of component i is at c * 16 + i in the output; of component 16 k + i at c * 64 + i in the
    // input of key k.
    SmallPolynomial target(4096);
    for (u64 i = 0; i < 16; ++i)
        for (u64 c = 0; c < 256; ++c) target[c * 16 + i] = to.getCoefficients()[i * 256 + c];
    for (const u64 k : {0, 3}) {
        SmallPolynomial source(4096);
        for (u64 i = 0; i < 16; ++i)
            for (u64 c = 0; c < 64; ++c) source[c * 64 + i] = from.getCoefficients()[(16 * k + i) * 64 + c];
        expectSwitches(ring, *keys.getModPackKey(k), target, source);
    }
}

TEST(Archives, BootstrappingConstantsAreThoseThatAreBuilt) {
    const Context context = makeContext(ParameterPreset::FX);
    const HomEvaluator evaluator(context, KeyPack(context));
    const auto savedFrom = [](const Bootstrapper& bootstrapper) {
        return bytesOf([&](std::ostream& stream) { bootstrapper.saveBootConstants(1, stream); });
    };
    Bootstrapper mapped(evaluator, 0);
    mapped.mapBootConstants(1, pathOf("boot_constants.bin"));
    EXPECT_EQ(savedFrom(mapped), archived("boot_constants.bin"));
    EXPECT_EQ(savedFrom(Bootstrapper(evaluator, 1)), archived("boot_constants.bin"));
}

TEST(Archives, AChebyshevSeriesHoldsItsNumbers) {
    const ChebyshevSeries expected = archives::series(),
                          series = loadedFrom("chebyshev_series.bin", ChebyshevSeries());
    EXPECT_EQ(series.getCoefficients(), expected.getCoefficients());
    EXPECT_EQ(series.getLowerBound(), -2);
    EXPECT_EQ(series.getUpperBound(), 6);
}

TEST(Archives, ALinearTransformHasItsNumbers) {
    const LinearTransform expected = archives::linearTransform(),
                          transform = loadedFrom("linear_transform.bin", LinearTransform());
    EXPECT_EQ(transform.getSize(), 8u);
    EXPECT_EQ(transform.getDiagonalIndices(), expected.getDiagonalIndices());
    const Message in = archives::message(4);
    Message out, wanted;
    transform.apply(in, out);
    expected.apply(in, wanted);
    EXPECT_EQ(maxError(out, wanted), 0);
}

TEST(Archives, ContextsOfPlainLWEHaveThePrimesTheyHad) {
    const auto expectContext = [](const std::string& name, u64 dimension, const std::vector<u64>& primes) {
        const TemporaryDirectory directory;
        const LWE::Context context = LWE::makeContextFromFile(pathOf(name));
        EXPECT_EQ(LWE::getDimension(context), dimension) << name;
        EXPECT_EQ(LWE::getPrimeList(context), primes) << name;
        LWE::saveContextToFile(context, directory.path() + "/again.context");
        EXPECT_EQ(contentOf(directory.path() + "/again.context"), archived(name));
    };
    expectContext("lwe.context", 16, {(u64{1} << 50) - 27, (u64{1} << 40) - 87});
    expectContext("lwe_preset.context", 32, {140737487306753, 2199020634113, 2199023190017, 2199023288321});
}

TEST(Archives, PlainLWEDecryptsToItsNumberUnderEitherFormOfTheSecret) {
    const LWE::Context context = LWE::makeContextFromFile(pathOf("lwe.context"));
    const auto secret = fullKey<LWE::SecretKey>(context, "lwe_secret_key.bin");
    const auto regrown = regrownKey<LWE::SecretKey>(context, "lwe_secret_key_seed.bin");
    EXPECT_EQ(saved(regrown), archived("lwe_secret_key.bin"));
    const auto ciphertext = loadedFrom("lwe_ciphertext.bin", LWE::Ciphertext(context));
    EXPECT_EQ(ciphertext.getLevel(), 1U);
    EXPECT_EQ(ciphertext.getRescaleCounter(), 1);
    double number = 0;
    LWE::Decryptor(context).decrypt(ciphertext, secret, number);
    // An error is at most 21 units and is divided by the upper prime with the number; that rounds, by half a
    // unit of the scale of level 0.
    EXPECT_NEAR(number, archives::plainNumber, std::exp2(-LWE::getDefaultScaleFactorList(context)[0]));
}

TEST(Archives, EveryFileIsLoadedByATest) {
    const std::string source = contentOf(pathOf("../persistence/ArchivesTest.cpp"));
    namespace fs = std::filesystem;
    for (const auto& entry : fs::recursive_directory_iterator(TORVO_ARCHIVES)) {
        const std::string name = entry.path().filename().string(),
                          extension = entry.path().extension().string();
        if (extension != ".bin" && extension != ".context") continue;
        if (entry.path().parent_path().filename() == "damaged") continue; // DamagedArchivesTest
        EXPECT_NE(source.find(name), std::string::npos) << name;
    }
}

} // namespace
} // namespace Torvo
