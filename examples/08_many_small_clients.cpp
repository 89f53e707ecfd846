// 8. Many small clients.
//
// A sensor or a telephone has one number to give, and a ciphertext of FGb would be 13 MiB. So each client
// encrypts its number under plain LWE, in 32 KiB. The server packs all of them into one small ring and embeds
// that in the ring of FGb. Half a bootstrap makes it an ordinary ciphertext, with a slot for every two
// clients and levels to spend. It returns mean and variance of all numbers in a single slot.

#include "common/ByteCount.hpp"
#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <cmath>
#include <complex>
#include <cstdio>
#include <vector>

namespace {

using namespace Torvo;
using namespace example;
using Module = CiphertextBase<EncryptionType::MLWE>;
using ModuleKey = SecretKeyBase<EncryptionType::MLWE>;

constexpr unsigned long clients = 4096, log_slots = 11; // two numbers a slot
constexpr bool compact = true;

// Packs `inputs` in groups, each as large as one output can hold.
template <class In, class Out>
void packAll(const std::vector<In>& inputs, const ModPackKeyBundle& keys, std::vector<Out>& outputs) {
    const unsigned long each = inputs.size() / outputs.size();
    for (unsigned long g = 0; g < outputs.size(); ++g) {
        std::vector<const In*> group;
        for (unsigned long i = 0; i < each; ++i) group.push_back(&inputs[g * each + i]);
        RingPacker().modPack(group, keys, outputs[g]);
    }
}

// The sum of all slots, in every slot.
Ciphertext sumOfSlots(const HomEvaluator& evaluator, const Ciphertext& in) {
    Ciphertext out(in);
    evaluator.leftRotateReduce(in, 1, 1UL << log_slots, out);
    return out;
}

// Slots x + iy hold two numbers each. The result has the mean as its real part and the variance as its
// imaginary part, in every slot.
Ciphertext statistics(const HomEvaluator& evaluator, const Ciphertext& numbers) {
    Ciphertext mean(numbers), centred(numbers), conjugate(numbers), variance(numbers);
    // Re((1 - i)(x + iy)) = x + y.
    evaluator.mult(sumOfSlots(evaluator, numbers), std::complex<double>(1, -1) / double(clients), mean);
    evaluator.killImag(mean, mean);
    evaluator.multImagUnit(mean, variance);
    evaluator.add(mean, variance, variance); // (1 + i) mean
    evaluator.sub(numbers, variance, centred);
    evaluator.conjugate(centred, conjugate);
    evaluator.mult(centred, conjugate, variance); // squares of both numbers of a slot, summed
    evaluator.mult(sumOfSlots(evaluator, variance), 1.0 / double(clients), variance);
    evaluator.multImagUnit(variance, variance);
    evaluator.add(mean, variance, variance);
    return variance;
}

} // namespace

int main() {
    const LWE::Context plain = LWE::makeContext(LWE::ParameterPreset::FGbD12L0);
    const Context rank64 = makeContext(ParameterPreset::FGbD6R6L0);
    const Context rank16 = makeContext(ParameterPreset::FGbD8R4L0);
    const Context small = makeContext(ParameterPreset::FGbD12L0), large = makeContext(ParameterPreset::FGb);
    const LWE::SecretKey clientKey(plain);
    const ModuleKey key64(rank64), key16(rank16);
    const SecretKey smallKey(small), largeKey(large);

    // Packing by way of two modules takes 64 + 4 + 16 keys of the small ring; at once it would take 4096.
    const KeyGenerator packing(small), generator(large, largeKey);
    ModPackKeyBundle to64(small, 0), to16(small, 0), toSmall(small, 0);
    double seconds = timed("keys to pack", [&] {
        to64 = packing.genModPackKeyBundle(clientKey, key64);
        to16 = packing.genModPackKeyBundle(key64, key16);
        toSmall = packing.genModPackKeyBundle(key16, smallKey);
    });
    RingSwitchKey toLarge(large);
    std::printf("keys to pack: %.1f MiB, %.1f s\n", savedMiB(to64) + savedMiB(to16) + savedMiB(toSmall),
                seconds);
    seconds = timed("keys to compose and to bootstrap", [&] {
        toLarge = generator.genComposeKey(smallKey);
        generator.genMultKey();
        generator.genConjKey();
        generator.genRotKeysForBootstrap(log_slots, compact);
        for (unsigned long i = 0; i < log_slots; ++i) generator.genRotKeyIfNotExist(1L << i);
    });
    std::printf("keys to compose and to bootstrap: %.1f s\n", seconds);

    // The clients: a number each, within [-1, 1].
    std::vector<double> numbers;
    double mean = 0, variance = 0;
    for (unsigned long i = 0; i < clients; ++i) numbers.push_back(0.2 + 0.5 * std::sin(0.7 * double(i * i)));
    for (const double x : numbers) mean += x / double(clients);
    for (const double x : numbers) variance += (x - mean) * (x - mean) / double(clients);
    std::vector<LWE::Ciphertext> sent(clients, LWE::Ciphertext(plain));
    const LWE::Encryptor encryptor(plain);
    seconds = timed("clients", [&] {
        for (unsigned long i = 0; i < clients; ++i) encryptor.encrypt(numbers[i], clientKey, sent[i]);
    });
    std::printf("%lu clients: %.3f MiB and %.2f ms each\n", clients, savedMiB(sent[0]),
                1e3 * seconds / clients);

    // The server.
    std::vector<Module> in64(64, Module(rank64)), in16(16, Module(rank16));
    std::vector<Ciphertext> packed(1, Ciphertext(small));
    std::printf("packed in %.1f s, ", timed("packing", [&] {
                    packAll(sent, to64, in64);
                    packAll(in64, to16, in16);
                    packAll(in16, toSmall, packed);
                }));
    std::printf("%.1f MiB became %.3f MiB\n", clients * savedMiB(sent[0]), savedMiB(packed[0]));

    // Coefficient c of the small ring becomes coefficient 16 c of the large one: the coefficients of a
    // message of 2048 slots, which half a bootstrap turns into slots.
    const HomEvaluator evaluator(large, generator.getKeyPack());
    const Bootstrapper bootstrapper(evaluator, log_slots, compact);
    Ciphertext ciphertext(large);
    RingPacker().compose({&packed[0]}, toLarge, ciphertext);
    ciphertext.setLogSlots(log_slots);
    seconds = timed("half a bootstrap", [&] { bootstrapper.halfBoot(ciphertext, ciphertext, true); });
    std::printf("on slots at level %lu: %.1f s\n", ciphertext.getLevel(), seconds);
    seconds = timed("statistics", [&] { ciphertext = statistics(evaluator, ciphertext); });
    std::printf("statistics at level %lu: %.1f s, %.1f MiB\n", ciphertext.getLevel(), seconds,
                savedMiB(ciphertext));

    Message result;
    Decryptor(large).decrypt(ciphertext, largeKey, result);
    const double error = std::max(std::abs(result[0].real() - mean), std::abs(result[0].imag() - variance));
    std::printf("mean %.6f, variance %.6f, error 2^%.1f\n", result[0].real(), result[0].imag(),
                std::log2(error));
    return error < 0x1p-16 ? 0 : 1;
}
