#include "support/NoiseModel.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
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
        for (auto& slot : m) slot = std::polar(1.0, random.real(0, 6.28));
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

} // namespace
} // namespace Torvo
