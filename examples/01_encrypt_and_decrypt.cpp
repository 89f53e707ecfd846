// 1. Encrypt and decrypt.
//
// An encryption scheme needs three things: parameters, keys, and a way to turn data into something that the
// scheme can encrypt. This program shows them, from a vector of complex numbers to a ciphertext and back.

#include <Torvo/Torvo.hpp>

#include <cmath>
#include <complex>
#include <cstdio>

int main() {
    using namespace Torvo;

    // A context is a parameter set with all its tables. The preset SS7 works in a ring of degree 2^14, which
    // gives 2^13 complex slots, and its ciphertexts can be multiplied seven times in a row. Everything else
    // is made from the context.
    const Context context = makeContext(ParameterPreset::SS7);
    std::printf("ring degree %lu, %lu slots, encryption level %lu, security %lu bits\n", getDegree(context),
                1UL << getLogFullSlots(context), getEncryptionLevel(context), getSecurityLevel(context));

    // The secret key stays with the owner of the data. The public keys are made from it, and a KeyPack holds
    // them. Somebody who only encrypts needs only the encryption key.
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    keyGenerator.genEncKey();
    const KeyPack keys = keyGenerator.getKeyPack();

    // A message is a power-of-two vector of complex numbers. Slots beyond the data are simply not used: a
    // message may have any power-of-two size up to the number of slots.
    Message message(3);
    for (unsigned long i = 0; i < message.getSize(); ++i) message[i] = {0.5 * static_cast<double>(i), -0.25};

    Ciphertext ciphertext(context);
    Encryptor(context).encrypt(message, keys, ciphertext);
    std::printf("encrypted %lu slots at level %lu, scale 2^%.2f\n", ciphertext.getNumberOfSlots(),
                ciphertext.getLevel(), ciphertext.getCurrentScaleFactor());

    // Encryption adds a little noise on purpose: it is what makes the scheme secure. So a decrypted message
    // is close to the encrypted one; the scale decides how close.
    Message decrypted;
    Decryptor(context).decrypt(ciphertext, secretKey, decrypted);

    double largestError = 0;
    for (unsigned long i = 0; i < message.getSize(); ++i) {
        std::printf("  slot %lu: %8.4f %+8.4fi\n", i, decrypted[i].real(), decrypted[i].imag());
        largestError = std::max(largestError, std::abs(decrypted[i] - message[i]));
    }
    std::printf("largest error 2^%.1f\n", std::log2(largestError));
    return largestError < 0x1p-20 ? 0 : 1;
}
