#include "arithmetic/chain/PrimeModuliShape.hpp"

#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// Whether the rows of a polynomial within `bound` are rows of the ring of `primes`. If temporary rows are
/// among them, the split into base and temporary primes must be that of the bound.
bool hasRows(const PrimeModuli& primes, const Polynomial& p, const RowBound& bound) {
    if (p.getDegree() != primes.getDegree() || !primes.sharesPrimes(p, bound.level)) return false;
    if (bound.end <= bound.numBase) return true;
    return p.isModUp() && p.getNumBase() == bound.numBase && primes.sharesTemporaryPrimes(p);
}

/// A secret key, which is mod-up, may have other temporary rows if only base rows are in use.
bool hasRows(const PrimeModuli& primes, const Operand& operand, const RowBound& bound) {
    const Polynomial* p = operand.polynomial;
    if (p == nullptr) return operand.rowEnd <= primes.size();
    return (p->isModUp() || operand.rowEnd <= primes.size()) && hasRows(primes, *p, bound);
}

} // namespace

bool PrimeModuli::sharesPrimes(const Polynomial& p, u64 level) const {
    if (level >= p.getNumBase() || level >= size()) return false;
    for (u64 i = 0; i <= level; ++i)
        if (p.getPrimes()[i] != getPrime(i)) return false;
    return true;
}

bool PrimeModuli::sharesTemporaryPrimes(const Polynomial& p) const {
    if (p.getNumRows() != size()) return false;
    for (u64 i = p.getNumBase(); i < size(); ++i)
        if (p.getPrimes()[i] != getPrime(i)) return false;
    return true;
}

bool PrimeModuli::isOwn(const Polynomial& p) const {
    return p.getDegree() == degree_ && sharesPrimes(p, p.getLevel()) &&
           (!p.isModUp() || sharesTemporaryPrimes(p));
}

Operand::Operand(const Polynomial& p)
    : polynomial(&p), level(p.getLevel()), rowEnd(p.rowEnd()), device(p.getDevice()) {}

Operand::Operand(const LevelledElement& element)
    : level(element.getLevel()), rowEnd(element.isModUp() ? element.getNumPrimes() : element.getLevel() + 1),
      device(element.getDevice()) {}

RowBound shapeResult(const PrimeModuli& primes, FailureNames names, std::initializer_list<Operand> operands,
                     std::initializer_list<Output> outputs) {
    const Device first = operands.begin()->device;
    RowBound bound{operands.begin()->level, outputs.begin()->polynomial.getNumBase(),
                   operands.begin()->rowEnd};
    bool isCommon = true;
    for (const Operand& operand : operands) {
        bound.level = std::min(bound.level, operand.level);
        bound.end = std::min(bound.end, operand.rowEnd);
        isCommon = isCommon && operand.device == first;
    }
    for (const auto& [out, isNTT] : outputs)
        bound.end = std::min(bound.end, out.isModUp() ? out.getNumRows() : bound.level + 1);
    const Device device = primes.requireServed(first, isCommon);
    for (const Operand& operand : operands)
        require(hasRows(primes, operand, bound), message::operandsOfOtherRing);
    for (const auto& [out, isNTT] : outputs)
        require(hasRows(primes, out, bound), message::operandsOfOtherRing);
    for (const Output& output : outputs) {
        output.polynomial.setLevel(bound.level);
        output.polynomial.allocate(device);
        output.polynomial.setNTT(output.isNTT);
    }
    requireBackend(device, names);
    return bound;
}

} // namespace Torvo
