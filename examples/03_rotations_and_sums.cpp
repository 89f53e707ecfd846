// 3. Rotations and sums.
//
// Additions and multiplications never mix slots. A rotation shifts the whole vector, so that values from
// different slots reach the same position. Sums, averages and matrix products are built from rotations.

#include <Torvo/Torvo.hpp>

#include <cmath>
#include <complex>
#include <cstdio>

int main() {
    using namespace Torvo;

    const Context context = makeContext(ParameterPreset::SS7);
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    keyGenerator.genEncKey();
    keyGenerator.genConjKey();

    // Each rotation index has its own key. The bundle holds the powers of two in both directions, from which
    // the evaluator composes every other rotation; an index used often deserves its own key, which makes it a
    // single step.
    keyGenerator.genRotKeyBundle();
    keyGenerator.genLeftRotKey(5);
    const KeyPack keys = keyGenerator.getKeyPack();
    const HomEvaluator evaluator(context, keys);
    const Decryptor decryptor(context);

    Message message(4); // 16 slots
    for (unsigned long i = 0; i < message.getSize(); ++i) message[i] = {static_cast<double>(i), 1.0};
    Ciphertext ciphertext(context), result(context);
    Encryptor(context).encrypt(message, keys, ciphertext);

    Message expected(4), decrypted;
    double worst = 0;
    const auto show = [&](const char* what) {
        decryptor.decrypt(result, secretKey, decrypted);
        std::printf("%-34s", what);
        for (unsigned long i = 0; i < 6; ++i)
            std::printf(" %7.2f%+.2fi", decrypted[i].real(), decrypted[i].imag());
        std::printf(" ...\n");
        for (unsigned long i = 0; i < expected.getSize(); ++i)
            worst = std::max(worst, std::abs(decrypted[i] - expected[i]));
    };

    evaluator.leftRotate(ciphertext, 5, result);
    evaluator.leftRotate(message, 5, expected);
    show("left by 5 (own key):");

    evaluator.leftRotate(ciphertext, 6, result); // 6 = 8 - 2: two steps
    evaluator.leftRotate(message, 6, expected);
    show("left by 6 (composed):");

    evaluator.rightRotate(ciphertext, 1, result);
    evaluator.rightRotate(message, 1, expected);
    show("right by 1:");

    evaluator.conjugate(ciphertext, result);
    evaluator.conjugate(message, expected);
    show("conjugate:");

    // The sum over all 16 slots, in every slot: four rotations, not sixteen.
    evaluator.leftRotateReduce(ciphertext, 1, 16, result);
    evaluator.leftRotateReduce(message, 1, 16, expected);
    show("sum of all slots:");

    // The sums over blocks of four: slot 4k holds the sum of slots 4k to 4k + 3.
    evaluator.leftRotateReduce(ciphertext, 1, 4, result);
    evaluator.leftRotateReduce(message, 1, 4, expected);
    show("sums of four neighbours:");

    // A dot product: multiply slot by slot with weights in the clear, then sum.
    Message weights(4);
    for (unsigned long i = 0; i < weights.getSize(); ++i) weights[i] = std::cos(static_cast<double>(i));
    evaluator.mult(ciphertext, weights, result);
    evaluator.leftRotateReduce(result, 1, 16, result);
    evaluator.mult(message, weights, expected);
    evaluator.leftRotateReduce(expected, 1, 16, expected);
    show("dot product with weights:");

    std::printf("largest error 2^%.1f\n", std::log2(worst));
    return worst < 0x1p-15 ? 0 : 1;
}
