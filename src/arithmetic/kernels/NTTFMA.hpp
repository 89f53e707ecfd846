#pragma once

#include "arithmetic/kernels/FloatModulus.hpp"
#include "core/Integers.hpp"

/// The transforms of NTT into range 1, in floating point, for primes that FMALanes supports, on processors
/// with AVX2 and FMA. The words equal those of the other forms, because a residue has only one word in range
/// 1.
namespace Torvo::FMA {

/// Input of one direction: centred twiddles, in the order of that direction's `NTT` table. The stage of
/// distance 1 is the exception: there every eight consecutive twiddles are stored as the four even ones, then
/// the four odd ones.
struct TransformTables {
    u64 p;
    FloatModulus modulus;
    u64 degree;
    const double* twiddles;
    double degreeInverse;
    double degreeInverseRoot;
};

/// Words in range 4 in, range 1 out.
void forwardTransform(u64* a, const TransformTables& tables);
/// Words in range 2 in, range 1 out.
void backwardTransform(u64* a, const TransformTables& tables);

} // namespace Torvo::FMA
