#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

/// A context that was never made: every public function that takes one refuses it.
namespace Torvo {
namespace {

constexpr const char* refusal = "The context is null. Make one with makeContext.";

using Calls = std::vector<std::pair<const char*, std::function<void()>>>;

void expectRefused(const Calls& calls) {
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(call(), refusal);
    }
}

const Context none;
const LWE::Context lweNone;

template <class T, class... Arguments>
std::function<void()> making(const Arguments&... arguments) {
    return [=] { const T made(arguments...); };
}

TEST(NullContexts, AreNotAskedForTheirNumbers) {
    const Context& fx = test::contextOf(ParameterPreset::FX);
    std::ostringstream out;
    expectRefused({
        {"saveContextToFile", [] { saveContextToFile(none, "/nowhere"); }},
        {"saveContext", [&] { saveContext(none, out); }},
        {"isSameContext, first", [&] { isSameContext(none, fx); }},
        {"isSameContext, second", [&] { isSameContext(fx, none); }},
        {"isSameContext, both", [] { isSameContext(none, none); }},
        {"isSameRing, first", [&] { isSameRing(none, fx); }},
        {"isSameRing, second", [&] { isSameRing(fx, none); }},
        {"isSameRing, both", [] { isSameRing(none, none); }},
        {"LWE::saveContext", [&] { LWE::saveContext(lweNone, out); }},
        {"getLogFullSlots", [] { getLogFullSlots(none); }},
        {"getDegree", [] { getDegree(none); }},
        {"getRank", [] { getRank(none); }},
        {"getEncryptionLevel", [] { getEncryptionLevel(none); }},
        {"getSecurityLevel", [] { getSecurityLevel(none); }},
        {"getDefaultScaleFactorList", [] { getDefaultScaleFactorList(none); }},
        {"getPrimeList", [] { getPrimeList(none); }},
        {"isBootstrappableParameter", [] { isBootstrappableParameter(none); }},
        {"isExtendedBootstrapSupported", [] { isExtendedBootstrapSupported(none); }},
        {"isSparseSecretEncapsulationSupported", [] { isSparseSecretEncapsulationSupported(none); }},
        {"getRotIndicesForBootstrap", [] { getRotIndicesForBootstrap(none, 3); }},
        {"getMaxCompatibleLevel, first", [&] { getMaxCompatibleLevel(none, fx); }},
        {"getMaxCompatibleLevel, second", [&] { getMaxCompatibleLevel(fx, none); }},
        {"getMaxCompatibleLevel, LWE", [&] { getMaxCompatibleLevel(lweNone, fx); }},
        {"getNumCiphertextsAfterFullDecompose", [&] { getNumCiphertextsAfterFullDecompose(fx, none); }},
        {"getNumCiphertextsToFullCompose", [&] { getNumCiphertextsToFullCompose(none, fx); }},
        {"getNumCiphertextsToModPack", [&] { getNumCiphertextsToModPack(none, fx); }},
        {"getNumCiphertextsToModPack, LWE", [&] { getNumCiphertextsToModPack(lweNone, fx); }},
        {"getNumCiphertextsToModPack, to", [&] { getNumCiphertextsToModPack(fx, none); }},
        {"getNumCiphertextsAfterUnPack", [] { getNumCiphertextsAfterUnPack(none); }},
        {"LWE::saveContextToFile", [] { LWE::saveContextToFile(lweNone, "/nowhere"); }},
        {"LWE::getDefaultScaleFactorList", [] { LWE::getDefaultScaleFactorList(lweNone); }},
        {"LWE::getPrimeList", [] { LWE::getPrimeList(lweNone); }},
        {"LWE::getEncryptionLevel", [] { LWE::getEncryptionLevel(lweNone); }},
        {"LWE::getDimension", [] { LWE::getDimension(lweNone); }},
        {"LWE::getSecurityLevel", [] { LWE::getSecurityLevel(lweNone); }},
    });
    EXPECT_TRUE(out.str().empty());
}

TEST(NullContexts, MakeNoDataAndNoKeys) {
    const Context& fx = test::contextOf(ParameterPreset::FX);
    const test::Scheme& scheme = test::Scheme::of(ParameterPreset::FX);
    const int coefficients[64] = {};
    std::istringstream stream("x");
    using Module = EncryptionType;
    expectRefused({
        {"Plaintext", making<Plaintext>(none)},
        {"Ciphertext", making<Ciphertext>(none)},
        {"Ciphertext, mod-up", making<Ciphertext>(none, true)},
        {"Ciphertext of another", [&] { const Ciphertext made(none, Ciphertext(fx)); }},
        {"module ciphertext", making<CiphertextBase<Module::MLWE>>(none)},
        {"SecretKey", making<SecretKey>(none)},
        {"module secret key", making<SecretKeyBase<Module::MLWE>>(none)},
        {"SecretKey of coefficients", [&] { const SecretKey made(none, coefficients); }},
        {"SecretKey of a file", [&] { const SecretKey made(none, std::string("/nowhere")); }},
        {"SecretKey of a stream", [&] { const SecretKey made(none, stream); }},
        {"EncryptionKey", making<EncryptionKey>(none)},
        {"EncryptionKey of a secret", [&] { const EncryptionKey made(none, scheme.secretKey); }},
        {"EvaluationKey", [] { const EvaluationKey made(none, 'm', 0); }},
        {"makeEmptyMultKey", [] { makeEmptyMultKey(none); }},
        {"makeEmptyConjKey", [] { makeEmptyConjKey(none); }},
        {"makeEmptyRotKey", [] { makeEmptyRotKey(none, 1); }},
        {"makeEmptyModPackKey", [] { makeEmptyModPackKey(none); }},
        {"makeEmptyRingSwitchKey", [] { makeEmptyRingSwitchKey(none); }},
        {"makeEmptySparseSecretEncapsulationKey", [&] { makeEmptySparseSecretEncapsulationKey(fx, none); }},
        {"SparseSecretEncapsulationKey", [&] { const SparseSecretEncapsulationKey made(none, fx); }},
        {"RingSwitchKey", making<RingSwitchKey>(none)},
        {"ModPackKeyBundle", [] { const ModPackKeyBundle made(none, 0); }},
        {"LWE::Ciphertext", making<LWE::Ciphertext>(lweNone)},
        {"LWE::SecretKey", making<LWE::SecretKey>(lweNone)},
        {"LWE::SecretKey of coefficients", [&] { const LWE::SecretKey made(lweNone, coefficients); }},
        {"LWE::SecretKey of a file", [&] { const LWE::SecretKey made(lweNone, std::string("/nowhere")); }},
        {"LWE::SecretKey of a stream", [&] { const LWE::SecretKey made(lweNone, stream); }},
        {"genLWESecretKeyAfterUnPack", [&] { genLWESecretKeyAfterUnPack(lweNone, scheme.secretKey); }},
    });
}

TEST(NullContexts, MakeNoServices) {
    const test::Scheme& scheme = test::Scheme::of(ParameterPreset::FX);
    const Context& fgd = test::contextOf(ParameterPreset::FX); // without encapsulation: refused first
    const std::string nowhere = "/nowhere";
    expectRefused({
        {"EnDecoder", making<EnDecoder>(none)},
        {"Encryptor", making<Encryptor>(none)},
        {"Decryptor", making<Decryptor>(none)},
        {"KeyPack", making<KeyPack>(none)},
        {"KeyPack of a directory", [&] { const KeyPack made(none, nowhere); }},
        {"KeyPack with a sparse context", [&] { const KeyPack made(none, fgd); }},
        {"KeyPack of both", [&] { const KeyPack made(none, fgd, nowhere); }},
        {"KeyGenerator", making<KeyGenerator>(none)},
        {"KeyGenerator of a secret", [&] { const KeyGenerator made(none, scheme.secretKey); }},
        {"KeyGenerator of a pack", [&] { const KeyGenerator made(none, scheme.secretKey, scheme.keys); }},
        {"KeyGenerator with a sparse context", [&] { const KeyGenerator made(none, fgd, scheme.secretKey); }},
        {"genDecomposeKey",
         [&] { KeyGenerator(scheme.context, scheme.secretKey).genDecomposeKey(none, scheme.secretKey); }},
        {"HomEvaluator of a directory", [&] { const HomEvaluator made(none, nowhere); }},
        {"HomEvaluator of a pack", [&] { const HomEvaluator made(none, scheme.keys); }},
        {"Bootstrapper", [&] { const Bootstrapper made(scheme.evaluator, none, 0ul); }},
        {"LWE::Encryptor", making<LWE::Encryptor>(lweNone)},
        {"LWE::Decryptor", making<LWE::Decryptor>(lweNone)},
        {"LWE::HomEvaluator", making<LWE::HomEvaluator>(lweNone)},
    });
}

TEST(NullContexts, AreNoSparsePartners) {
    const Context fgd = makeContext(ParameterPreset::FGd);
    EXPECT_REFUSED(KeyPack(fgd, none), refusal);
}

} // namespace
} // namespace Torvo
