// 7. One bootstrap, step by step.
//
// A ciphertext at the bottom of its levels cannot be multiplied any more. Bootstrapping gives it levels back,
// without the secret key and without anyone seeing the message. This program takes one apart into its two
// halves, and looks at the error after each.

#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <vector>

namespace {

using namespace Torvo;

double largestError(const Message& a, const Message& b) {
    double largest = 0;
    for (unsigned long i = 0; i < a.getSize(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

/// The index with its lowest `bits` bits in reverse order.
unsigned long reversed(unsigned long index, unsigned long bits) {
    unsigned long result = 0;
    for (unsigned long b = 0; b < bits; ++b) result |= (index >> b & 1) << (bits - 1 - b);
    return result;
}

} // namespace

int main() {
    // FGb works in a ring of degree 2^16. A message of 2^8 slots needs fewer rotation keys than a full one;
    // the compact set is smaller still, at the price of slower rotations.
    constexpr unsigned long log_slots = 8;
    constexpr bool compact = true;
    const Context context = makeContext(ParameterPreset::FGb);
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    std::printf("keys: %.1f s\n", example::timed("generating keys", [&] {
                    keyGenerator.genEncKey();
                    keyGenerator.genMultKey();
                    keyGenerator.genConjKey();
                    keyGenerator.genRotKeysForBootstrap(log_slots, compact);
                }));
    const KeyPack keys = keyGenerator.getKeyPack();
    const HomEvaluator evaluator(context, keys);

    // The linear transforms of bootstrapping are matrices, encoded once for each number of slots.
    const Bootstrapper bootstrapper(evaluator, log_slots, compact);

    // Real and imaginary parts must lie in [-1, 1]. Level 3 is the lowest from which a bootstrap can start.
    Message message(log_slots);
    for (unsigned long i = 0; i < message.getSize(); ++i) message[i] = std::polar(0.9, 0.3 * double(i));
    Ciphertext exhausted(context), coefficients(context), refreshed(context);
    Encryptor(context).encrypt(message, keys, exhausted, bootstrapper.getMinLevelForBootstrap(), 0);
    const Decryptor decryptor(context);
    Message before, after;
    decryptor.decrypt(exhausted, secretKey, before);
    std::printf("level %lu: an encryption, error 2^%.1f\n", exhausted.getLevel(),
                std::log2(largestError(before, message)));

    // First half: from slots to coefficients. The last three levels go into a DFT after which the polynomial
    // itself has the message as its coefficients: the real parts, then the imaginary parts, each in
    // bit-reversed order, which the way back undoes.
    double seconds =
        example::timed("slots to coefficients", [&] { bootstrapper.slotToCoeff(exhausted, coefficients); });
    std::vector<double> values;
    decryptor.decrypt(coefficients, secretKey, values);
    double error = 0;
    for (unsigned long i = 0; i < message.getSize(); ++i) {
        const unsigned long k = reversed(i, log_slots);
        error = std::max(error, std::abs(values[k] - before[i].real()));
        error = std::max(error, std::abs(values[k + message.getSize()] - before[i].imag()));
    }
    std::printf("level %lu: on its coefficients, error 2^%.1f (%.1f s)\n", coefficients.getLevel(),
                std::log2(error), seconds);

    // Second half: the ciphertext is read modulo all primes instead of one, which adds unknown multiples of
    // the base prime; the inverse DFT brings the coefficients back to slots; and a sine, whose period is the
    // base prime, makes the multiples disappear.
    seconds =
        example::timed("half a bootstrap", [&] { bootstrapper.halfBoot(coefficients, refreshed, true); });
    decryptor.decrypt(refreshed, secretKey, after);
    const double halves = largestError(after, before);
    std::printf("level %lu: back on its slots, error 2^%.1f (%.1f s)\n", refreshed.getLevel(),
                std::log2(halves), seconds);

    // Both halves in one call. A message known to be real needs one sine instead of two.
    Message real(before), realAfter;
    for (auto& slot : real) slot = slot.real();
    seconds = example::timed("a bootstrap", [&] { bootstrapper.bootstrap(exhausted, refreshed, false); });
    decryptor.decrypt(refreshed, secretKey, realAfter);
    const double whole = largestError(realAfter, real);
    std::printf("level %lu: in one call, real part, error 2^%.1f (%.1f s)\n", refreshed.getLevel(),
                std::log2(whole), seconds);

    // And the point of it all: it can be multiplied again.
    Message square;
    evaluator.square(refreshed, refreshed);
    evaluator.square(real, real);
    decryptor.decrypt(refreshed, secretKey, square);
    std::printf("level %lu: squared, error 2^%.1f\n", refreshed.getLevel(),
                std::log2(largestError(square, real)));
    return std::max(halves, whole) < 0x1p-18 ? 0 : 1;
}
