#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "context/ContextContent.hpp"
#include "support/NoiseModel.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <Torvo/EncodedTransform.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/LinearTransform.hpp>
#include <Torvo/Message.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <map>
#include <utility>
#include <vector>

/// Linear maps of slots, in the clear and encrypted.
namespace Torvo::test {

using Complex = std::complex<double>;
using Matrix = std::vector<std::vector<Complex>>;

/// Entries in the square [-1, 1]^2; each is there with that chance in sixteen, or else 0.
inline Matrix randomMatrix(Seeded& random, u64 rows, u64 columns, u64 sixteenths = 16) {
    Matrix matrix(rows, std::vector<Complex>(columns));
    for (auto& row : matrix)
        for (Complex& entry : row)
            if (random.below(16) < sixteenths) entry = {random.real(-1, 1), random.real(-1, 1)};
    return matrix;
}

/// The product of the matrix with each block of `size` slots, in long double. Rows and columns that the matrix lacks
/// are zeros.
inline Message productOf(const Matrix& matrix, u64 size, const Message& in) {
    Message out = in;
    for (u64 i = 0; i < in.getSize(); ++i) {
        std::complex<long double> sum = 0;
        const u64 row = i % size, block = i - row;
        if (row < matrix.size())
            for (u64 j = 0; j < matrix[row].size(); ++j)
                sum += std::complex<long double>(matrix[row][j]) * std::complex<long double>(in[block + j]);
        out[i] = {static_cast<double>(sum.real()), static_cast<double>(sum.imag())};
    }
    return out;
}

/// How much slots may differ from the product, by the rules of docs/noise.md, for an encryption of numbers of at
/// most modulus 2 and entries of at most modulus 2 in `rotations` rotations. In units of the message, all errors are
/// at the scale S of the transform's level, if not said otherwise:
///
///   the ciphertext's own, of a fresh encryption and of the rescale of a level down, and that of the key switch of a
///   baby step, each multiplied with the numbers of its diagonal: 4 * rotations times their variance at most;
///   that of encoding a diagonal, times a slot of the message: 4 * rotations / 12 for each coefficient, at the scale
///   S * 2^c, c being the correction of the level;
///   those of the giant steps, at the scale S^2 * 2^c: one for each rotation at most;
///   that of the rescale, one level below;
///   doubles on the way, relative to the largest sum.
inline double transformBound(const Context& context, u64 level, u64 rotations) {
    const NoiseModel model(context);
    const auto r = static_cast<double>(rotations);
    const Variance own = model.encryption() + model.rescale() + model.keySwitch(level);
    Variance sum = 4 * r * model.slots(own, level);
    const double corrected =
        std::pow(4.0, static_cast<double>(context->scale_factors.level_correction[level]));
    sum = sum + 4 * r / corrected * model.slots(Variance{1.0 / 12, {}}, level);
    sum = sum + r / corrected / std::pow(model.scale(level), 2) * model.slots(model.keySwitch(level), level);
    sum = sum + model.slots(model.rescale(), level - 1);
    return model.bound(sum) + ErrorModel::relative * 4 * r;
}

/// (m - a s, a) for a uniform a: an encryption without an error, at any level of the chain.
inline Ciphertext encryptAt(const Scheme& scheme, Seeded& random, const Message& message, u64 level) {
    const PrimeModuli& primes = scheme.context->primes;
    Ciphertext ciphertext(scheme.context);
    ciphertext.setLevel(level);
    ciphertext.setLogSlots(message.getLogSlots());
    Polynomial a(scheme.context, false, true, level), product = a;
    for (u64 i = 0; i <= level; ++i) {
        const auto row = random.row(a.getDegree(), primes.getPrime(i));
        std::ranges::copy(row, a.getRow(i));
        primes[i].mulVector(product.getRow(i), row.data(), scheme.secretKey.getSx().getRow(i), row.size());
    }
    primes.sub(scheme.encoder.encode(message, level).getMx(), product, ciphertext.getPoly(0));
    ciphertext.getPoly(1) = std::move(a);
    return ciphertext;
}

/// A scheme with the left rotation keys of all indices of a toy ring.
inline const HomEvaluator& rotatingEvaluator(const Scheme& scheme) {
    static std::map<const Scheme*, HomEvaluator> evaluators;
    const auto found = evaluators.find(&scheme);
    if (found != evaluators.end()) return found->second;
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    for (u64 index = 1; index < u64{1} << scheme.logFullSlots(); ++index) generator.genLeftRotKey(index);
    return evaluators.try_emplace(&scheme, scheme.context, pack).first->second;
}

} // namespace Torvo::test
