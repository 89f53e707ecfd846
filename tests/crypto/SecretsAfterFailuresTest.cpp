#include "arithmetic/elements/PolynomialVector.hpp"
#include "context/ContextContent.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/SecretPolynomial.hpp"
#include "support/ObjectFiles.hpp"
#include "support/RingFamily.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"
#include "support/SecretsLeftBehind.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/EncryptionKey.hpp>
#include <Torvo/RingSwitchKey.hpp>

#include <sstream>

/// Whatever allocation fails on the way: outputs stay as they were, and no freed memory holds a secret, a
/// product with it, or the sum that an error was still to join.
namespace Torvo {
namespace {

using namespace test;
using enum EncryptionType;

class SecretsAfterFailures : public SecretsLeftBehind {};

constexpr u64 level = 2;

const Scheme& fx() {
    return Scheme::of(ParameterPreset::FX);
}

const ModuleScheme& module() {
    return ModuleScheme::of(ParameterPreset::SD3D6R2);
}

/// A module of rank 4.
struct RankFour {
    Context context = familyModule(6, 3, 4);
    SecretKeyBase<MLWE> secretKey{context};

    static const RankFour& get() {
        static const RankFour made;
        return made;
    }
};

std::vector<u64> primesOf(const Context& context) {
    return context->primes.getPrimes();
}

Message sampleMessage() {
    Seeded random(71);
    return random.message(3);
}

/// All that a sum of products with the components of a key goes through: each component and product, and the
/// partial sums.
template <EncryptionType E>
Secrets secretsOfSum(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& key) {
    const auto primes = primesOf(ciphertext.getContext());
    Secrets secrets;
    Rows sum;
    for (u64 i = 1; i < ciphertext.getNumPoly(); ++i) {
        const Rows s = rowsOf(key.getSx(i - 1));
        const Rows product = productOf(rowsOf(ciphertext.getPoly(i)), s, primes);
        sum = i == 1 ? product : sumOf(sum, product, primes);
        const Secrets more =
            secretsOf({s, product, sum, sumOf(rowsOf(ciphertext.getPoly(0)), product, primes)});
        secrets.insert(secrets.end(), more.begin(), more.end());
    }
    return secrets;
}

/// `encrypt(out)` under every failure. What goes well gives the same words from the same seed.
template <EncryptionType E, class Encrypt>
void expectSafeEncryption(const Context& context, Encrypt&& encrypt, const Secrets& secrets) {
    CiphertextBase<E> expected(context);
    {
        const OneSeededThread seeded;
        encrypt(expected);
    }
    const std::string fresh = saved(expected), used = saved(usedLonger<E>(context));
    CiphertextBase<E> out = usedLonger<E>(context);
    expectNothingLeftBehind(
        secrets, [&] { encrypt(out); },
        [&](bool isDone) { EXPECT_TRUE(saved(out) == (isDone ? fresh : used)); });
    out = usedLonger<E>(context);
    expectSafeOnAllThreads([&] { encrypt(out); },
                           [&](bool isDone) { EXPECT_NE(saved(out) == used, isDone); });
}

template <EncryptionType E, class Encrypt>
void expectSafeEncryptionUnder(const SecretKeyBase<E>& key, Encrypt&& encrypt) {
    CiphertextBase<E> reference(key.getContext());
    {
        const OneSeededThread seeded;
        encrypt(reference);
    }
    for (Polynomial& poly : reference.getPolys().getPolys())
        if (!poly.isNTT()) key.getContext()->primes.forwardNTT(poly, poly);
    expectSafeEncryption<E>(key.getContext(), encrypt, secretsOfSum(reference, key));
}

TEST_F(SecretsAfterFailures, StayHiddenWhenEncryptingUnderTheSecretKey) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    expectSafeEncryptionUnder(fx().secretKey, [](Ciphertext& out) {
        fx().encryptor.encrypt(sampleMessage(), fx().secretKey, out, level, 0);
    });
    expectSafeEncryptionUnder(fx().secretKey, [](Ciphertext& out) {
        fx().encryptor.encrypt(std::vector<double>(8, 0.5), fx().secretKey, out, level, 0);
    });
}

TEST_F(SecretsAfterFailures, StayHiddenWhenEncryptingCompactly) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const auto encrypt = [](CompactCiphertext& out) {
        out = fx().encryptor.encryptCompact(sampleMessage(), fx().secretKey, level, 0);
    };
    CompactCiphertext expected(fx().context);
    {
        const OneSeededThread seeded;
        encrypt(expected);
    }
    const std::string fresh = saved(expected);
    CompactCiphertext out(fx().context);
    const auto check = [&](bool isDone) { EXPECT_EQ(out.isEmpty(), !isDone); };
    expectNothingLeftBehind(
        secretsOfSum(expected.expand(), fx().secretKey), [&] { encrypt(out); },
        [&](bool isDone) {
            check(isDone);
            EXPECT_TRUE(!isDone || saved(out) == fresh);
        });
    out = CompactCiphertext(fx().context);
    expectSafeOnAllThreads([&] { encrypt(out); }, check);
}

TEST_F(SecretsAfterFailures, StayHiddenWhenEncryptingInAModule) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    expectSafeEncryptionUnder(module().secretKey, [](auto& out) {
        module().encryptor.encrypt(sampleMessage(), module().secretKey, out, level, 0);
    });
    const RankFour& four = RankFour::get();
    expectSafeEncryptionUnder(four.secretKey, [&](auto& out) {
        Encryptor(four.context).encrypt(sampleMessage(), four.secretKey, out, level, 0);
    });
}

TEST_F(SecretsAfterFailures, StayHiddenWhenEncryptingUnderThePublicKey) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    SecretPolynomial v(fx().context, false, level);
    {
        const OneSeededThread seeded;
        RandomSampler().sampleZO(v, fx().context);
    }
    fx().context->primes.forwardNTT(v, v);
    const auto key = fx().keys.getEncKey();
    const auto primes = primesOf(fx().context);
    const Rows words = rowsOf(v);
    expectSafeEncryption<RLWE>(
        fx().context,
        [](Ciphertext& out) { fx().encryptor.encrypt(sampleMessage(), fx().keys, out, level, 0); },
        secretsOf({words, productOf(rowsOf(key->getAx()), words, primes),
                   productOf(rowsOf(key->getBx()), words, primes)}));
}

// ---- decryption

/// `decrypt(out)` into a plaintext.
template <class Decrypt>
void expectSafeDecryption(const Context& context, const Secrets& secrets, Decrypt&& decrypt) {
    Plaintext expected(context), out(context);
    decrypt(expected);
    const std::string fresh = saved(expected), used = saved(out);
    expectNothingLeftBehind(
        secrets, [&] { decrypt(out); },
        [&](bool isDone) { EXPECT_TRUE(saved(out) == (isDone ? fresh : used)); });
    out = Plaintext(context);
    expectSafeOnAllThreads([&] { decrypt(out); },
                           [&](bool isDone) { EXPECT_TRUE(saved(out) == (isDone ? fresh : used)); });
}

TEST_F(SecretsAfterFailures, StayHiddenWhenDecrypting) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Ciphertext ciphertext = fx().encrypt(sampleMessage(), level);
    // Without the sum that has ct[0] in it already: that is the plaintext.
    const Rows s = rowsOf(fx().secretKey.getSx());
    const auto primes = primesOf(fx().context);
    const auto decrypt = [](const Ciphertext& in) {
        return [&](Plaintext& out) { fx().decryptor.decrypt(in, fx().secretKey, out); };
    };
    const Rows product = productOf(rowsOf(ciphertext.getPoly(1)), s, primes);
    expectSafeDecryption(fx().context, secretsOf({s, product}), decrypt(ciphertext));

    Ciphertext tensor(fx().context);
    fx().evaluator.tensor(ciphertext, ciphertext, tensor);
    const Rows top = productOf(rowsOf(tensor.getPoly(2)), s, primes);
    const Rows middle = sumOf(top, rowsOf(tensor.getPoly(1)), primes);
    expectSafeDecryption(fx().context, secretsOf({s, top, middle, productOf(middle, s, primes)}),
                         decrypt(tensor));
}

TEST_F(SecretsAfterFailures, StayHiddenWhenDecryptingAModule) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const RankFour& four = RankFour::get();
    CiphertextBase<MLWE> ciphertext(four.context);
    Encryptor(four.context).encrypt(sampleMessage(), four.secretKey, ciphertext, level, 0);
    expectSafeDecryption(four.context, secretsOfSum(ciphertext, four.secretKey), [&](Plaintext& out) {
        Decryptor(four.context).decrypt(ciphertext, four.secretKey, out);
    });
}

TEST_F(SecretsAfterFailures, StayHiddenWhenDecryptingInPart) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Ciphertext ciphertext = fx().encrypt(sampleMessage(), level);
    expectSafeEncryption<RLWE>(
        fx().context,
        [&](Ciphertext& out) { fx().decryptor.partialDecrypt(ciphertext, fx().secretKey, out); },
        secretsOfSum(ciphertext, fx().secretKey));
}

// ---- keys

TEST_F(SecretsAfterFailures, StayHiddenWhenMakingAnEncryptionKey) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const auto primes = primesOf(fx().context);
    const Rows s = rowsOf(fx().secretKey.getSx());
    std::string expected;
    Secrets secrets;
    {
        const OneSeededThread seeded;
        const EncryptionKey key(fx().context, fx().secretKey);
        expected = saved(key);
        secrets = secretsOf({s, productOf(rowsOf(key.getAx()), s, primes)});
    }
    std::optional<EncryptionKey> made;
    expectNothingLeftBehind(
        secrets,
        [&] {
            made.reset();
            made.emplace(fx().context, fx().secretKey);
        },
        [&](bool isDone) {
            EXPECT_EQ(made.has_value(), isDone);
            EXPECT_TRUE(!isDone || saved(*made) == expected);
        });
}

/// `secrets` are those that the caller knows; those of the key are added. `generate` puts it into a pack, and
/// `find` finds it there.
template <class Generate, class Find>
void expectSafeGeneration(const std::vector<Rows>& sources, Generate&& generate, Find&& find) {
    const auto primes = primesOf(fx().context);
    const Rows s = rowsOf(fx().secretKey.getSx());
    Secrets secrets = secretsOf({s});
    for (const Rows& source : sources) {
        const Secrets more = secretsOf({source});
        secrets.insert(secrets.end(), more.begin(), more.end());
    }
    std::string expected;
    {
        const OneSeededThread seeded;
        const KeyPack pack(fx().context);
        generate(KeyGenerator(fx().context, fx().secretKey, pack));
        const std::shared_ptr<EvaluationKey> key = find(pack);
        for (u64 j = 0; j < key->getGadgetRank(); ++j) {
            const Rows a = rowsOf(key->getAxIter(Device{})[j]);
            const Secrets more = secretsOf({productOf(a, s, primes)});
            secrets.insert(secrets.end(), more.begin(), more.end());
        }
        expected = saved(*key);
    }
    const KeyPack pack(fx().context);
    const KeyGenerator generator(fx().context, fx().secretKey, pack);
    expectNothingLeftBehind(
        secrets, [&] { generate(generator); },
        [&](bool isDone) {
            const std::shared_ptr<EvaluationKey> key = find(pack);
            EXPECT_EQ(key != nullptr, isDone);
            EXPECT_TRUE(!isDone || saved(*key) == expected);
        });
    const KeyPack another(fx().context);
    const KeyGenerator onAllThreads(fx().context, fx().secretKey, another);
    expectSafeOnAllThreads([&] { generate(onAllThreads); },
                           [&](bool isDone) { EXPECT_EQ(find(another) != nullptr, isDone); });
}

Rows mapped(long exponent) {
    Polynomial image(fx().context, true, true);
    fx().context->primes.frobeniusMapInNTT<false>(fx().secretKey.getSx(), exponent, image);
    return rowsOf(image);
}

TEST_F(SecretsAfterFailures, StayHiddenWhenMakingSwitchingKeys) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Rows s = rowsOf(fx().secretKey.getSx());
    expectSafeGeneration(
        {productOf(s, s, primesOf(fx().context))},
        [](const KeyGenerator& generator) { generator.genMultKey(); },
        [](const KeyPack& pack) { return pack.getMultKey(); });
    expectSafeGeneration(
        {mapped(-1)}, [](const KeyGenerator& generator) { generator.genConjKey(); },
        [](const KeyPack& pack) { return pack.getConjKey(); });
    expectSafeGeneration(
        {mapped(5)}, [](const KeyGenerator& generator) { generator.genLeftRotKey(1); },
        [](const KeyPack& pack) { return pack.getLeftRotKey(1); });
}

/// Keys between rings, which a generator gives away. `keyOf` is where the products of ax with `target` are.
template <class Generate, class KeyOf>
void expectSafeKeys(const Context& ring, const Polynomial& target, Generate&& generate, KeyOf&& keyOf) {
    Secrets secrets = secretsOf({rowsOf(target)});
    {
        const OneSeededThread seeded;
        const auto made = generate();
        const Secrets more = secretsOf(
            {productOf(rowsOf(keyOf(made).getAxIter(Device{})[0]), rowsOf(target), primesOf(ring))});
        secrets.insert(secrets.end(), more.begin(), more.end());
    }
    expectNothingLeftBehind(
        secrets, [&] { generate(); }, [](bool) {});
    expectSafeOnAllThreads([&] { generate(); }, [](bool) {});
}

TEST_F(SecretsAfterFailures, StayHiddenWhenMakingKeysBetweenRings) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Context large = familyRing(7, 3), small = familyRing(6, 3);
    const SecretKey largeKey(large), smallKey(small);
    const KeyGenerator generator(large, largeKey);
    expectSafeKeys(
        large, largeKey.getSx(), [&] { return generator.genComposeKey(smallKey); },
        [](const RingSwitchKey& key) -> EvaluationKey& { return key.getKey(); });
    const SecretKeyBase<MLWE> in(familyModule(6, 3, 2));
    expectSafeKeys(
        small, smallKey.getSx(), [&] { return KeyGenerator(small).genModPackKeyBundle(in, smallKey); },
        [](const ModPackKeyBundle& keys) -> EvaluationKey& { return *keys.getModPackKey(0); });
}

} // namespace
} // namespace Torvo
