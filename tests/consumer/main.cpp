#include <Torvo/GlobalConfiguration.hpp>
#include <Torvo/Torvo.hpp>

#include <cmath>
#include <complex>
#include <iostream>

/// Doubles 32 slots under encryption, with the toy parameters.
int main() {
    using namespace Torvo;
    const Context context = makeContext(ParameterPreset::FX);
    const SecretKey secretKey(context);
    const HomEvaluator evaluator(context, KeyPack(context));

    Ciphertext ciphertext(context);
    Encryptor(context).encrypt(Message(5, {0.5, -0.25}), secretKey, ciphertext);
    evaluator.add(ciphertext, ciphertext, ciphertext);
    Message doubled;
    Decryptor(context).decrypt(ciphertext, secretKey, doubled);

    GlobalConfiguration::instance().setFeature("consumer", true);
    // Twice the error of an encryption, which is below 64 * 32.5 / 2^42.
    const bool right = doubled.getSize() == 32 && std::abs(doubled[7] - std::complex(1.0, -0.5)) < 1e-9 &&
                       GlobalConfiguration::instance().isFeatureEnabled("consumer");
    std::cout << (right ? "consumer: ok\n" : "consumer: wrong result\n");
    return right ? 0 : 1;
}
