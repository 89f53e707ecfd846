#include "context/ContextContent.hpp"
#include "support/Contexts.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"

#include <gtest/gtest.h>

#include <omp.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

/// Threads with small stacks, of callers and of OpenMP: what a program sets for thousands of threads.
namespace Torvo {
namespace {

constexpr std::size_t smallStack = std::size_t{64} << 10;

/// Calls body() on a thread with a stack of 64 KiB. An exception out of it ends the program.
void onSmallStack(std::function<void()> body) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, smallStack), 0);
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    const int failure = pthread_create(&thread, &attributes, run, &body);
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(failure, 0) << std::strerror(failure);
    pthread_join(thread, nullptr);
}

/// Makes keys, encrypts under both, multiplies and decrypts; that the slots are right to a thousandth shows
/// that each step has come to its end, precision is the matter of other tests.
void makeKeysAndMultiply(const Context& context) {
    const SecretKey secretKey(context);
    KeyPack keys(context);
    const KeyGenerator generator(context, secretKey, keys);
    generator.genEncKey();
    generator.genMultKey();
    const Encryptor encryptor(context);
    Ciphertext a(context), b(context), product(context);
    const Message message(3, {0.5, 0.25});
    encryptor.encrypt(message, keys, a);
    encryptor.encrypt(message, secretKey, b);
    HomEvaluator(context, keys).mult(a, b, product);
    Message decrypted;
    Decryptor(context).decrypt(product, secretKey, decrypted);
    EXPECT_LT(test::maxError(decrypted, Message(3, {0.1875, 0.25})), 1e-3);
}

/// The same without multiplication, for rings of higher rank.
void makeModuleKeyAndEncrypt(const Context& context) {
    using enum EncryptionType;
    const SecretKeyBase<MLWE> secretKey(context);
    const Message message(3, {0.5, 0.25});
    CiphertextBase<MLWE> ciphertext(context);
    Encryptor(context).encrypt(message, secretKey, ciphertext);
    Message decrypted;
    Decryptor(context).decrypt(ciphertext, secretKey, decrypted);
    EXPECT_LT(test::maxError(decrypted, message), 1e-3);
}

/// All of it on small stacks: that of the caller, and those of its team where the environment says so.
void useSmallStacks(ParameterPreset preset) {
    onSmallStack([preset] {
        omp_set_num_threads(3);
        const Context context = makeContext(preset);
        if (context->parameter.rank == 1)
            makeKeysAndMultiply(context);
        else
            makeModuleKeyAndEncrypt(context);
    });
}

/// Runs the calling test once more in a process whose OpenMP threads have 64 KiB of stack each, and other
/// threads a mebibyte unless they ask for another size.
void runAgainWithSmallTeams() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    const char* const arguments[] = {"/proc/self/exe", filter.c_str(), "--gtest_brief=1", nullptr};
    setenv("OMP_STACKSIZE", "64K", 1);
    rlimit before{};
    getrlimit(RLIMIT_STACK, &before);
    const rlimit mebibyte{rlim_t{1} << 20, before.rlim_max};
    setrlimit(RLIMIT_STACK, &mebibyte);
    pid_t child = 0;
    const int failure =
        posix_spawn(&child, arguments[0], nullptr, nullptr, const_cast<char* const*>(arguments), environ);
    setrlimit(RLIMIT_STACK, &before);
    unsetenv("OMP_STACKSIZE");
    ASSERT_EQ(failure, 0) << std::strerror(failure);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "died of signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

void expectSmallStacksSuffice(const std::vector<ParameterPreset>& presets) {
    for (const ParameterPreset preset : presets) useSmallStacks(preset);
    if (std::getenv("OMP_STACKSIZE") == nullptr) runAgainWithSmallTeams();
}

TEST(SmallStacks, SufficeForToyPresets) {
    SKIP_WHERE_CODE_IS_INSTRUMENTED();
    expectSmallStacksSuffice({ParameterPreset::FX, ParameterPreset::SD3D6R2});
}

TEST(SmallStacksRealPreset, Suffice) {
    SKIP_WHERE_CODE_IS_INSTRUMENTED();
    expectSmallStacksSuffice({ParameterPreset::SD3, ParameterPreset::ST7});
}

} // namespace
} // namespace Torvo
