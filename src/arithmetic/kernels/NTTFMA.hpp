#pragma once

#include "arithmetic/kernels/FloatModulus.hpp"
#include "core/Integers.hpp"

/// The transforms into range 1 of NTT in floating point, for primes that FMALanes serves, on processors with
/// AVX2 and FMA. The words are those of the other forms, since range 1 leaves no choice.
namespace Torvo::FMA {

/// What one direction reads: twiddles next to zero, in the order of NTT's table of the direction, but for the
/// stage of distance 1, where every eight consecutive ones come as the four even and then the four odd ones.
struct TransformTables {
    u64 p;
    FloatModulus modulus;
    u64 degree;
    const double* twiddles;
    double degreeInverse;
    double degreeInverseRoot;
};

/// In range 4, out range 1.
void forwardTransform(u64* a, const TransformTables& tables);
/// In range 2, out range 1.
void backwardTransform(u64* a, const TransformTables& tables);

} // namespace Torvo::FMA
