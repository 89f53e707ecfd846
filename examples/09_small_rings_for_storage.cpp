// 9. Small rings for storage.
//
// A ciphertext need not be stored at the size at which it was computed. Moved to its coefficients it takes
// one prime instead of thirteen, and a ciphertext of one prime is as secure in a ring of degree 2^12 as one
// of twenty-five primes in degree 2^16. So it can be decomposed into small ciphertexts, or, if its message is
// short, into a single one. And it can be brought back.

#include "common/ByteCount.hpp"
#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <vector>

namespace {

using namespace Torvo;
using namespace example;

constexpr unsigned long log_slots = 11; // 2 * 2^11 coefficients: as many as the small ring has
constexpr bool compact = true;

double largestError(const std::vector<double>& a, const std::vector<double>& b) {
    double largest = 0;
    for (unsigned long i = 0; i < a.size(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

double largestError(const Message& a, const Message& b) {
    double largest = 0;
    for (unsigned long i = 0; i < a.getSize(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

// Both rings, and the keys from one to the other.
struct Rings {
    Context large = makeContext(ParameterPreset::FGb), small = makeContext(ParameterPreset::FGbD12L0);
    SecretKey largeKey{large}, smallKey{small};
    KeyGenerator generator{large, largeKey};
    // A switch to a small secret needs a small modulus: FGbL0 has the degree of FGb and a single prime.
    RingSwitchKey toSmall = generator.genDecomposeKey(makeContext(ParameterPreset::FGbL0), smallKey);
    RingSwitchKey toLarge = generator.genComposeKey(smallKey);
};

// 65536 numbers on the coefficients of a ciphertext, stored in 16 pieces that can be read one by one.
double storeInPieces(const Rings& rings) {
    std::vector<double> numbers, again, piece;
    for (unsigned long i = 0; i < getDegree(rings.large); ++i) numbers.push_back(std::sin(0.3 * double(i)));
    Ciphertext whole(rings.large);
    Encryptor(rings.large).encrypt(numbers, rings.largeKey, whole, 0, 0);
    const unsigned long count = getNumCiphertextsAfterFullDecompose(rings.large, rings.small);
    std::vector<Ciphertext> pieces(count, Ciphertext(rings.small));
    std::vector<Ciphertext*> outputs;
    std::vector<const Ciphertext*> inputs;
    for (Ciphertext& each : pieces) {
        outputs.push_back(&each);
        inputs.push_back(&each);
    }
    const double apart = timed("decompose", [&] { RingPacker().decompose(whole, rings.toSmall, outputs); });

    // Piece j holds every 16th number, from number j on.
    Decryptor(rings.small).decrypt(pieces[3], rings.smallKey, piece);
    double error = 0;
    for (unsigned long c = 0; c < piece.size(); ++c)
        error = std::max(error, std::abs(piece[c] - numbers[c * count + 3]));
    std::printf("%.2f MiB fall into %lu pieces of %.3f MiB (%.2f s); piece 3 has error 2^%.1f\n",
                savedMiB(whole), count, savedMiB(pieces[0]), apart, std::log2(error));

    const double together = timed("compose", [&] { RingPacker().compose(inputs, rings.toLarge, whole); });
    Decryptor(rings.large).decrypt(whole, rings.largeKey, again);
    error = std::max(error, largestError(again, numbers));
    std::printf("composed again (%.2f s), error 2^%.1f\n", together, std::log2(largestError(again, numbers)));
    return error;
}

// A message of 2^11 slots cut down to one small ciphertext, and brought back to slots and levels.
double storeAMessage(const Rings& rings) {
    std::printf("keys to bootstrap: %.1f s\n", timed("keys to bootstrap", [&] {
                    rings.generator.genMultKey();
                    rings.generator.genConjKey();
                    rings.generator.genRotKeysForBootstrap(log_slots, compact);
                }));
    const HomEvaluator evaluator(rings.large, rings.generator.getKeyPack());
    const Bootstrapper bootstrapper(evaluator, log_slots, compact);
    Message message(log_slots), after;
    for (unsigned long i = 0; i < message.getSize(); ++i) message[i] = std::polar(0.9, 0.3 * double(i));
    Ciphertext whole(rings.large), coefficients(rings.large), piece(rings.small);
    Encryptor(rings.large).encrypt(message, rings.largeKey, whole);
    const double before = savedMiB(whole);

    // The coefficients of a message of 2^11 slots are at every 16th place, which decomposing to a single
    // ciphertext keeps.
    std::vector<Ciphertext*> output{&piece};
    double seconds = timed("down", [&] {
        bootstrapper.slotToCoeff(whole, coefficients);
        RingPacker().decompose(coefficients, rings.toSmall, output);
    });
    std::printf("level %lu, %.1f MiB, became level %lu, %.3f MiB: 1/%.0f (%.1f s)\n", whole.getLevel(),
                before, piece.getLevel(), savedMiB(piece), before / savedMiB(piece), seconds);

    seconds = timed("up", [&] {
        RingPacker().compose({&piece}, rings.toLarge, whole);
        whole.setLogSlots(log_slots); // the composed ciphertext knows nothing of slots
        bootstrapper.halfBoot(whole, whole, true);
    });
    Decryptor(rings.large).decrypt(whole, rings.largeKey, after);
    const double error = largestError(after, message);
    std::printf("back on its slots at level %lu, error 2^%.1f (%.1f s)\n", whole.getLevel(), std::log2(error),
                seconds);
    return error;
}

} // namespace

int main() {
    const Rings rings;
    const double pieces = storeInPieces(rings), message = storeAMessage(rings);
    return std::max(pieces, message) < 0x1p-16 ? 0 : 1;
}
