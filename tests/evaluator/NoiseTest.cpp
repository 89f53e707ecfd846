#include "support/NoiseModel.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <ostream>
#include <string>
#include <vector>

// Holds the library to docs/noise.md, whose letters are used here: over several keys the largest error stays
// below the bound, and the root mean square lies within a fifth of the predicted one, so that a build that
// forgot its noise fails too.

namespace Torvo {
namespace {

using test::NoiseModel;
using test::Variance;

constexpr int keyCount = 5;

/// E|slot|^2 of the sum of squares over many slots, and the largest error seen.
struct Measured {
    double sumOfSquares = 0;
    double count = 0;
    double largest = 0;

    void take(const Message& got, const Message& expected) {
        for (u64 i = 0; i < expected.getSize(); ++i) {
            const double error = std::abs(got[i] - expected[i]);
            sumOfSquares += error * error;
            largest = std::max(largest, error);
        }
        count += static_cast<double>(expected.getSize());
    }
    double rms() const { return std::sqrt(sumOfSquares / count); }
};

void expectPredicted(const Measured& measured, const Variance& slotVariance, const NoiseModel& model) {
    const double predicted = std::sqrt(slotVariance.total());
    EXPECT_LT(measured.largest, model.bound(slotVariance));
    EXPECT_GT(measured.rms(), 0.1 * predicted);
    EXPECT_NEAR(measured.rms() / predicted, 1, 0.2);
}

struct Case {
    const char* name;
    ParameterPreset preset;
};
std::ostream& operator<<(std::ostream& out, const Case& c) {
    return out << c.name;
}

class NoiseRealPreset : public testing::TestWithParam<Case> {
protected:
    static void SetUpTestSuite() { setSeed({11, 22, 33, 44}); }

    /// Messages of modulus 1, whose squares the model counts as 1.
    Message unitMessage() {
        Message m(getLogFullSlots(context));
        for (auto& slot : m) slot = std::polar(1.0, random.real(0, 2 * std::numbers::pi));
        return m;
    }
    /// Calls use(secret key, evaluator, a, b, encrypted a, encrypted b) for several keys.
    template <class Use>
    void forSeveralKeys(Use&& use) {
        for (int key = 0; key < keyCount; ++key) {
            const SecretKey secretKey(context);
            const KeyGenerator generator(context, secretKey);
            generator.genEncKey();
            const Encryptor encryptor(context);
            const Message a = unitMessage(), b = unitMessage();
            Ciphertext encryptedA(context), encryptedB(context);
            encryptor.encrypt(a, generator.getKeyPack(), encryptedA);
            encryptor.encrypt(b, generator.getKeyPack(), encryptedB);
            use(secretKey, generator, a, b, encryptedA, encryptedB);
        }
    }

    Context context = makeContext(GetParam().preset);
    NoiseModel model{context};
    u64 level = getEncryptionLevel(context);
    Decryptor decryptor{context};
    test::Seeded random{7};
};

TEST_P(NoiseRealPreset, OfAnEncryptionIsAsPredicted) {
    Measured measured;
    forSeveralKeys([&](const SecretKey& secretKey, const KeyGenerator&, const Message& a, const Message&,
                       const Ciphertext& encryptedA, const Ciphertext&) {
        Message got;
        decryptor.decrypt(encryptedA, secretKey, got);
        measured.take(got, a);
    });
    expectPredicted(measured, model.slots(model.encryption(), level), model);
}

TEST_P(NoiseRealPreset, OfASecretKeyEncryptionIsAsPredicted) {
    Measured measured;
    forSeveralKeys([&](const SecretKey& secretKey, const KeyGenerator&, const Message& a, const Message&,
                       const Ciphertext&, const Ciphertext&) {
        Ciphertext encrypted(context);
        Encryptor(context).encrypt(a, secretKey, encrypted);
        Message got;
        decryptor.decrypt(encrypted, secretKey, got);
        measured.take(got, a);
    });
    expectPredicted(measured, model.slots(model.secretKeyEncryption(), level), model);
}

TEST_P(NoiseRealPreset, OfAMultiplicationIsAsPredicted) {
    Measured measured;
    forSeveralKeys([&](const SecretKey& secretKey, const KeyGenerator& generator, const Message& a,
                       const Message& b, const Ciphertext& encryptedA, const Ciphertext& encryptedB) {
        generator.genMultKey();
        const HomEvaluator evaluator(context, generator.getKeyPack());
        Ciphertext product(context);
        evaluator.mult(encryptedA, encryptedB, product);
        Message expected, got;
        evaluator.mult(a, b, expected);
        decryptor.decrypt(product, secretKey, got);
        measured.take(got, expected);
    });
    const Variance slotVariance =
        model.slots(model.encryption(), level) + model.slots(model.encryption(), level) +
        model.slots(model.rescale(), level - 1) +
        std::pow(model.scale(level), -2) * model.slots(model.keySwitch(level), level);
    expectPredicted(measured, slotVariance, model);
}

TEST_P(NoiseRealPreset, OfARotationIsAsPredicted) {
    Measured measured, switchAlone;
    forSeveralKeys([&](const SecretKey& secretKey, const KeyGenerator& generator, const Message& a,
                       const Message&, const Ciphertext& encryptedA, const Ciphertext&) {
        generator.genLeftRotKey(3);
        const HomEvaluator evaluator(context, generator.getKeyPack());
        Ciphertext rotated(context);
        evaluator.leftRotate(encryptedA, 3, rotated);
        Message expected, before, got;
        evaluator.leftRotate(a, 3, expected);
        decryptor.decrypt(rotated, secretKey, got);
        measured.take(got, expected);
        // Against the rotated decryption of the input only the switch itself is left.
        decryptor.decrypt(encryptedA, secretKey, before);
        evaluator.leftRotate(before, 3, before);
        switchAlone.take(got, before);
    });
    expectPredicted(measured, model.slots(model.encryption() + model.keySwitch(level), level), model);
    expectPredicted(switchAlone, model.slots(model.keySwitch(level), level), model);
}

INSTANTIATE_TEST_SUITE_P(Presets, NoiseRealPreset,
                         testing::Values(Case{"ST7", ParameterPreset::ST7},
                                         Case{"ST19", ParameterPreset::ST19},
                                         Case{"FGb", ParameterPreset::FGb}),
                         [](const auto& instance) { return std::string(instance.param.name); });

// ---- degree 2^17, the largest of a preset, without the keys that take gigabytes

/// Of the three presets the one with the fewest primes up to the encryption level whose scales, of 51 bits,
/// leave the roundings of doubles far behind the noise.
struct LargestDegree {
    Context context = makeContext(ParameterPreset::FVb);
    NoiseModel model{context};
    u64 level = getEncryptionLevel(context), degree = getDegree(context);
    test::Seeded random{8};
};

TEST(LargestDegreeRealPreset, EncodesAndEncryptsUnderTheSecretKeyWithThePredictedNoise) {
    LargestDegree d;
    SCOPED_TRACE(d.random.describe());
    ASSERT_EQ(d.degree, u64{1} << 17);
    Message message(getLogFullSlots(d.context)), got;
    for (auto& slot : message) slot = std::polar(1.0, d.random.real(0, 2 * std::numbers::pi));
    const EnDecoder encoder(d.context);
    const Plaintext plaintext = encoder.encode(message);
    Measured encoded, encrypted;
    encoded.take(encoder.decode(plaintext), message);
    expectPredicted(encoded, d.model.slots({1.0 / 12, {}}, d.level), d.model);

    const SecretKey key(d.context);
    Ciphertext ciphertext(d.context);
    Encryptor(d.context).encrypt(plaintext, key, ciphertext);
    Decryptor(d.context).decrypt(ciphertext, key, got);
    encrypted.take(got, message);
    expectPredicted(encrypted, d.model.slots(d.model.secretKeyEncryption(), d.level), d.model);
}

/// Both powers of 2 are good to one unit in the last place, and both products to half a unit: relative errors
/// of 2^-52 and 2^-53. Numbers of at most 1 at a scale below 2^52 are off by 3 units of the scale, and by
/// half a unit more since they are rounded to integers.
TEST(LargestDegreeRealPreset, GivesCoefficientsBackUpToTheirError) {
    LargestDegree d;
    SCOPED_TRACE(d.random.describe());
    std::vector<double> numbers(d.degree), got;
    for (double& number : numbers) number = d.random.real(-1, 1);
    const SecretKey key(d.context);
    Ciphertext ciphertext(d.context);
    /// In units of the scale that is left.
    const auto largestError = [&](u64 level, int owed) {
        Encryptor(d.context).encrypt(numbers, key, ciphertext, level, owed);
        Decryptor(d.context).decrypt(ciphertext, key, got);
        EXPECT_EQ(got.size(), numbers.size());
        const double scale = d.model.scale(level - static_cast<u64>(owed));
        EXPECT_LT(scale, 0x1p52);
        double largest = 0;
        for (u64 k = 0; k < d.degree; ++k) largest = std::max(largest, std::abs(got.at(k) - numbers[k]));
        return largest * scale;
    };
    // The Box-Muller radius of a word ends at 6.7 deviations: an error is 21 at most.
    const double fresh = largestError(d.level, 0);
    EXPECT_LT(fresh, 21 + 3.5);
    EXPECT_GT(fresh, 8) << "the largest of 2^17 errors of deviation 3.2";
    // The rescale divides the error by a prime, and so takes it away.
    EXPECT_LT(largestError(1, 1), 3.5);
}

} // namespace
} // namespace Torvo
