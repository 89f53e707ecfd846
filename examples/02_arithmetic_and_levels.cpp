// 2. Arithmetic and levels.
//
// Ciphertexts are added and multiplied slot by slot. A multiplication uses up one level; at level 0 there is
// nothing left to multiply with. This program evaluates 3x^2 - xy + 0.5 and watches the levels.

#include <Torvo/Torvo.hpp>

#include <cmath>
#include <complex>
#include <cstdio>

namespace {

// The same circuit in the clear and encrypted: an evaluator has the same members for both.
template <class Data>
void circuit(const Torvo::HomEvaluator& evaluator, const Data& x, const Data& y, Data& result,
             Data& product) {
    evaluator.mult(x, x, result);        // x^2: one level
    evaluator.mult(result, 3.0, result); // times an integer: free for ciphertexts
    evaluator.mult(x, y, product);       // xy: one level, side by side with the other
    evaluator.sub(result, product, result);
    evaluator.add(result, 0.5, result); // constants are added for free
}

} // namespace

int main() {
    using namespace Torvo;

    const Context context = makeContext(ParameterPreset::SS7);
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    keyGenerator.genEncKey();
    keyGenerator.genMultKey(); // multiplication of ciphertexts needs a key of its own
    const KeyPack keys = keyGenerator.getKeyPack();
    const HomEvaluator evaluator(context, keys);
    const Encryptor encryptor(context);

    Message x(getLogFullSlots(context)), y(getLogFullSlots(context));
    for (unsigned long i = 0; i < x.getSize(); ++i) {
        x[i] = std::polar(1.0, 0.001 * static_cast<double>(i));
        y[i] = {0.3, std::sin(static_cast<double>(i))};
    }

    Ciphertext encryptedX(context), encryptedY(context), result(context), product(context);
    encryptor.encrypt(x, keys, encryptedX);
    encryptor.encrypt(y, keys, encryptedY);
    std::printf("x and y at level %lu\n", encryptedX.getLevel());
    circuit(evaluator, encryptedX, encryptedY, result, product);
    std::printf("3x^2 - xy + 0.5 at level %lu\n", result.getLevel());

    Message expected(x.getLogSlots()), clearProduct(x.getLogSlots()), decrypted;
    circuit(evaluator, x, y, expected, clearProduct);
    const Decryptor decryptor(context);
    const auto report = [&](const char* what) {
        decryptor.decrypt(result, secretKey, decrypted);
        double error = 0;
        for (unsigned long i = 0; i < expected.getSize(); ++i)
            error = std::max(error, std::abs(decrypted[i] - expected[i]));
        std::printf("%-28s level %lu, largest error 2^%.1f\n", what, result.getLevel(), std::log2(error));
        return error;
    };
    double worst = report("after the circuit:");

    // If operands have different levels, the evaluator brings the higher one down by itself.
    evaluator.mult(result, encryptedX, result);
    evaluator.mult(expected, x, expected);
    worst = std::max(worst, report("times x (fresh, higher):"));

    // Several products can share one rescale: leave them unrescaled, add, and rescale once.
    Ciphertext left(context), right(context);
    evaluator.multWithoutRescale(encryptedX, encryptedY, left);
    evaluator.multWithoutRescale(encryptedX, encryptedX, right);
    evaluator.add(left, right, result);
    std::printf("xy + x^2 owes %d rescale(s)\n", result.getRescaleCounter());
    evaluator.rescale(result);
    Message square(x.getLogSlots());
    evaluator.mult(x, y, expected);
    evaluator.square(x, square);
    evaluator.add(expected, square, expected);
    worst = std::max(worst, report("one rescale for two products:"));

    // At level 0 the library refuses to multiply, instead of giving a wrong result.
    evaluator.levelDown(result, 0, result);
    try {
        evaluator.square(result, result);
        return 1;
    } catch (const RuntimeException& refusal) {
        std::printf("at level 0: \"%s\"\n", refusal.what());
    }
    return worst < 0x1p-18 ? 0 : 1;
}
