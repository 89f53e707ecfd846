// 10. Handwritten digits.
//
// A client has images of digits that nobody else may see; a server has a neural network: a convolution, a dense hidden
// layer and a dense output, with squares between them. 256 images lie beside each other in one ciphertext, 64 slots each,
// and go through the network together. Each layer is one `EncodedTransform`: a matrix of 64 by 64 that is repeated for
// every image.

#include "common/ByteCount.hpp"
#include "common/DigitsNetwork.hpp"
#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <set>
#include <utility>
#include <vector>

namespace {

using namespace Torvo;
using namespace example;

constexpr unsigned long width = 64; // slots of an image
constexpr int epochs = 24;

Message pack(const std::vector<Digit>& digits, unsigned long log_slots) {
    Message message(log_slots, 0.0);
    for (std::size_t i = 0; i < digits.size(); ++i)
        std::copy(digits[i].pixels.begin(), digits[i].pixels.end(), message.begin() + i * width);
    return message;
}

// The network as the server keeps it. Levels: one for each layer and one for each square.
class EncryptedNetwork {
public:
    EncryptedNetwork(const Context& context, const Network& network, unsigned long log_slots,
                     unsigned long level) {
        for (const Layer& layer : network.layers) {
            transforms_.emplace_back(context, LinearTransform::fromMatrix(layer.matrix()), log_slots, level);
            level -= 2;
            Message biases(log_slots, 0.0);
            for (unsigned long i = 0; i < biases.getSize(); ++i)
                if (i % width < layer.outputs) biases[i] = layer.parameters[layer.biases[i % width]];
            biases_.push_back(biases);
        }
    }

    /// Known before any key exists.
    std::set<unsigned long> rotations() const {
        std::set<unsigned long> all;
        for (const EncodedTransform& transform : transforms_)
            for (const unsigned long index : transform.getRotationIndices()) all.insert(index);
        return all;
    }

    void operator()(const HomEvaluator& evaluator, const Ciphertext& images, Ciphertext& logits) const {
        logits = images;
        for (std::size_t l = 0; l < transforms_.size(); ++l) {
            if (l > 0) evaluator.square(logits, logits);
            transforms_[l].apply(evaluator, logits, logits);
            evaluator.add(logits, biases_[l], logits);
        }
    }

private:
    std::vector<EncodedTransform> transforms_;
    std::vector<Message> biases_;
};

} // namespace

int main(int argc, char** argv) {
    std::vector<std::pair<const char*, double>> times;
    const auto phase = [&](const char* name, const auto& work) {
        times.emplace_back(name, timed(name, work));
        return times.back().second;
    };

    // The server's model, in the clear.
    const std::vector<Digit> digits = readDigits(argc > 1 ? argv[1] : TORVO_EXAMPLE_DIGITS);
    const Context context = makeContext(ParameterPreset::ST8);
    const unsigned long log_slots = getLogFullSlots(context), images = (1UL << log_slots) / width;
    const std::vector<Digit> test(digits.begin(), digits.begin() + images),
        training(digits.begin() + images, digits.end());
    // 64 hidden numbers, and ten logits.
    Network network{{Layer::convolution(4), Layer::dense(width, width), Layer::dense(10, width)}};
    phase("train in the clear", [&] { network.train(training, epochs); });
    const unsigned long level = getEncryptionLevel(context);
    std::vector<EncryptedNetwork> server;
    phase("encode the network", [&] { server.emplace_back(context, network, log_slots, level); });

    // The client's keys: the server said which rotations it needs.
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    const std::set<unsigned long> rotations = server[0].rotations();
    phase("generate keys", [&] {
        keyGenerator.genEncKey();
        keyGenerator.genMultKey();
        for (const unsigned long index : rotations) keyGenerator.genLeftRotKey(index);
    });
    const KeyPack keys = keyGenerator.getKeyPack();

    Ciphertext encrypted(context), answer(context);
    phase("encode and encrypt", [&] { Encryptor(context).encrypt(pack(test, log_slots), keys, encrypted); });
    const HomEvaluator evaluator(context, keys);
    const double seconds = phase("classify on ciphertexts", [&] { server[0](evaluator, encrypted, answer); });
    Message logits;
    phase("decrypt and decode", [&] { Decryptor(context).decrypt(answer, secretKey, logits); });

    // Against the same network in the clear.
    double largestError = 0;
    std::size_t agree = 0, ambiguous = 0, rightEncrypted = 0, rightClear = 0;
    std::vector<std::pair<std::vector<double>, std::vector<double>>> both;
    for (std::size_t i = 0; i < test.size(); ++i) {
        std::vector<double> seen, clear = network(test[i].pixels);
        for (std::size_t k = 0; k < 10; ++k) {
            seen.push_back(logits[i * width + k].real());
            largestError = std::max(largestError, std::abs(seen[k] - clear[k]));
        }
        agree += largest(seen) == largest(clear);
        rightEncrypted += largest(seen) == test[i].label;
        rightClear += largest(clear) == test[i].label;
        both.emplace_back(std::move(seen), std::move(clear));
    }
    // Only where the two best logits are closer than twice the error may predictions differ.
    bool isExplained = true;
    for (auto& [seen, clear] : both) {
        if (largest(seen) == largest(clear)) continue;
        std::sort(clear.begin(), clear.end());
        ++ambiguous;
        isExplained = isExplained && clear[9] - clear[8] <= 2 * largestError;
    }

    const auto percent = [&](std::size_t part) { return 100.0 * double(part) / double(test.size()); };
    std::printf("preset                   ST8, %lu-bit security\n", getSecurityLevel(context));
    std::printf("images in a ciphertext   %zu\n", test.size());
    std::printf("levels used              %lu of %lu\n", level - answer.getLevel(), level);
    for (const auto& [name, taken] : times) std::printf("%-24s %.3f s\n", name, taken);
    std::printf("images a second          %.0f\n", double(test.size()) / seconds);
    std::printf("rotation keys            %zu, all public keys %.1f MiB\n", rotations.size(), savedMiB(keys));
    std::printf("largest error            2^%.1f of the logits\n", std::log2(largestError));
    std::printf("accuracy                 %.2f %% encrypted, %.2f %% in the clear\n", percent(rightEncrypted),
                percent(rightClear));
    std::printf("predictions that agree   %zu of %zu, %zu with two logits closer than the error\n", agree,
                test.size(), ambiguous);
    return isExplained && largestError < 0x1p-12 && rightClear > test.size() * 9 / 10 ? 0 : 1;
}
