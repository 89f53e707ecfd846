#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/LWEContext.hpp>

#include <string>
#include <vector>

/// Where objects of two contexts meet: what must be equal for their words to mean the same, and how a refusal
/// tells the two apart. Neither the identity nor the name of a context counts, so that twins pass: a context
/// made a second time or loaded from its file, presets that share their primes.
namespace Torvo {

/// The parts of a refusal that its place knows: "<subject>: <theirs>, but <owner> is <ours>; <advice>".
struct RefusedMeeting {
    const char* subject;
    const char* owner;
    const char* advice;
};

/// What a context says of itself in a refusal.
struct RingShape {
    explicit RingShape(const Context& context);
    explicit RingShape(const LWE::Context& context);
    /// Of a key by its polynomials: `digits` pairs of the shape of `header`.
    RingShape(const Polynomial& header, u64 digits, const std::string& name);

    /// "degree 64, 4 + 2 primes, 2 digits (CUSTOM)"; a rank above one is named, and plain LWE has a dimension
    /// and no more than its primes.
    std::string describe() const;

    bool isPlainLWE = false;
    u64 degree; ///< or dimension
    u64 rank = 1;
    u64 numBase;
    u64 numTemp = 0;
    u64 digits = 0;
    std::vector<u64> primes;
    std::string name;
};

[[noreturn]] void refuseMeeting(const RefusedMeeting& meeting, const RingShape& theirs,
                                const RingShape& ours);

/// Whether keys of one context are keys of the other: degree, the prime of every row, the split into base and
/// temporary primes, the number of digits.
bool isSameRing(const Context& a, const Context& b);
void requireSameRing(const Context& theirs, const Context& ours, const RefusedMeeting& meeting);

/// Whether the primes 0 to `level` of both chains of ciphertext primes are the same, whatever the degrees.
/// Each argument is a context of a ring or of plain LWE.
template <class A, class B>
bool sharePrimes(const A& a, const B& b, u64 level);
template <class A, class B>
void requireSharedPrimes(const A& theirs, const B& ours, u64 level, const RefusedMeeting& meeting) {
    if (!sharePrimes(theirs, ours, level)) refuseMeeting(meeting, RingShape(theirs), RingShape(ours));
}

/// For objects without digits: whether a secret or public key serves data at `level`. In the mod-up state
/// data has the temporary rows too.
void requireSameRows(const Context& theirs, const Context& ours, u64 level, bool isModUp,
                     const RefusedMeeting& meeting);

/// Whether a polynomial is of the ring of `context`, at a level of its chain, with its split in the mod-up
/// state.
bool isOfRing(const Context& context, const Polynomial& polynomial);

extern template bool sharePrimes(const Context&, const Context&, u64);
extern template bool sharePrimes(const LWE::Context&, const Context&, u64);
extern template bool sharePrimes(const Context&, const LWE::Context&, u64);
extern template bool sharePrimes(const LWE::Context&, const LWE::Context&, u64);

} // namespace Torvo
