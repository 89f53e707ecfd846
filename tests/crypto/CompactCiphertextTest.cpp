#include <Torvo/CompactCiphertext.hpp>

#include "context/ContextContent.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/CiphertextWords.hpp"
#include "support/ForeignRings.hpp"
#include "support/ObjectFiles.hpp"
#include "support/PinnedWords.hpp"
#include "support/RingEquation.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"
#include "support/SecretsLeftBehind.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using namespace test;

constexpr const char* empty =
    "[CompactCiphertext] It is empty, so there is nothing to expand or save; assign what "
    "Encryptor::encryptCompact returns, or load a file first";
constexpr std::size_t germAt = 1 + 8 + 4 + 8 + 4;

const Scheme& fx() {
    return Scheme::of(ParameterPreset::FX);
}

CompactCiphertext sample(u64 level = 3, int counter = 0) {
    Seeded random(81);
    return fx().encryptor.encryptCompact(random.message(3), fx().secretKey, level, counter);
}

/// The germ of a file, as docs/files.md has it.
PolyGerm germOf(const std::string& file) {
    std::array<u64, 128> words{};
    std::memcpy(words.data(), file.data() + germAt, sizeof words);
    return PolyGerm(words);
}

/// The element with the message: the last words of a file, row after row.
std::vector<u64> lastWordsOf(const std::string& file, u64 count) {
    std::vector<u64> words(count);
    std::memcpy(words.data(), file.data() + (file.size() - 8 * count), 8 * count);
    return words;
}

std::vector<u64> liveWordsOf(const Polynomial& poly) {
    return {poly.getRow(0), poly.getRow(0) + poly.getDegree() * poly.rowEnd()};
}

// ---- what it stands for

TEST(CompactCiphertext, ExpandsToAnEncryptionOfTheMessageAtEveryLevel) {
    Seeded random(82);
    for (u64 level = 0; level <= fx().encryptionLevel(); ++level) {
        SCOPED_TRACE(level);
        const Message message = random.message(3);
        const CompactCiphertext compact = fx().encryptor.encryptCompact(message, fx().secretKey, level, 0);
        EXPECT_EQ(compact.getLevel(), level);
        EXPECT_LE(maxError(fx().decrypt(compact.expand()), message),
                  fx().errors.atLevel(fx().errors.encryption(), level) + ErrorModel::relative);
    }
}

TEST(CompactCiphertext, ExpandsToThePlaintextWithOneErrorAndItsStamp) {
    Seeded random(83);
    const Plaintext plaintexts[] = {fx().encoder.encode(random.message(5), 12, 0),
                                    fx().encoder.encodeWithoutNTT(random.message(2), 4, 3)};
    for (const Plaintext& plaintext : plaintexts) {
        const Plaintext before = plaintext;
        const CompactCiphertext compact = fx().encryptor.encryptCompact(plaintext, fx().secretKey);
        const Ciphertext expanded = compact.expand();
        EXPECT_EQ(compact.getLogSlots(), plaintext.getLogSlots());
        EXPECT_EQ(compact.getRescaleCounter(), plaintext.getRescaleCounter());
        EXPECT_EQ(expanded.getNumPoly(), 2U);
        EXPECT_EQ(expanded.getLevel(), plaintext.getLevel());
        EXPECT_EQ(expanded.getLogSlots(), plaintext.getLogSlots());
        EXPECT_EQ(expanded.getRescaleCounter(), plaintext.getRescaleCounter());
        EXPECT_EQ(expanded.getEncodingType(), EncodingType::Slot);
        EXPECT_TRUE(expanded.isNTT());
        EXPECT_FALSE(expanded.isModUp());
        EXPECT_FALSE(expanded.getPoly(1).getGerm().has_value());
        Plaintext decrypted(fx().context);
        fx().decryptor.decrypt(expanded, fx().secretKey, decrypted);
        expectIsError(differenceOf(fx().context, decrypted.getMx(), plaintext.getMx()));
        EXPECT_TRUE(sameWords(plaintext, before));
    }
}

TEST(CompactCiphertext, TakesTheEncryptionLevelAndNoRescaleByItself) {
    const CompactCiphertext compact = fx().encryptor.encryptCompact(Message(2, 0.5), fx().secretKey);
    EXPECT_EQ(compact.getLevel(), fx().encryptionLevel());
    EXPECT_EQ(compact.getRescaleCounter(), 0);
    EXPECT_EQ(compact.getLogSlots(), 2U);
    EXPECT_EQ(compact.getContext(), fx().context);
}

TEST(CompactCiphertext, ExpandsToItsElementAndToWhatItsGermGrows) {
    for (const u64 level : {0, 5, 12}) {
        SCOPED_TRACE(level);
        const CompactCiphertext compact = sample(level);
        const std::string file = saved(compact);
        const Ciphertext expanded = compact.expand();
        const u64 words = getDegree(fx().context) * (level + 1);
        EXPECT_EQ(liveWordsOf(expanded.getPoly(0)), lastWordsOf(file, words));
        Polynomial grown(fx().context, false, true);
        grown.setGerm(germOf(file));
        populateUniformPoly(grown, false);
        grown.setLevel(level);
        EXPECT_EQ(liveWordsOf(expanded.getPoly(1)), liveWordsOf(grown));
        EXPECT_EQ(expanded.getPoly(1).getData().size(), words) << "rows above the level";
    }
}

TEST(CompactCiphertext, IsDrawnAsAGermAndThenAnError) {
    Seeded random(84);
    const Plaintext plaintext = fx().encoder.encode(random.message(5), 4, 0);
    std::string state;
    const auto compact = drawnFrom(9, [&] {
        auto made = fx().encryptor.encryptCompact(plaintext, fx().secretKey);
        state = threadGenerator().getState();
        return made;
    });
    Polynomial error(fx().context, false, true);
    error.setLevel(4);
    drawnFrom(9, [&] {
        EXPECT_EQ(PolyGerm(), germOf(saved(compact)));
        RandomSampler().sampleGaussian(error, fx().context);
        EXPECT_EQ(threadGenerator().getState(), state);
        return 0;
    });
    Plaintext decrypted(fx().context);
    fx().decryptor.decrypt(compact.expand(), fx().secretKey, decrypted);
    const auto added = differenceOf(fx().context, decrypted.getMx(), plaintext.getMx());
    EXPECT_EQ(added, centred(coefficientsOfRow(fx().context, error, 0), getPrimeList(fx().context)[0]));
}

TEST(CompactCiphertext, IsTheSameFromOneSeedWithAnyNumberOfThreads) {
    std::vector<std::string> files;
    fx(); // draws its keys when it is first used
    for (const int threads : {1, 4, 7}) {
        const Team team(threads);
        setSeed({5, 6, 7, 8});
        files.push_back(saved(sample()));
        files.push_back(saved(sample()));
    }
    EXPECT_EQ(files[0], files[2]);
    EXPECT_EQ(files[0], files[4]);
    EXPECT_EQ(files[1], files[3]);
    EXPECT_NE(files[0], files[1]) << "two encryptions of one seed";
    EXPECT_NE(germOf(files[0]), germOf(files[1]));
}

TEST(CompactCiphertext, ExpandsToTheSameCiphertextOnManyThreadsAtOnce) {
    const CompactCiphertext compact = sample();
    const Ciphertext expected = compact.expand();
    std::vector<std::optional<Ciphertext>> got(4);
    std::vector<std::thread> threads;
    for (auto& out : got) threads.emplace_back([&] { out = compact.expand(); });
    for (auto& thread : threads) thread.join();
    for (const auto& out : got) EXPECT_TRUE(sameWords(*out, expected));
}

TEST(CompactCiphertext, EvaluatesAsAnyCiphertext) {
    Seeded random(85);
    const Message message = random.message(5);
    Ciphertext square(fx().context);
    const Ciphertext in = fx().encryptor.encryptCompact(message, fx().secretKey, 4, 0).expand();
    fx().evaluator.mult(in, in, square);
    Message expected = message;
    for (auto& slot : expected) slot *= slot;
    const double fresh = fx().errors.atLevel(fx().errors.encryption(), 4) + ErrorModel::relative;
    const double bound = fresh * (2 * maxAbs(message) + fresh) +
                         fx().errors.atLevel(fx().errors.keySwitch(), 4) +
                         fx().errors.atLevel(fx().errors.rescale(), 3) + ErrorModel::relative;
    EXPECT_LE(maxError(fx().decrypt(square), expected), bound);
}

TEST(CompactCiphertext, IsRefusedForAPlaintextOnADeviceThatTheContextDoesNotServe) {
    Plaintext elsewhere = fx().encoder.encode(Message(2, 0.5), 3, 0);
    elsewhere.to({DeviceType::CPU, 1});
    const char* const text =
        "The generated context does not support the operation with current operands; check the device.";
    Ciphertext out(fx().context);
    EXPECT_REFUSED(fx().encryptor.encrypt(elsewhere, fx().secretKey, out), text);
    EXPECT_REFUSED(fx().encryptor.encryptCompact(elsewhere, fx().secretKey), text);
}

// ---- its file

TEST(CompactCiphertext, HasLittleMoreThanHalfTheBytesOfTheCiphertext) {
    const Context ring = makeContext(12, 4, 50, 42, 50, 2);
    const SecretKey key(ring);
    for (const u64 level : {1, 3}) {
        const CompactCiphertext compact = Encryptor(ring).encryptCompact(Message(11, 0.5), key, level, 0);
        const std::size_t bytes = saved(compact).size(), inFull = saved(compact.expand()).size();
        // 37 bytes are in front of the two elements, 1049 in front of the one.
        EXPECT_EQ(bytes, germAt + 1024 + (inFull - 37) / 2);
        EXPECT_LT(static_cast<double>(bytes), 0.51 * static_cast<double>(inFull));
        EXPECT_GT(2 * bytes, inFull);
    }
}

TEST(CompactCiphertext, ReadsBackWhatItWroteOverWhateverItHeld) {
    const CompactCiphertext compact = sample(5, 2);
    CompactCiphertext fresh(fx().context), used = sample(0);
    for (CompactCiphertext* out : {&fresh, &used}) {
        loadFrom(saved(compact), *out);
        EXPECT_EQ(saved(*out), saved(compact));
        EXPECT_EQ(out->getRescaleCounter(), 2);
        EXPECT_TRUE(sameWords(out->expand(), compact.expand()));
    }
}

TEST(CompactCiphertext, IsNotReadAsACiphertextNorTheOtherWayRound) {
    CompactCiphertext compact = sample();
    Ciphertext ciphertext = compact.expand();
    const std::string before = saved(compact);
    EXPECT_REFUSED(loadFrom(before, ciphertext), notVerified);
    EXPECT_REFUSED(loadFrom(saved(sample().expand()), compact), notVerified);
    EXPECT_EQ(saved(compact), before);
}

TEST(CompactCiphertext, RefusesFilesOfOtherRings) {
    const Context own = ringOfDigits(2), otherPrimes = ringOfOtherPrimes(), otherDegree = ringOfOtherDegree();
    CompactCiphertext out(own);
    for (const Context& ring : {otherPrimes, otherDegree}) {
        const auto foreign = Encryptor(ring).encryptCompact(Message(2, 0.5), SecretKey(ring));
        EXPECT_REFUSED(loadFrom(saved(foreign), out), notVerified);
    }
    for (const Context& twin : twinsOf(own)) {
        const auto mine = Encryptor(twin).encryptCompact(Message(2, 0.5), SecretKey(twin));
        loadFrom(saved(mine), out);
        EXPECT_EQ(out.getContext(), own);
        EXPECT_TRUE(sameWords(out.expand(), mine.expand()));
    }
}

/// A file of `smallContext()`, in parts that a forger changes.
struct File {
    u64 logSlots = 2;
    std::uint32_t counter = 1;
    bool modUp = false, isNTT = true, withoutGerm = true;
    u64 level = 1, words = 128;

    std::string str() const {
        Bytes bytes = Bytes::frame().u64s({smallContext()->context_hash}).u32(5).u64s({logSlots});
        bytes.u32(counter).raw(std::string(1024, 'g'));
        bytes.raw(smallPolynomialHead(modUp, isNTT, level, withoutGerm).str());
        if (!withoutGerm) return bytes.raw(std::string(1024, 'h')).str();
        bytes.u64s({words});
        for (u64 i = 0; i < words; ++i) bytes.u64s({i});
        return bytes.str();
    }
};

TEST(CompactCiphertext, RefusesWhatNoEncryptionCanHaveAndStaysAsItWas) {
    CompactCiphertext out(smallContext());
    loadFrom(File{}.str(), out);
    const std::string before = saved(out);
    ASSERT_EQ(before, File{}.str());
    const std::vector<File> forged{
        {.counter = ~std::uint32_t{0}},          // below zero
        {.counter = 2},                          // above the level
        {.modUp = true, .words = 192},           // with rows of the temporary primes
        {.isNTT = false},                        // on coefficients
        {.level = 2, .words = 192},              // above the chain
        {.level = ~u64{0}, .words = 0},          // below it
        {.level = 0, .words = 64},               // a counter above the level
        {.counter = 0, .level = 0, .words = 128} // rows above the level
        ,
        {.withoutGerm = false}, // two germs
    };
    for (std::size_t i = 0; i < forged.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_REFUSED(loadFrom(forged[i].str(), out), notVerified);
        EXPECT_EQ(saved(out), before);
    }
    const std::string cut = before.substr(0, before.size() - 1);
    EXPECT_THROW(loadFrom(cut, out), cereal::Exception);
    EXPECT_EQ(saved(out), before);
}

// ---- with nothing in it

TEST(CompactCiphertext, StartsEmptyAndIsNeitherExpandedNorSaved) {
    const CompactCiphertext none(fx().context), copy = none;
    EXPECT_TRUE(none.isEmpty());
    EXPECT_TRUE(copy.isEmpty());
    EXPECT_FALSE(sample().isEmpty());
    EXPECT_EQ(none.getLogSlots(), 5U);
    EXPECT_EQ(none.getLevel(), 0U);
    EXPECT_EQ(none.getRescaleCounter(), 0);
    EXPECT_REFUSED(none.expand(), empty);
    EXPECT_REFUSED(saved(none), empty);
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/compact.bin";
    const CompactCiphertext full = sample();
    full.save(path);
    EXPECT_REFUSED(copy.save(path), empty);
    EXPECT_EQ(contentOf(path), saved(full)) << "the file that stood there";
}

TEST(CompactCiphertext, NeedsAContextOfRankOne) {
    EXPECT_REFUSED(CompactCiphertext{Context()}, "The context is null. Make one with makeContext.");
    EXPECT_REFUSED(
        CompactCiphertext{makeContext(ParameterPreset::SD3D6R2)},
        "[Ciphertext] The parameter does not support the encryption type of the creating ciphertext");
}

// ---- copies

TEST(CompactCiphertext, CopiesShareNothingAndMovesLeaveWhatMayBeAssignedTo) {
    const CompactCiphertext original = sample();
    const std::string file = saved(original);
    CompactCiphertext copy = original, moved = std::move(copy);
    EXPECT_EQ(saved(moved), file);
    copy = sample(0); // from a null handle
    EXPECT_EQ(copy.getLevel(), 0U);
    copy = original;
    EXPECT_EQ(saved(copy), file);
    auto& self = copy;
    copy = self;
    EXPECT_EQ(saved(copy), file);
    moved = CompactCiphertext(fx().context);
    EXPECT_TRUE(moved.isEmpty());
    EXPECT_EQ(saved(original), file);
}

// ---- what encryption refuses

TEST(CompactCiphertext, IsRefusedInTheOrderOfEncryptionBeforeAnythingIsDrawn) {
    const char* const tooHigh =
        "[encrypt] Level of an input Plaintext cannot be greater than encryption level";
    const Context ours = ringOfDigits(2), theirs = ringOfOtherPrimes();
    const SecretKey own(ours), other(theirs);
    const Encryptor encryptor(ours);
    Plaintext foreign = EnDecoder(theirs).encode(Message(2, 0.5));
    const Plaintext plaintext = EnDecoder(ours).encode(Message(2, 0.5));
    fx(); // draws its keys when it is first used
    const std::string state = threadGenerator().getState();
    EXPECT_REFUSED(encryptor.encryptCompact(foreign, other),
                   "Operands are not of the ring of the generated context.");
    foreign.setLevel(4);
    EXPECT_REFUSED(encryptor.encryptCompact(foreign, other), tooHigh);
    EXPECT_REFUSED(encryptor.encryptCompact(plaintext, other),
                   refusalOf("the secret key is of another ring", theirs, "the encryptor's context", ours,
                             "make the encryptor with the context the key was made with"));
    EXPECT_REFUSED(fx().encryptor.encryptCompact(Message(2, 0.5), fx().secretKey, 13, 0), tooHigh);
    EXPECT_REFUSED(encryptor.encryptCompact(Message(), own), "[encode] Cannot encode a message of size 0");
    for (const double number : {std::nan(""), std::numeric_limits<double>::infinity(), 1e300})
        EXPECT_THROW(encryptor.encryptCompact(Message(2, number), own), RuntimeException) << number;
    EXPECT_EQ(threadGenerator().getState(), state);
}

// ---- when memory runs out

TEST(CompactCiphertext, StaysWholeWhateverAllocationFails) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    const CompactCiphertext source = sample(5, 1);
    const std::string before = saved(sample(2)), after = saved(source);
    const auto expectWhole = [&](auto&& change) {
        CompactCiphertext out(fx().context);
        loadFrom(before, out);
        forEachFailure([&](u64 failAt) { return Outcome(failAt, [&] { change(out); }); },
                       [&](bool isDone) { EXPECT_EQ(saved(out), isDone ? after : before); });
    };
    expectWhole([&](CompactCiphertext& out) { out = source; });
    expectWhole([&](CompactCiphertext& out) { loadFrom(after, out); });
    const Ciphertext expected = source.expand();
    std::optional<Ciphertext> expanded;
    forEachFailure(
        [&](u64 failAt) {
            expanded.reset();
            return Outcome(failAt, [&] { expanded = source.expand(); });
        },
        [&](bool isDone) {
            EXPECT_EQ(expanded.has_value(), isDone);
            EXPECT_TRUE(!isDone || sameWords(*expanded, expected));
            EXPECT_EQ(saved(source), after);
        });
}

} // namespace
} // namespace Torvo
