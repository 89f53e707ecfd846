#include "crypto/RandomSampler.hpp"

#include "arithmetic/kernels/ThrowingLoop.hpp"
#include "arithmetic/kernels/UniformResidue.hpp"
#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "core/WipedVector.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <tuple>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// Small signed coefficients of an error or of an ephemeral secret.
using SmallCoefficients = utils::WipedVector<long>;

/// Two independent values lround(sigma * N(0, 1)) from one word, by the Box-Muller transform. The 1 added to
/// the low half keeps the logarithm's argument above 0.
std::pair<long, long> gaussianPair(u64 word, double sigma) {
    constexpr double unit = 0x1p-32;
    const auto hi = static_cast<double>(word >> 32);
    const auto lo = static_cast<double>((word & 0xffffffff) + 1);
    const double theta = hi * unit * (2 * std::numbers::pi);
    const double r = std::sqrt(-2.0 * std::log(lo * unit));
    return {std::lround(sigma * r * std::cos(theta)), std::lround(sigma * r * std::sin(theta))};
}

/// The words are drawn on the calling thread; a team shares the computation.
void fillGaussian(SmallCoefficients& coefficients, double sigma) {
    utils::WipedVector<u64> words(coefficients.size() / 2);
    auto& generator = threadGenerator();
    generator.makeBuffer();
    generator.getRandomNumbers(words.data(), words.size());
    forEachShare(words.size(), [&](u64 begin, u64 end) {
        for (u64 i = begin; i < end; ++i)
            std::tie(coefficients[2 * i], coefficients[2 * i + 1]) = gaussianPair(words[i], sigma);
    });
}

/// One row of uniform residues, from the executing thread's generator.
void fillUniform(u64 prime, u64* row, u64 count) {
    auto& generator = threadGenerator();
    const UniformResidue residue(prime);
    generator.getRandomNumbers(row, count);
    for (u64 k = 0; k < count; ++k) row[k] = residue(row[k], generator);
}

/// Calls fillRow(i) for the rows below `count`, each on a thread of the team, which draws from its own
/// generator. No word is drawn before all generators have their seeds and buffers, so that drawing cannot
/// fail: no exception may leave the loop.
template <class FillRow>
void fillRows(u64 count, FillRow&& fillRow) {
    forEachIndexAfter([] { threadGenerator().makeBuffer(); }, count, fillRow);
}

/// A coefficient from the two low bits: 0 for 00 and 01, -1 for 10, +1 for 11.
long ternary(u64 bits) {
    if ((bits & 2) == 0) return 0;
    return (bits & 1) != 0 ? 1 : -1;
}

void fillZO(SmallCoefficients& coefficients) {
    constexpr u64 coefficientsPerWord = 32;
    auto& generator = threadGenerator();
    for (u64 i = 0; i < coefficients.size(); i += coefficientsPerWord) {
        u64 word = generator();
        const u64 end = std::min(i + coefficientsPerWord, coefficients.size());
        for (u64 k = i; k < end; ++k, word >>= 2) coefficients[k] = ternary(word);
    }
}

/// Stores the residues of the same small polynomial in all rows.
void spread(const SmallCoefficients& coefficients, const PrimeModuli& primes, Polynomial& poly) {
    poly.setNTT(false);
    // Signed and unsigned words may stand for each other in memory.
    const u64* words = reinterpret_cast<const u64*>(coefficients.data());
    u64 greatest = 0;
    for (u64 k = 0; k < coefficients.size(); ++k) greatest |= static_cast<u64>(std::labs(coefficients[k]));
    forEachIndex(poly.rowEnd(),
                 [&](u64 i) { primes[i].residueVector(words, greatest, poly.getRow(i), poly.getDegree()); });
}

} // namespace

void RandomSampler::sampleUniform(Polynomial& poly, const Context& context) const {
    fillRows(poly.rowEnd(),
             [&](u64 i) { fillUniform(context->primes.getPrime(i), poly.getRow(i), poly.getDegree()); });
}

void RandomSampler::sampleUniform(LevelledVector& vector, const LWE::Context& context) const {
    fillRows(vector.getLevel() + 1, [&](u64 i) {
        fillUniform(context->primes.getPrime(i), vector.getRow(i), vector.getDimension());
    });
}

void RandomSampler::sampleGaussian(Polynomial& poly, const Context& context) const {
    SmallCoefficients coefficients(poly.getDegree());
    fillGaussian(coefficients, context->parameter.gaussian_stddev);
    spread(coefficients, context->primes, poly);
}

void RandomSampler::sampleGaussian(LevelledElement& element, const LWE::Context& context) const {
    SmallCoefficients pair(2);
    fillGaussian(pair, context->parameter.gaussian_stddev);
    element = LevelledElement(pair[0], context, element.getLevel());
}

void RandomSampler::sampleZO(Polynomial& poly, const Context& context) const {
    SmallCoefficients coefficients(poly.getDegree());
    fillZO(coefficients);
    spread(coefficients, context->primes, poly);
}

void RandomSampler::sampleHWT(DeviceSpecificArray<int>& out, unsigned long size, unsigned long weight) const {
    out.resize(size);
    std::fill(out.begin(), out.end(), 0);
    if (weight == 0) return; // and where there is no position, there is no residue modulo their number
    auto& generator = threadGenerator();
    const UniformResidue position(size);
    for (u64 set = 0; set < weight;) {
        int& coefficient = out[position(generator(), generator)];
        if (coefficient != 0) continue;
        coefficient = (generator() & 1) != 0 ? 1 : -1;
        ++set;
    }
}

} // namespace Torvo
