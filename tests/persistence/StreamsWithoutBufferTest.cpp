#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

/// Streams without a buffer: writing to them and reading from them is refused.
namespace Torvo {
namespace {

constexpr const char* refusal =
    "The stream has no buffer. Give one that is connected to a file or to memory.";

template <class Object>
void expectRefused(Object& object) {
    std::ostream out(nullptr);
    std::istream in(nullptr);
    EXPECT_REFUSED(object.save(out), refusal);
    if constexpr (requires { object.load(in); }) EXPECT_REFUSED(object.load(in), refusal);
    if constexpr (requires { object.saveSeedOnly(out); }) EXPECT_REFUSED(object.saveSeedOnly(out), refusal);
    if constexpr (requires { save(object, out); }) EXPECT_REFUSED(save(object, out), refusal);
    if constexpr (requires { load(object, in); }) EXPECT_REFUSED(load(object, in), refusal);
}

TEST(StreamsWithoutBuffer, AreRefusedByEveryObject) {
    const Context& fx = test::contextOf(ParameterPreset::FX);
    Message message(2, 0.5);
    Plaintext plaintext = EnDecoder(fx).encode(message, 1, 0);
    Ciphertext ciphertext(fx);
    SecretKey secretKey(fx);
    EncryptionKey encryptionKey(fx, secretKey);
    EvaluationKey evaluationKey(fx, 'm', 0);
    RingSwitchKey ringSwitchKey(fx);
    SparseSecretEncapsulationKey sparse(fx, fx);
    ModPackKeyBundle bundle(fx, 1), empty(fx, 0);
    KeyPack pack(fx);
    LWE::SecretKey lweKey(test::smallLWEContext());
    LWE::Ciphertext lweCiphertext(test::smallLWEContext());
    expectRefused(message);
    expectRefused(plaintext);
    expectRefused(ciphertext);
    expectRefused(secretKey);
    expectRefused(encryptionKey);
    expectRefused(evaluationKey);
    expectRefused(ringSwitchKey);
    expectRefused(sparse);
    expectRefused(bundle);
    expectRefused(empty);
    expectRefused(pack);
    expectRefused(lweKey);
    expectRefused(lweCiphertext);
    EXPECT_EQ(message[3], 0.5);
}

TEST(StreamsWithoutBuffer, AreRefusedByConstructorsAndPacks) {
    const Context& fx = test::contextOf(ParameterPreset::FX);
    std::istream in(nullptr);
    std::ostream out(nullptr);
    EXPECT_REFUSED(SecretKey(fx, in), refusal);
    EXPECT_REFUSED(makeContext(in), refusal);
    EXPECT_REFUSED(saveContext(fx, out), refusal);
    EXPECT_REFUSED(LWE::makeContext(in), refusal);
    EXPECT_REFUSED(LWE::saveContext(test::smallLWEContext(), out), refusal);
    EXPECT_REFUSED(LWE::SecretKey(test::smallLWEContext(), in), refusal);
    const KeyPack pack(fx);
    EXPECT_REFUSED(pack.loadEncKey(in), refusal);
    EXPECT_REFUSED(pack.loadMultKey(in), refusal);
    EXPECT_REFUSED(pack.loadConjKey(in), refusal);
    EXPECT_REFUSED(pack.loadLeftRotKey(1, in), refusal);
    EXPECT_REFUSED(pack.loadRightRotKey(1, in), refusal);
    EXPECT_FALSE(pack.isMultKeyLoaded());
}

} // namespace
} // namespace Torvo
