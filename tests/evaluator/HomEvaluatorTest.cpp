#include "evaluator/HomEvaluatorImpl.hpp"

#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <complex>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

/// A ciphertext beside the numbers it stands for, with a bound on the distance of the two in any slot.
struct Tracked {
    Ciphertext ciphertext;
    Message message;
    double error;

    double size() const { return maxAbs(message) + error; }
};

/// Runs operations on both sides of `Tracked`.
class Tracer {
public:
    explicit Tracer(const Scheme& scheme) : s_(scheme), e_(scheme.evaluator) {}

    Tracked encrypt(const Message& message, u64 level) const {
        return {s_.encrypt(message, level), message, at(s_.errors.encryption(), level) + slack(message)};
    }

    void mult(Tracked& a, const Tracked& b) const {
        const u64 level = std::min(a.ciphertext.getLevel(), b.ciphertext.getLevel());
        const double errorA = brought(a, level), errorB = brought(b, level);
        a.error = a.size() * errorB + b.size() * errorA + errorA * errorB +
                  at(at(s_.errors.keySwitch(), level), level) + at(s_.errors.rescale(), level - 1);
        e_.mult(a.ciphertext, b.ciphertext, a.ciphertext);
        e_.mult(a.message, b.message, a.message);
        a.error += slack(a.message);
    }

    void square(Tracked& a) const { mult(a, a); }

    void add(Tracked& a, const Tracked& b) const {
        const u64 level = std::min(a.ciphertext.getLevel(), b.ciphertext.getLevel());
        a.error = brought(a, level) + brought(b, level);
        e_.add(a.ciphertext, b.ciphertext, a.ciphertext);
        e_.add(a.message, b.message, a.message);
        a.error += slack(a.message);
    }

    void sub(Tracked& a, const Tracked& b) const {
        const u64 level = std::min(a.ciphertext.getLevel(), b.ciphertext.getLevel());
        a.error = brought(a, level) + brought(b, level);
        e_.sub(a.ciphertext, b.ciphertext, a.ciphertext);
        e_.sub(a.message, b.message, a.message);
        a.error += slack(a.message);
    }

    void conjugate(Tracked& a) const {
        a.error += at(s_.errors.keySwitch(), a.ciphertext.getLevel());
        e_.conjugate(a.ciphertext, a.ciphertext);
        e_.conjugate(a.message, a.message);
    }

    void multConstant(Tracked& a, Complex c) const {
        const u64 level = a.ciphertext.getLevel();
        a.error =
            a.error * std::abs(c) + at(std::sqrt(2.0), level) * a.size() + at(s_.errors.rescale(), level - 1);
        e_.mult(a.ciphertext, c, a.ciphertext);
        e_.mult(a.message, c, a.message);
        a.error += slack(a.message);
    }

    void addConstant(Tracked& a, Complex c) const {
        a.error += at(std::sqrt(2.0), a.ciphertext.getLevel());
        e_.add(a.ciphertext, c, a.ciphertext);
        e_.add(a.message, c, a.message);
        a.error += slack(a.message);
    }

    void expectClose(const Tracked& a) const {
        EXPECT_LT(maxError(s_.decrypt(a.ciphertext), a.message), a.error)
            << "level " << a.ciphertext.getLevel() << " size " << maxAbs(a.message);
    }

private:
    double at(double size, u64 level) const { return s_.errors.atLevel(size, level); }
    static double slack(const Message& m) { return 4 * ErrorModel::relative * (maxAbs(m) + 1); }

    /// The error of `a` once it is at `level`: a factor cut to an integer, and a rescale.
    double brought(const Tracked& a, u64 level) const {
        const u64 from = a.ciphertext.getLevel();
        if (from == level) return a.error;
        const double logFactor = 2 * s_.errors.logScale(level + 1) - s_.errors.logScale(from);
        return a.error + std::exp2(-logFactor) * a.size() + at(s_.errors.rescale(), level) + slack(a.message);
    }

    const Scheme& s_;
    const HomEvaluator& e_;
};

/// A random circuit as deep as the preset is, on numbers below `radius`, each step compared with the clear.
void runRandomCircuit(const Scheme& scheme, u64 seed) {
    Seeded random(seed);
    SCOPED_TRACE(random.describe());
    const Tracer tracer(scheme);
    const u64 logSlots = random.below(2) == 0 ? scheme.logFullSlots() : random.below(scheme.logFullSlots());
    const double radius = 0.7; // the unit disc is closed under products
    Tracked x = tracer.encrypt(random.message(logSlots, radius), scheme.encryptionLevel());
    Tracked y = tracer.encrypt(random.message(logSlots, radius), scheme.encryptionLevel());
    while (x.ciphertext.getLevel() > 0) {
        switch (random.below(8)) {
        case 0:
            tracer.square(x);
            break;
        case 1:
            tracer.add(x, y);
            break;
        case 2:
            tracer.sub(x, y);
            break;
        case 3:
            tracer.conjugate(x);
            break;
        case 4:
            tracer.multConstant(x, {random.real(-1, 1), random.real(-1, 1)});
            break;
        case 5:
            tracer.addConstant(x, {random.real(-1, 1), random.real(-1, 1)});
            break;
        case 6:
            std::swap(x, y);
            continue;
        default:
            if (y.ciphertext.getLevel() > 0) tracer.mult(x, y);
        }
        if (maxAbs(x.message) > 2 && x.ciphertext.getLevel() > 0) tracer.multConstant(x, 0.3);
        tracer.expectClose(x);
        if (testing::Test::HasFailure()) return;
    }
}

} // namespace

TEST(HomEvaluator, RandomCircuitsAgreeWithTheClear) {
    for (u64 seed = 1; seed <= 40; ++seed) runRandomCircuit(Scheme::of(ParameterPreset::FX), seed);
}

TEST(HomEvaluatorRealPreset, ARandomCircuitAgreesWithTheClear) {
    runRandomCircuit(Scheme::of(ParameterPreset::ST7), 7);
}

TEST(HomEvaluator, EightThreadsOnOneEvaluatorComputeWhatOneDoes) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    generator.genMultKey();
    generator.genConjKey();
    generator.genLeftRotKey(3);
    const HomEvaluator evaluator(scheme.context, pack);
    Seeded random(71);
    SCOPED_TRACE(random.describe());
    const Message m = random.message(scheme.logFullSlots());
    const Ciphertext a = scheme.encrypt(m, 9), b = scheme.encrypt(random.message(scheme.logFullSlots()), 11);
    const auto compute = [&](Ciphertext& out) {
        evaluator.mult(a, b, out);
        evaluator.leftRotate(out, 3, out);
        evaluator.add(out, m, out);
        evaluator.mult(out, Complex(0.3, 0.1), out);
        evaluator.conjugate(out, out);
        evaluator.square(out, out);
        evaluator.sub(out, b, out);
    };
    Ciphertext expected(scheme.context);
    compute(expected);
    std::vector<Ciphertext> results(8, Ciphertext(scheme.context));
    std::vector<std::thread> threads;
    for (Ciphertext& result : results)
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) compute(result);
        });
    for (std::thread& thread : threads) thread.join();
    for (const Ciphertext& result : results) EXPECT_TRUE(sameWords(result, expected));
}

TEST(HomEvaluator, ResultsDoNotDependOnTheSizeOfTheTeam) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    Seeded random(72);
    SCOPED_TRACE(random.describe());
    const Ciphertext a = scheme.encrypt(random.message(scheme.logFullSlots()), 9);
    const int before = omp_get_max_threads();
    Ciphertext expected(scheme.context), out(scheme.context);
    omp_set_num_threads(1);
    scheme.evaluator.square(a, expected);
    for (const int threads : {2, 3, 7, 64}) {
        omp_set_num_threads(threads);
        scheme.evaluator.square(a, out);
        EXPECT_TRUE(sameWords(out, expected)) << threads;
    }
    omp_set_num_threads(before);
}

TEST(HomEvaluator, AKeyDirectoryHasItsMultiplicationKeyReadAtOnce) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const TemporaryDirectory directory;
    KeyPack keys(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, keys);
    generator.genMultKey();
    generator.genLeftRotKey(1);
    keys.save(directory.path());

    const HomEvaluator evaluator(scheme.context, directory.path());
    const KeyPack& pack = evaluator.getImpl()->getKeyPack();
    EXPECT_TRUE(pack.isMultKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
    Seeded random(73);
    const Ciphertext a = scheme.encrypt(random.message(scheme.logFullSlots()), 4);
    const HomEvaluator inMemory(scheme.context, keys);
    Ciphertext read(scheme.context), held(scheme.context);
    evaluator.square(a, read);
    inMemory.square(a, held);
    EXPECT_TRUE(sameWords(read, held));
    evaluator.leftRotate(a, 1, read);
    inMemory.leftRotate(a, 1, held);
    EXPECT_TRUE(sameWords(read, held));
    EXPECT_TRUE(pack.isLeftRotKeyLoaded(1));
    // The directory has no key for 2.
    EXPECT_REFUSED(evaluator.leftRotate(a, 2, read), "[Load Rotation Key] no left rotation key for index 2");
}

TEST(HomEvaluator, AKeyDirectoryWithoutAMultiplicationKeyIsNoFailure) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const TemporaryDirectory directory;
    EXPECT_REFUSED(HomEvaluator(scheme.context, directory.path()), "Cannot find path " + directory.path());
    std::filesystem::create_directory(directory.path() + "/PK");
    const HomEvaluator evaluator(scheme.context, directory.path());
    EXPECT_FALSE(evaluator.getImpl()->getKeyPack().isMultKeyLoaded());
    Ciphertext out(scheme.context);
    const Ciphertext a = scheme.encrypt(Message(scheme.logFullSlots(), 0.5), 3);
    EXPECT_REFUSED(evaluator.square(a, out), "Failed to load the multiplication key");
    EXPECT_EQ(evaluator.getContext(), scheme.context);
}

TEST(HomEvaluator, AMultiplicationKeyOfNoUseFailsAtOnce) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path() + "/PK");
    std::ofstream(directory.path() + "/PK/MultKey.bin") << "no key";
    EXPECT_ANY_THROW(HomEvaluator(scheme.context, directory.path()));
}
