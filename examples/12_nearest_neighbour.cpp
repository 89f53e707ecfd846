// 12. The nearest neighbour.
//
// A client has an image of a digit, encrypted; a server has a table of typical digits, which is not. The server computes
// the distances to all of them and returns which is the smallest: a 1 in its place, and 0 in the others. So the client
// learns the digit and nothing else of the table, and the server learns nothing.

#include "common/DigitsNetwork.hpp"
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

constexpr unsigned long logPixels = 6, logRows = 4; // 64 pixels; 10 rows of the table and 6 that are empty
constexpr unsigned long rows = 1UL << logRows, queries = 4;
constexpr Accuracy accuracy{5, 5};

// For each row t of the table 2 q.t - |t|^2, the closer the larger, less the mean of all rows: that is a number for every
// row, and the same for all, and so leaves their order as it is. All are scaled to lie in [-1, 1].
struct Table {
    std::vector<std::vector<double>> weights;
    std::vector<double> offsets;

    explicit Table(const std::vector<Digit>& digits) : weights(10, std::vector<double>(64)), offsets(10) {
        std::vector<double> counts(10);
        for (const Digit& digit : digits) {
            ++counts[digit.label];
            for (unsigned long i = 0; i < 64; ++i) weights[digit.label][i] += digit.pixels[i];
        }
        for (unsigned long k = 0; k < 10; ++k)
            for (double& t : weights[k]) {
                t /= counts[k];
                offsets[k] -= t * t;
                t *= 2;
            }
        for (unsigned long i = 0; i < 64; ++i)
            subtractMean([&](unsigned long k) -> double& { return weights[k][i]; });
        subtractMean([&](unsigned long k) -> double& { return offsets[k]; });
        double bound = 0;
        for (const Digit& digit : digits)
            for (const double score : scores(digit)) bound = std::max(bound, std::abs(score));
        bound *= 1.1; // other images may lie a little further out
        for (unsigned long k = 0; k < 10; ++k) {
            for (double& t : weights[k]) t /= bound;
            offsets[k] /= bound;
        }
    }

    std::vector<double> scores(const Digit& digit) const {
        std::vector<double> all = offsets;
        for (unsigned long k = 0; k < 10; ++k)
            for (unsigned long i = 0; i < 64; ++i) all[k] += weights[k][i] * digit.pixels[i];
        return all;
    }

private:
    template <class Of>
    static void subtractMean(Of of) {
        double mean = 0;
        for (unsigned long k = 0; k < 10; ++k) mean += of(k) / 10;
        for (unsigned long k = 0; k < 10; ++k) of(k) -= mean;
    }
};

// The scores of an image over and over, so that what comes out is a message of as many slots as there are rows.
LinearTransform transformOf(const Table& table) {
    std::vector<std::vector<std::complex<double>>> matrix(64, std::vector<std::complex<double>>(64));
    for (unsigned long i = 0; i < 64; ++i)
        if (i % rows < 10)
            std::copy(table.weights[i % rows].begin(), table.weights[i % rows].end(), matrix[i].begin());
    return LinearTransform::fromMatrix(matrix);
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<Digit> digits = readDigits(argc > 1 ? argv[1] : TORVO_EXAMPLE_DIGITS);
    const std::vector<Digit> known(digits.begin() + queries, digits.end());
    const Table table(known);

    const Context context = makeContext(ParameterPreset::ST19);
    const unsigned long level = getEncryptionLevel(context);
    const EncodedTransform distances(context, transformOf(table), logPixels, level);
    Message offsets(logPixels, -1.0); // empty rows are as far away as can be
    for (unsigned long i = 0; i < 64; ++i)
        if (i % rows < 10) offsets[i] = table.offsets[i % rows];

    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    const double keys = timed("generate keys", [&] {
        keyGenerator.genEncKey();
        keyGenerator.genMultKey();
        for (const unsigned long index : distances.getRotationIndices()) keyGenerator.genLeftRotKey(index);
        for (unsigned long index = 1; index < rows * rows; index *= 2)
            keyGenerator.genRotKeyIfNotExist(static_cast<long>(index));
    });
    const HomEvaluator evaluator(context, keyGenerator.getKeyPack());

    // Rows that are closer to each other than this are not told apart.
    const double margin = 2 * std::exp2(-double(accuracy.margin)) * (1 + std::exp2(-double(accuracy.margin)));
    std::printf("preset                   ST19, %lu-bit security\n", getSecurityLevel(context));
    std::printf("generate keys            %.1f s\n", keys);
    bool isRight = true;
    for (unsigned long n = 0; n < queries; ++n) {
        Message image(logPixels);
        std::copy(digits[n].pixels.begin(), digits[n].pixels.end(), image.begin());
        Ciphertext query(context), answer(context);
        Encryptor(context).encrypt(image, keyGenerator.getKeyPack(), query);
        const double seconds = timed("find the nearest row", [&] {
            distances.apply(evaluator, query, answer);
            evaluator.add(answer, offsets, answer);
            answer.setLogSlots(logRows); // the numbers are there every 16 slots
            argmax(evaluator, answer, 1, answer, accuracy);
        });
        Message oneHot;
        Decryptor(context).decrypt(answer, secretKey, oneHot);
        std::vector<double> found, clear = table.scores(digits[n]);
        for (unsigned long k = 0; k < 10; ++k) found.push_back(oneHot[k].real());
        const std::size_t nearest = largest(clear);
        std::vector<double> ordered = clear;
        std::sort(ordered.rbegin(), ordered.rend());
        const bool isClear = ordered[0] - ordered[1] > margin;
        std::printf(
            "image of a %zu             nearest row %zu, answer %zu (%.3f)%s; level %lu to %lu, %.1f s\n",
            digits[n].label, nearest, largest(found), found[largest(found)],
            isClear ? "" : ", two rows closer than the margin", level, answer.getLevel(), seconds);
        if (isClear) isRight = isRight && largest(found) == nearest && std::abs(found[nearest] - 1) < 0x1p-5;
    }
    return isRight ? 0 : 1;
}
