// 5. The demo: a diagnosis on encrypted patients.
//
// A hospital (the client) wants to know for each patient of a test set whether a tumour is benign. A company
// (the server) has a model. The hospital encrypts its patients; the server computes on ciphertexts alone and
// sees neither a measurement nor a diagnosis; the hospital decrypts the answers.
//
// Usage: demo [data [seed]]. A seed is for comparisons: with it, and one thread, python/02_medical_demo.py decrypts
// the same numbers, bit by bit, and prints the same digest.

#include "common/ByteCount.hpp"
#include "common/MedicalData.hpp"
#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Torvo;
using namespace example;
constexpr unsigned long width = 32; // slots per patient: 30 features, a one for the bias, a zero

// One patient after the other, `width` slots each, in as many slots as the next power of two.
Message pack(const std::vector<std::vector<double>>& rows) {
    unsigned long log_slots = 0;
    while ((1UL << log_slots) < rows.size() * width) ++log_slots;
    Message message(log_slots, 0.0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::copy(rows[i].begin(), rows[i].end(), message.begin() + i * width);
        message[i * width + rows[i].size()] = 1.0;
    }
    return message;
}

// The server has the model and public keys. Its circuit is written once, and runs on ciphertexts as well as
// on messages in the clear.
struct Server {
    HomEvaluator evaluator;
    LogisticModel model;
    double bound; // scores are taken to lie in [-bound, bound]

    // Slot 32 i of `out` becomes 0.5 + c1 y + c3 y^3 + c5 y^5 + c7 y^7 with y = score / bound of patient i:
    // one level for the weights, three for the powers.
    template <class Data>
    void classify(const Data& patients, Data& out) const {
        Message weights(patients.getLogSlots(), 0.0);
        for (unsigned long i = 0; i < weights.getSize(); ++i) {
            const unsigned long feature = i % width;
            if (feature < model.weights.size()) weights[i] = model.weights[feature] / bound;
            if (feature == model.weights.size()) weights[i] = model.bias / bound;
        }
        const std::vector<double> c = fitSigmoid(bound);

        Data y(patients), y2(patients), y4(patients), term(patients);
        evaluator.mult(patients, weights, y);
        evaluator.leftRotateReduce(y, 1, width, y); // slot 32 i: the sum over patient i

        evaluator.square(y, y2);
        evaluator.square(y2, y4);
        evaluator.mult(y, c[1], term); // c3 y^3 = (c3 y) y^2
        evaluator.mult(term, y2, out);
        evaluator.mult(y, c[0], term);
        evaluator.add(out, term, out);
        evaluator.mult(y, c[3], term); // (c5 y + c7 y^3) y^4
        evaluator.mult(term, y2, term);
        evaluator.mult(y, c[2], y);
        evaluator.add(term, y, term);
        evaluator.mult(term, y4, term);
        evaluator.add(out, term, out);
        evaluator.add(out, 0.5, out);
    }
};

// One number for all bits of the real parts: FNV-1a over their bytes, the lowest first.
unsigned long digest(const Message& message) {
    unsigned long value = 0xcbf29ce484222325;
    for (const std::complex<double>& number : message) {
        const auto bits = std::bit_cast<unsigned long>(number.real());
        for (int shift = 0; shift < 64; shift += 8) value = (value ^ (bits >> shift & 0xff)) * 0x100000001b3;
    }
    return value;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::pair<const char*, double>> times;
    const auto phase = [&](const char* name, const auto& work) {
        times.emplace_back(name, timed(name, work));
    };

    // In the clear: read, split 80/20, standardise by the training part, fit.
    const Split patients = split(readPatients(argc > 1 ? argv[1] : TORVO_EXAMPLE_DATA), 0.8);
    const Standardiser standardise(patients.training);
    std::vector<std::vector<double>> training, test;
    std::vector<double> labels;
    for (const Patient& p : patients.training) {
        training.push_back(standardise(p.features));
        labels.push_back(p.benign);
    }
    for (const Patient& p : patients.test) test.push_back(standardise(p.features));
    LogisticModel model;
    phase("fit in the clear", [&] { model = fit(training, labels, 0.01, 2000); });
    double bound = 0;
    for (const auto& row : training) bound = std::max(bound, std::abs(model.score(row)));
    bound *= 1.25; // test patients may lie a little further out

    // The client makes parameters and keys.
    Context context;
    phase("build the context", [&] { context = makeContext(ParameterPreset::ST11); });
    if (argc > 2) setSeed({std::stoul(argv[2]), 0, 0, 0}); // never for real keys
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    phase("generate keys", [&] {
        keyGenerator.genEncKey();
        keyGenerator.genMultKey();
        for (unsigned long step = 1; step < width; step *= 2) keyGenerator.genLeftRotKey(step);
    });
    const KeyPack keys = keyGenerator.getKeyPack();
    // The client encrypts; the server, with public keys only, classifies; the client decrypts.
    const Message message = pack(test);
    Ciphertext encrypted(context), answer(context);
    phase("encode and encrypt", [&] { Encryptor(context).encrypt(message, keys, encrypted); });
    const Server server{HomEvaluator(context, keys), model, bound};
    phase("classify on ciphertexts", [&] { server.classify(encrypted, answer); });
    Message scores, clearScores;
    phase("decrypt and decode", [&] { Decryptor(context).decrypt(answer, secretKey, scores); });

    // Against the same circuit in the clear, and against the model itself.
    server.classify(message, clearScores);
    double largestError = 0;
    std::size_t agree = 0, rightEncrypted = 0, rightClear = 0;
    for (std::size_t i = 0; i < test.size(); ++i) {
        largestError = std::max(largestError, std::abs(scores[i * width] - clearScores[i * width]));
        const bool encryptedSaysBenign = scores[i * width].real() > 0.5;
        const bool clearSaysBenign = sigmoid(model.score(test[i])) > 0.5;
        agree += encryptedSaysBenign == clearSaysBenign;
        rightEncrypted += encryptedSaysBenign == (patients.test[i].benign > 0.5);
        rightClear += clearSaysBenign == (patients.test[i].benign > 0.5);
    }

    const auto percent = [&](std::size_t part) { return 100.0 * double(part) / double(test.size()); };
    std::printf("preset                   ST11, %lu-bit security\n", getSecurityLevel(context));
    std::printf("ring degree, slots       %lu, %lu\n", getDegree(context), getDegree(context) / 2);
    std::printf("levels used              %lu of %lu\n", encrypted.getLevel() - answer.getLevel(),
                encrypted.getLevel());
    for (const auto& [name, seconds] : times) std::printf("%-24s %.3f s\n", name, seconds);
    std::printf("public keys on disk      %.1f MiB\n", savedMiB(keys));
    std::printf("ciphertexts              %.1f MiB in, %.1f MiB out\n", savedMiB(encrypted),
                savedMiB(answer));
    std::printf("largest error            2^%.1f against the same circuit in the clear\n",
                std::log2(largestError));
    std::printf("accuracy                 %.2f %% encrypted, %.2f %% in the clear\n", percent(rightEncrypted),
                percent(rightClear));
    std::printf("predictions that agree   %zu of %zu\n", agree, test.size());
    if (argc > 2) std::printf("digest of the scores     %016lx\n", digest(scores));
    return agree == test.size() && largestError < 0x1p-20 ? 0 : 1;
}
