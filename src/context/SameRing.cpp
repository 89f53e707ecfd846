#include "context/SameRing.hpp"

#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "core/RequireContext.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>

namespace Torvo {

RingShape::RingShape(const Context& context)
    : degree(context->parameter.degree), rank(context->parameter.rank),
      numBase(context->parameter.chain_length), numTemp(context->parameter.numTP),
      digits(context->parameter.gadget_rank), primes(context->primes.getPrimes()),
      name(context->parameter.name) {}

RingShape::RingShape(const LWE::Context& context)
    : isPlainLWE(true), degree(context->parameter.dimension), numBase(context->parameter.chain_length),
      primes(context->primes.getPrimes()), name(context->parameter.name) {}

RingShape::RingShape(const Polynomial& header, u64 digitCount, const std::string& itsName)
    : degree(header.getDegree()), numBase(header.getNumBase()),
      numTemp(header.getNumRows() - header.getNumBase()), digits(digitCount), primes(header.getPrimes()),
      name(itsName) {}

std::string RingShape::describe() const {
    std::string text = isPlainLWE ? "dimension " : "degree ";
    text += std::to_string(degree);
    if (rank != 1) text += ", rank " + std::to_string(rank);
    text += ", " + std::to_string(numBase);
    if (!isPlainLWE) text += " + " + std::to_string(numTemp);
    text += " primes";
    if (!isPlainLWE) text += ", " + std::to_string(digits) + " digits";
    return text + " (" + name + ")";
}

void refuseMeeting(const RefusedMeeting& meeting, const RingShape& theirs, const RingShape& ours) {
    std::string text = std::string(meeting.subject) + ": " + theirs.describe() + ", but " + meeting.owner +
                       " is " + ours.describe();
    const u64 common = std::min(theirs.primes.size(), ours.primes.size());
    u64 first = 0;
    while (first < common && theirs.primes[first] == ours.primes[first]) ++first;
    if (first < common) text += ", with other primes from index " + std::to_string(first) + " on";
    throw RuntimeException(text + "; " + meeting.advice);
}

bool isSameRing(const Context& a, const Context& b) {
    requireContext(a);
    requireContext(b);
    if (a == b) return true;
    const Parameter &p = a->parameter, &q = b->parameter;
    return p.degree == q.degree && p.chain_length == q.chain_length && p.numTP == q.numTP &&
           p.gadget_rank == q.gadget_rank && a->primes.getPrimes() == b->primes.getPrimes();
}

void requireSameRing(const Context& theirs, const Context& ours, const RefusedMeeting& meeting) {
    if (!isSameRing(theirs, ours)) refuseMeeting(meeting, RingShape(theirs), RingShape(ours));
}

template <class A, class B>
bool sharePrimes(const A& a, const B& b, u64 level) {
    if (level >= a->parameter.chain_length || level >= b->parameter.chain_length) return false;
    for (u64 i = 0; i <= level; ++i)
        if (a->primes.getPrime(i) != b->primes.getPrime(i)) return false;
    return true;
}

void requireSameRows(const Context& theirs, const Context& ours, u64 level, bool isModUp,
                     const RefusedMeeting& meeting) {
    if (theirs == ours) return;
    const bool sameRows = theirs->parameter.degree == ours->parameter.degree &&
                          (isModUp ? isSameRing(theirs, ours) : sharePrimes(theirs, ours, level));
    if (!sameRows || theirs->parameter.rank != ours->parameter.rank)
        refuseMeeting(meeting, RingShape(theirs), RingShape(ours));
}

bool isOfRing(const Context& context, const Polynomial& polynomial) {
    const u64 numBase = context->parameter.chain_length;
    return context->primes.isOwn(polynomial) && polynomial.getLevel() < numBase &&
           (!polynomial.isModUp() || polynomial.getNumBase() == numBase);
}

template bool sharePrimes(const Context&, const Context&, u64);
template bool sharePrimes(const LWE::Context&, const Context&, u64);
template bool sharePrimes(const Context&, const LWE::Context&, u64);
template bool sharePrimes(const LWE::Context&, const LWE::Context&, u64);

} // namespace Torvo
