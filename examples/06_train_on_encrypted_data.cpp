// 6. Training on encrypted data.
//
// In the demo the model was known and the patients were encrypted. Here the server trains the model itself, a
// logistic regression by Nesterov's gradient descent on mini-batches, without ever seeing a patient or a
// weight. Every iteration spends six levels, and a bootstrap gives them back.

#include "common/MedicalData.hpp"
#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using namespace Torvo;
using namespace example;
constexpr unsigned long width = 32, rows = 256;      // a batch: one patient a row, 30 features and a one
constexpr unsigned long logWidth = 5, logBatch = 13; // log2 of the slots of a weight vector and of a batch
constexpr int iterations = 8;
constexpr double bound = 8, step = 0.2; // scores are taken to lie in [-bound, bound]

// With labels of 1 and -1 multiplied into the rows z_i, the loss falls fastest along the mean of
// sigmoid(-w z_i) z_i. The same text trains on ciphertexts and on messages; weights repeat every `width`
// slots.
template <class Data>
struct Trainer {
    const HomEvaluator& evaluator;
    double count; // patients in a batch
    Message firstColumn = Message(logBatch, 0.0);

    // weights + step * mean over i of sigmoid(-weights z_i) z_i: five levels.
    void descend(const Data& batch, const Data& weights, Data& out) const {
        // sigmoid(-bound u) ~ 0.5 - t1 T1(u) - t3 T3(u) with T3 = 4 u^3 - 3 u.
        const std::vector<double> t = chebyshevOfSigmoid(bound);
        const double scale = step / count;
        Data u(batch), square(batch), term(batch);
        evaluator.mult(batch, weights, u);
        evaluator.leftRotateReduce(u, 1, width, u);
        evaluator.mult(u, firstColumn, u);           // the scores over `bound`, one a row ...
        evaluator.rightRotateReduce(u, 1, width, u); // ... and all over the row
        evaluator.square(u, square);
        evaluator.mult(u, -4 * t[3] * scale, term);
        evaluator.mult(term, square, term);
        evaluator.mult(u, (3 * t[3] - t[1]) * scale, u);
        evaluator.add(term, u, term);
        evaluator.add(term, 0.5 * scale, term);
        evaluator.mult(term, batch, term);
        evaluator.leftRotateReduce(term, width, rows, term); // the sum over the rows
        evaluator.add(weights, term, out);
    }

    // One iteration: `ahead` is where the momentum has carried the weights.
    void iterate(const Data& batch, double momentum, Data& weights, Data& ahead) const {
        Data next(batch);
        descend(batch, ahead, next);
        evaluator.sub(next, weights, ahead);
        evaluator.mult(ahead, momentum, ahead);
        evaluator.add(ahead, next, ahead);
        weights = next;
    }
};
std::size_t rightAnswers(const std::vector<Patient>& patients, const Standardiser& standardise,
                         const Message& w) {
    return std::ranges::count_if(patients, [&](const Patient& p) {
        const std::vector<double> x = standardise(p.features);
        double score = w[x.size()].real();
        for (std::size_t f = 0; f < x.size(); ++f) score += x[f] * w[f].real();
        return (score > 0) == (p.benign > 0.5);
    });
}

} // namespace

int main() {
    const Split patients = split(readPatients(TORVO_EXAMPLE_DATA), 0.8);
    const Standardiser standardise(patients.training);
    std::vector<Message> batches(2, Message(logBatch, 0.0));
    for (std::size_t i = 0; i < patients.training.size(); ++i) {
        const Patient& p = patients.training[i];
        const double label = p.benign > 0.5 ? 1 : -1;
        std::complex<double>* row = batches[i % 2].begin() + i / 2 * width;
        for (const double x : standardise(p.features)) *row++ = label * x;
        *row = label;
    }

    const Context context = makeContext(ParameterPreset::FGb);
    std::printf("FGb, %lu-bit security; %zu patients\n", getSecurityLevel(context), patients.training.size());
    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    timed("generating keys", [&] {
        keyGenerator.genEncKey();
        keyGenerator.genMultKey();
        keyGenerator.genConjKey();
        for (unsigned long i = 1; i < width; i *= 2) keyGenerator.genRightRotKey(i);
        for (unsigned long i = 1; i < width * rows; i *= 2)
            keyGenerator.genRotKeyIfNotExist(static_cast<long>(i));
        keyGenerator.genRotKeysForBootstrap(logWidth);
    });
    const KeyPack keys = keyGenerator.getKeyPack();
    const HomEvaluator evaluator(context, keys);
    const Bootstrapper bootstrapper(evaluator, logWidth);
    Trainer<Ciphertext> server{evaluator, double(patients.training.size()) / 2};
    Trainer<Message> clear{evaluator, server.count};
    for (unsigned long i = 0; i < rows; ++i)
        clear.firstColumn[i * width] = server.firstColumn[i * width] = 1 / bound;
    Message weights(logBatch, 0.0), ahead(logBatch, 0.0), decrypted;
    std::vector<Ciphertext> encryptedBatches(2, Ciphertext(context));
    Ciphertext encryptedWeights(context), encryptedAhead(context), both(context);
    const Encryptor encryptor(context);
    for (int b = 0; b < 2; ++b) encryptor.encrypt(batches[b], keys, encryptedBatches[b]);
    encryptor.encrypt(weights, keys, encryptedWeights);
    encryptedAhead = encryptedWeights;
    for (int i = 0; i < iterations; ++i) {
        const double momentum = i / (i + 3.0);
        clear.iterate(batches[i % 2], momentum, weights, ahead);
        const double seconds = timed("an iteration", [&] {
            server.iterate(encryptedBatches[i % 2], momentum, encryptedWeights, encryptedAhead);
            if (i + 1 == iterations) return;
            // Both vectors in one ciphertext, as real and imaginary part, and with the slots that they need:
            // 2^5.
            evaluator.multImagUnit(encryptedAhead, both);
            evaluator.add(both, encryptedWeights, both);
            both.setLogSlots(logWidth);
            bootstrapper.bootstrap(both, encryptedWeights, encryptedAhead);
            encryptedWeights.setLogSlots(logBatch);
            encryptedAhead.setLogSlots(logBatch);
        });
        std::printf("iteration %d: %.1f s, weights at level %lu\n", i + 1, seconds,
                    encryptedWeights.getLevel());
    }

    Decryptor(context).decrypt(encryptedWeights, secretKey, decrypted);
    double deviation = 0;
    for (unsigned long f = 0; f < width; ++f)
        deviation = std::max(deviation, std::abs(decrypted[f] - weights[f]));
    const auto right = static_cast<long>(rightAnswers(patients.test, standardise, decrypted));
    const auto rightClear = static_cast<long>(rightAnswers(patients.test, standardise, weights));
    std::printf("%d bootstraps; largest deviation of a weight 2^%.1f\n", iterations - 1,
                std::log2(deviation));
    std::printf("right on %ld of %zu test patients; trained in the clear, on %ld\n", right,
                patients.test.size(), rightClear);
    return deviation < 0x1p-12 && std::abs(right - rightClear) <= 1 ? 0 : 1;
}
