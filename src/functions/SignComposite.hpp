#pragma once

#include "core/Integers.hpp"
#include "functions/Quad.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <vector>

namespace Torvo {

// Sign as a composite of odd polynomials, each the best for what the one before it leaves, as Lee, Lee, No
// and Kim do (IACR ePrint 2020/834). A stage takes numbers of magnitude l to 1 to numbers of the same sign
// whose magnitude lies between l' and 1, with l' closer to 1; the last stage ends close to 1.

/// What a ciphertext may add to a number in front of a stage. Each stage allows for it on both sides: its
/// inputs have a magnitude of l to 1 + signNoise.
inline constexpr double signNoise = 0x1p-20;

/// An odd polynomial on [-1, 1] with errors of one size on [l, 1].
struct SignStage {
    std::vector<Quad> coefficients; ///< of T_k
    Quad error = 0;                 ///< the largest distance from 1 on [l, 1 + signNoise]
    /// What makes the largest value 1, for the stages before the last, and then the least magnitude of an
    /// input of the next.
    Quad scale = 1;
    long double nextLeast = 0;
};

/// @param degree  odd
/// @param least  l, between 0 and 1
SignStage signStage(u64 degree, long double least);

/// l of the first stage for 2^-a <= |x|.
long double firstLeast(u64 a);

/// Levels that a series of `degree` spends: ceil(log2(degree + 1)).
u64 levelsOfDegree(u64 degree);
/// Products of two ciphertexts in an odd series of `degree`, by a model: T_2, T_4 and so on up to half of
/// 2^levels by doubling; the odd T_3 to T_(k - 1), one product each; and one for each block of k terms but
/// the first, with the best power of two k.
u64 tensorsOfOddDegree(u64 degree);

/// The stages of a composite that is within 2^-b of sign(x) for 2^-a <= |x| <= 1, even where signNoise is
/// added to the input of each stage: series on [-1, 1], all odd and real, the first one first.
/// @param a, b  4 to 16
/// @throws RuntimeException "[signComposite] Sign is asked for from 2^-", a, " on, within 2^-", b, "; give
///         exponents from 4 to 16"
std::vector<ChebyshevSeries> signComposite(u64 a, u64 b);

} // namespace Torvo
