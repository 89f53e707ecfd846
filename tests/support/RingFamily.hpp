#pragma once

#include "context/ContextContent.hpp"

#include <Torvo/Context.hpp>

#include <map>
#include <utility>

/// Small rings of different degree with the same primes, as the presets that work together have them.
namespace Torvo::test {

/// A ring of degree 2^logDegree, `logDegree` 6 to 8, with one digit for each prime. The largest prime of 60
/// bits and the two largest of 59 bits that are 1 modulo 128 are 1 modulo 512 too, so the search for the
/// primes of a custom ring finds the same for all three degrees; the temporary primes differ.
inline Context newFamilyRing(u64 logDegree, u64 chainLength) {
    return makeContext(logDegree, chainLength, 60, 59, 61, chainLength);
}

/// The same, made once per program.
inline Context familyRing(u64 logDegree, u64 chainLength) {
    static std::map<std::pair<u64, u64>, Context> made;
    Context& context = made[{logDegree, chainLength}];
    if (context == nullptr) context = newFamilyRing(logDegree, chainLength);
    return context;
}

/// A ring of the family with more than one component. Nothing but a preset has a rank, so it is set after the
/// fact.
inline Context familyModule(u64 logDegree, u64 chainLength, u64 rank) {
    Context context = newFamilyRing(logDegree, chainLength);
    context->parameter.rank = rank;
    context->parameter.hamming_weight *= rank;
    return context;
}

/// A ring that shares the base prime of the family and no other.
inline Context distantRing(u64 logDegree) {
    return makeContext(logDegree, 3, 60, 58, 61, 3);
}

/// A ring with primes of its own.
inline Context strangerRing(u64 logDegree) {
    return makeContext(logDegree, 3, 57, 56, 58, 3);
}

/// A ring of degree 64 with the primes of `SD3`, those of plain LWE's `SD3` too: `SD3D6R2` cut to one
/// component.
inline Context smallRingOfSD3() {
    Context context = makeContext(ParameterPreset::SD3D6R2);
    context->parameter.rank = 1;
    context->parameter.hamming_weight = 43;
    return context;
}

} // namespace Torvo::test
