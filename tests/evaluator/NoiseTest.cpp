#include "arithmetic/PrimeModuli.hpp"
#include "context/ContextContent.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <optional>
#include <ostream>

// Holds the library to docs/noise.md, whose letters are used here: over several keys the largest error stays
// below the bound, and the root mean square lies near the predicted one: far above a tenth of it, so that a
// build without noise fails too.

namespace Torvo {
namespace {

constexpr int keyCount = 5;
constexpr double sigmaSquared = 3.2 * 3.2 + 1.0 / 12;

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

/// The parameters of docs/noise.md for one preset.
struct Model {
    explicit Model(const Context& context)
        : content(*context), N(static_cast<double>(content.parameter.degree)),
          h(static_cast<double>(content.parameter.hamming_weight)),
          K(static_cast<double>(content.parameter.numTP)) {}

    double scale(u64 level) const { return std::pow(2.0, content.scale_factors.log_scale[level]); }
    double encryption() const { return sigmaSquared * (N / 2 + h + 1) + 1.0 / 12; }
    double rescale() const { return (1 + h) / 12; }
    double keySwitch(u64 level) const {
        const u64 alpha = content.parameter.numTP;
        double digits = 0;
        for (u64 first = 0; first <= level; first += alpha) {
            double logRatio = 0; // log2(Q_j / P), Q_j being the product of the whole digit
            for (u64 i = 0; i < alpha; ++i)
                logRatio += std::log2(prime(first + i)) - std::log2(prime(content.parameter.chain_length + i));
            const auto live = static_cast<double>(std::min(alpha, level + 1 - first));
            digits += N * sigmaSquared * live * std::pow(4.0, logRatio) / 12;
        }
        return digits + K * (1 + h) / 12;
    }

    /// E|slot|^2 for a coefficient variance, in units of the message at `level`.
    double slot(double variance, u64 level) const { return N * variance / std::pow(scale(level), 2); }
    /// Exceeded by no slot of `keyCount` ciphertexts, but with chance 2^-40 * keyCount.
    double bound(double slotVariance) const {
        return std::sqrt(slotVariance * std::log(std::pow(2.0, 40) * N / 2));
    }
    double prime(u64 i) const { return static_cast<double>(content.primes.getPrime(i)); }

    const ContextContent& content;
    double N, h, K;
};

void expectPredicted(const Measured& measured, double slotVariance, const Model& model) {
    EXPECT_LT(measured.largest, model.bound(slotVariance));
    EXPECT_GT(measured.rms(), 0.1 * std::sqrt(slotVariance));
    EXPECT_LT(measured.rms(), 1.5 * std::sqrt(slotVariance));
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
    Model model{context};
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
    expectPredicted(measured, model.slot(model.encryption(), level), model);
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
    expectPredicted(measured, model.slot(sigmaSquared + 1.0 / 12, level), model);
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
    const double slotVariance = 2 * model.slot(model.encryption(), level) +
                                model.slot(model.rescale(), level - 1) +
                                model.slot(model.keySwitch(level), level) / std::pow(model.scale(level), 2);
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
    expectPredicted(measured, model.slot(model.encryption() + model.keySwitch(level), level), model);
    expectPredicted(switchAlone, model.slot(model.keySwitch(level), level), model);
}

INSTANTIATE_TEST_SUITE_P(Presets, NoiseRealPreset,
                         testing::Values(Case{"ST7", ParameterPreset::ST7},
                                         Case{"ST19", ParameterPreset::ST19},
                                         Case{"FGb", ParameterPreset::FGb}),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
} // namespace Torvo
