#include "support/PinnedWords.hpp"

#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>

#include <gtest/gtest.h>

namespace Torvo::LWE {
namespace {

using namespace test;

constexpr u64 top = 3, low = 1;

const Context& context() {
    static const Context made = makeContext(ParameterPreset::SD3);
    return made;
}

const SecretKey& key() {
    static const SecretKey drawn = drawnFrom(1, [] { return SecretKey(context()); });
    return drawn;
}

Ciphertext words(u64 level, u64 seed) {
    Ciphertext ciphertext(context());
    ciphertext.setLevel(level);
    Seeded source(seed);
    const auto primes = getPrimeList(context());
    for (u64 i = 0; i <= level; ++i) {
        for (u64 k = 0; k < getDimension(context()); ++k)
            ciphertext.getAx().getRow(i)[k] = source.word() % primes[i];
        ciphertext.getBx()[i] = source.word() % primes[i];
    }
    return ciphertext;
}

Ciphertext encrypted(u64 seed, double number, u64 level, int owed) {
    Ciphertext out(context());
    const SecretKey& secret = key(); // drawn, where it is not there yet, from a seed of its own
    drawnFrom(seed, [&] { Encryptor(context()).encrypt(number, secret, out, level, owed); });
    return out;
}

TEST(PinnedPlainLWE, Words) {
    PinnedGroup group("plain SD3");
    // Zero has no scale.
    group.holds("encrypted zero", encrypted(2, 0.0, top, 0));
    group.holds("encrypted zero, owing a rescale", encrypted(3, 0.0, low, 1));

    const HomEvaluator e(context());
    const Ciphertext a = words(top, 1), b = words(top, 2), used = words(0, 3);
    Ciphertext owing = words(low, 4);
    owing.setRescaleCounter(1);
    group.result("negate", used, [&](Ciphertext& out) { e.negate(a, out); });
    group.result("add", used, [&](Ciphertext& out) { e.add(a, b, out); });
    group.result("sub", used, [&](Ciphertext& out) { e.sub(a, b, out); });
    for (const long n : {0L, 1L, -1L, 2L, -1000003L})
        group.result("multInteger " + std::to_string(n), used,
                     [&](Ciphertext& out) { e.multInteger(a, n, out); });
    group.result("rescale", owing, [&](Ciphertext& out) { e.rescale(out); });
}

TEST(PinnedPlainLWE, Numbers) {
    if (!hasTheMathematicsOf("plain SD3", 1, getPrimeList(context())))
        GTEST_SKIP() << "the C library rounds log2 or pow otherwise than where the table was made";
    PinnedGroup group("plain SD3 and numbers");
    group.holds("scales", getDefaultScaleFactorList(context()));
    const Ciphertext fresh = encrypted(2, 0.640625, top, 0), lower = encrypted(3, -1.3, low, 1);
    group.holds("encrypted", fresh);
    group.holds("encrypted, owing a rescale", lower);
    const auto decrypt = [&](const std::string& row, const Ciphertext& ciphertext) {
        group.result(row, 0.0, [&](double& out) { Decryptor(context()).decrypt(ciphertext, key(), out); });
    };
    decrypt("decrypted", fresh);
    decrypt("decrypted, owing a rescale", lower);

    const HomEvaluator e(context());
    const Ciphertext a = words(top, 1), b = words(low, 2), used = words(0, 3);
    for (const double c : {0.3, -1.7}) {
        const std::string row = c < 0 ? " of a negative" : "";
        group.result("add number" + row, used, [&](Ciphertext& out) { e.add(a, c, out); });
        group.result("sub number" + row, used, [&](Ciphertext& out) { e.sub(a, c, out); });
        group.result("mult" + row, used, [&](Ciphertext& out) { e.mult(a, c, out); });
        group.result("multWithoutRescale" + row, used,
                     [&](Ciphertext& out) { e.multWithoutRescale(a, c, out); });
    }
    group.result("add, of another level", used, [&](Ciphertext& out) { e.add(a, b, out); });
    group.result("sub, of another level", used, [&](Ciphertext& out) { e.sub(b, a, out); });
    group.result("levelDown to 0", used, [&](Ciphertext& out) { e.levelDown(a, 0, out); });
    group.result("levelDownOne", used, [&](Ciphertext& out) { e.levelDownOne(a, out); });
}

} // namespace
} // namespace Torvo::LWE
