#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>
#include <omp.h>

/// A negative number is accepted as that of a GPU, though there is none: such a context works on the CPU like
/// any other, and nothing can be moved to the GPU.
namespace Torvo {
namespace {

using test::sameWords;

const Device gpu{DeviceType::GPU, -1};
constexpr std::array<unsigned long, 4> seed = {9, 8, 7, 6};
const char* const noMemory = "Cannot support the function 'doAllocate' in the current build configuration";

/// Threads of a team have their own random numbers, which no seed sets.
class OneThread {
public:
    OneThread() { omp_set_num_threads(1); }
    ~OneThread() { omp_set_num_threads(team_); }
    OneThread(const OneThread&) = delete;
    OneThread& operator=(const OneThread&) = delete;

private:
    int team_ = omp_get_max_threads();
};

/// The result of one flow on a context: all randomness is seeded, so that contexts can be compared.
struct Flow {
    explicit Flow(const Context& itsContext) : context(itsContext), keys(context) {
        setSeed(seed);
        secretKey.emplace(context);
        const KeyGenerator generator(context, *secretKey, keys);
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        generator.genLeftRotKey(1);
        const Message message(getLogFullSlots(context), {0.5, -0.25});
        Ciphertext fresh(context), out(context);
        Encryptor(context).encrypt(message, keys, fresh);
        results.push_back(fresh);
        const HomEvaluator evaluator(context, keys);
        evaluator.mult(fresh, fresh, out);
        results.push_back(out);
        evaluator.leftRotate(out, 1, out);
        evaluator.conjugate(out, out);
        evaluator.add(out, message, out);
        evaluator.mult(out, std::complex<double>(0.3, 0.5), out);
        results.push_back(out);
        Decryptor(context).decrypt(out, *secretKey, decrypted);
    }

    Context context;
    std::optional<SecretKey> secretKey;
    KeyPack keys;
    std::vector<Ciphertext> results;
    Message decrypted;
};

TEST(NegativeDevices, AContextOfThemComputesAsAnyOther) {
    const OneThread serial;
    const Flow plain(makeContext(ParameterPreset::FX)), negative(makeContext(ParameterPreset::FX, {-1, -7}));
    ASSERT_EQ(plain.results.size(), negative.results.size());
    for (u64 i = 0; i < plain.results.size(); ++i)
        EXPECT_TRUE(sameWords(plain.results[i], negative.results[i])) << i;
    EXPECT_TRUE(std::equal(plain.decrypted.begin(), plain.decrypted.end(), negative.decrypted.begin(),
                           negative.decrypted.end()));
}

TEST(NegativeDevices, NothingIsMovedToThem) {
    const Context context = makeContext(ParameterPreset::FX, {-1});
    const Flow flow(context);
    Message message(3, 0.5);
    Plaintext plaintext = EnDecoder(context).encode(message);
    Ciphertext ciphertext = flow.results[0];
    SecretKey secretKey = *flow.secretKey;
    KeyPack keys = flow.keys;
    const Plaintext plaintextBefore = plaintext;
    const auto refuses = [](auto& object) {
        EXPECT_REFUSED(object.to(gpu), noMemory);
        if constexpr (requires { object.allocate(gpu); }) EXPECT_REFUSED(object.allocate(gpu), noMemory);
        if constexpr (requires { object.getDevice(); }) {
            EXPECT_EQ(object.getDevice(), Device{});
        }
    };
    refuses(message);
    refuses(plaintext);
    refuses(ciphertext);
    refuses(secretKey);
    refuses(keys);
    EXPECT_REFUSED(keys.getMultKey()->copyTo(gpu), noMemory);
    EXPECT_TRUE(sameWords(plaintext, plaintextBefore));
    EXPECT_TRUE(sameWords(ciphertext, flow.results[0]));
    // The refused calls left the keys on their devices.
    Ciphertext out(context);
    HomEvaluator(context, keys).mult(ciphertext, ciphertext, out);
    EXPECT_TRUE(sameWords(out, flow.results[1]));
    EXPECT_REFUSED(Bootstrapper(HomEvaluator(context, keys), 2).loadBootConstants(2, gpu), noMemory);
}

/// An empty message needs no memory, and so can be moved there, without effect.
TEST(NegativeDevices, AnEmptyMessageThereIsRefused) {
    const Context context = makeContext(ParameterPreset::FX, {-1});
    const Flow flow(context);
    Message empty, out;
    empty.allocate(gpu);
    ASSERT_EQ(empty.getDevice(), gpu);
    const char* onGPU = "Message that is GPU-allocated is not supported.";
    const HomEvaluator evaluator(context, flow.keys);
    EXPECT_REFUSED(evaluator.negate(empty, out), onGPU);
    EXPECT_REFUSED(evaluator.add(empty, empty, out), onGPU);
    EXPECT_REFUSED(evaluator.mult(empty, 2.0, out), onGPU);
    EXPECT_REFUSED(evaluator.leftRotate(empty, 1, out), onGPU);
    EXPECT_REFUSED(evaluator.leftRotateReduce(empty, 1, 4, out), onGPU);
    EXPECT_REFUSED(EnDecoder(context).encode(empty), "[encode] Cannot encode a message of size 0");
    Ciphertext ciphertext(context);
    EXPECT_REFUSED(Encryptor(context).encrypt(empty, flow.keys, ciphertext),
                   "Operands are in different devices.");
    EXPECT_REFUSED(Encryptor(context).encrypt(empty, *flow.secretKey, ciphertext),
                   "[encode] Cannot encode a message of size 0");
    EXPECT_REFUSED(empty.resize(1), noMemory);
}

TEST(NegativeDevices, APlainLWEContextOfThemComputesAsAnyOther) {
    const OneThread serial;
    const auto run = [](const LWE::Context& context, LWE::Ciphertext& out, double& x) {
        setSeed(seed);
        const LWE::SecretKey key(context);
        LWE::Encryptor(context).encrypt(0.75, key, out);
        LWE::HomEvaluator(context).mult(out, -0.5, out);
        LWE::Decryptor(context).decrypt(out, key, x);
    };
    const LWE::Context plain = LWE::makeContext(LWE::ParameterPreset::SD3),
                       negative = LWE::makeContext(LWE::ParameterPreset::SD3, {-1});
    LWE::Ciphertext a(plain), b(negative);
    double x = 0, y = 1;
    run(plain, a, x);
    run(negative, b, y);
    EXPECT_TRUE(sameWords(a, b));
    EXPECT_EQ(x, y);
    EXPECT_REFUSED(b.to(gpu), noMemory);
    EXPECT_TRUE(sameWords(a, b));
}

} // namespace
} // namespace Torvo
