#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/LWEContext.hpp>

#include <string>
#include <vector>

/// Operations on objects of two contexts: what must be equal for their words to mean the same, and how a
/// refusal describes the difference. Neither the identity nor the name of a context counts. So a context made
/// a second time or loaded from its file passes, and so do presets that share their primes.
namespace Torvo {

/// The parts of a refusal that the refusing function supplies: "<subject>: <theirs>, but <owner> is <ours>;
/// <advice>".
struct RefusedMeeting {
    const char* subject;
    const char* owner;
    const char* advice;
};

/// The description of a context in a refusal.
struct RingShape {
    explicit RingShape(const Context& context);
    explicit RingShape(const LWE::Context& context);
    /// The shape of a key, from its polynomials: `digits` pairs of the shape of `header`.
    RingShape(const Polynomial& header, u64 digits, const std::string& name);

    /// "degree 64, 4 + 2 primes, 2 digits (CUSTOM)"; a rank above one is named too, and plain LWE is
    /// described by its dimension and primes only.
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

/// By `isSameRing` of <Torvo/Context.hpp>: whether keys of one context are keys of the other.
void requireSameRing(const Context& theirs, const Context& ours, const RefusedMeeting& meeting);

/// Whether the primes 0 to `level` of both chains of ciphertext primes are the same, whatever the degrees.
/// Each argument is a context of a ring or of plain LWE.
template <class A, class B>
bool sharePrimes(const A& a, const B& b, u64 level);
template <class A, class B>
void requireSharedPrimes(const A& theirs, const B& ours, u64 level, const RefusedMeeting& meeting) {
    if (!sharePrimes(theirs, ours, level)) refuseMeeting(meeting, RingShape(theirs), RingShape(ours));
}

/// For objects without digits: requires that a secret or public key fits data at `level`. In the mod-up state
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
