#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "context/LWEContextContent.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"
#include "support/SecretsLeftBehind.hpp"

#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>

#include <algorithm>

namespace Torvo {
namespace {

using namespace test;

class LWESecretsAfterFailures : public SecretsLeftBehind {};

constexpr u64 level = 3; // four rows, as many words as make a secret

struct Numbers {
    LWE::Context context = LWE::makeContext(LWE::ParameterPreset::SD3);
    LWE::SecretKey key{context};
    LWE::Encryptor encryptor{context};
    LWE::Decryptor decryptor{context};

    /// The key, <a, s>, and b + <a, s>, the message with its error.
    Secrets secretsOf(const LWE::Ciphertext& ciphertext) const {
        Secrets secrets(2);
        for (u64 i = 0; i <= level; ++i) {
            const u64 p = context->primes.getPrime(i);
            const u64* a = ciphertext.getAx().getRow(i);
            const u64* s = key.getSx().getRow(i);
            u128 sum = 0;
            for (u64 k = 0; k < key.getSx().getDimension(); ++k)
                sum = (sum + static_cast<u128>(a[k]) * s[k]) % p;
            secrets[0][i] = static_cast<u64>(sum);
            secrets[1][i] = static_cast<u64>((sum + ciphertext.getBx()[i]) % p);
            // Words 0 and 1 are everywhere: these four begin with a coefficient of -1.
            const u64* four = std::find(s, s + key.getSx().getDimension() - 4, p - 1);
            secrets.push_back({four[0], four[1], four[2], four[3]});
        }
        return secrets;
    }
};

TEST_F(LWESecretsAfterFailures, StayHiddenWhenEncrypting) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Numbers numbers;
    LWE::Ciphertext expected(numbers.context);
    {
        const OneSeededThread seeded;
        numbers.encryptor.encrypt(0.25, numbers.key, expected, level, 0);
    }
    LWE::Ciphertext used = expected;
    used.setLevel(1);
    const std::string before = saved(used), after = saved(expected);
    LWE::Ciphertext out = used;
    expectNothingLeftBehind(
        numbers.secretsOf(expected), [&] { numbers.encryptor.encrypt(0.25, numbers.key, out, level, 0); },
        [&](bool isDone) { EXPECT_TRUE(saved(out) == (isDone ? after : before)); });
    out = used;
    expectSafeOnAllThreads([&] { numbers.encryptor.encrypt(0.25, numbers.key, out, level, 0); },
                           [&](bool isDone) { EXPECT_NE(saved(out) == before, isDone); });
}

TEST_F(LWESecretsAfterFailures, StayHiddenWhenDecrypting) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Numbers numbers;
    LWE::Ciphertext ciphertext(numbers.context);
    numbers.encryptor.encrypt(0.25, numbers.key, ciphertext, level, 0);
    double out = 7;
    expectNothingLeftBehind(
        numbers.secretsOf(ciphertext), [&] { numbers.decryptor.decrypt(ciphertext, numbers.key, out); },
        [&](bool isDone) { EXPECT_NEAR(out, isDone ? 0.25 : 7, 1e-3); });
}

} // namespace
} // namespace Torvo
