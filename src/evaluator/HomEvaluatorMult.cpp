#include "arithmetic/chain/Messages.hpp"
#include "context/ContextContent.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

void requireBothOnSlots(const Ciphertext& a, const Ciphertext& b) {
    require(utils::isOnSlots(a) && utils::isOnSlots(b), message::operandsNotOnSlots);
}

} // namespace

void HomEvaluatorImpl::tensor(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    requireBothOnSlots(a, b);
    utils::requireEqualLevels(a, b);
    require(a.getLogSlots() == b.getLogSlots(), message::differentLogSlots);
    require(a.isModUp() == b.isModUp(), message::operandsDifferInModUp);
    requireOwn(a, b);
    // Counters set before the level came down, or read from a file, may be any.
    const long sum = long{a.getRescaleCounter()} + b.getRescaleCounter() + 1;
    require(static_cast<u64>(sum) <= a.getLevel(), message::rescaleCounterAboveLevel);
    const Stamp stamp = Stamp::of(a).owing(static_cast<int>(sum));
    if (a.getNumPoly() == 2 && b.getNumPoly() == 2) {
        utils::fitElements(context_, 3, a.isModUp(), out);
        context_->primes.tensor(a.getPoly(1), a.getPoly(0), b.getPoly(1), b.getPoly(0), out.getPoly(1),
                                out.getPoly(0), out.getPoly(2));
    } else {
        tensorOfAnyLength(a, b, out);
    }
    stamp.putOn(out);
}

void HomEvaluatorImpl::tensorAtLowerLevel(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    require(a.getNumPoly() == 2 && b.getNumPoly() == 2, message::sizeAboveTwo);
    requireBothOnSlots(a, b);
    utils::requireReadyToMultiply(a, b);
    require(a.getLogSlots() == b.getLogSlots(), message::differentLogSlots);
    requireOwn(a, b);
    const Stamp stamp = Stamp::of(a).owing(1);
    utils::fitElements(context_, 3, false, out);
    context_->primes.tensor(a.getPoly(1), a.getPoly(0), b.getPoly(1), b.getPoly(0), out.getPoly(1),
                            out.getPoly(0), out.getPoly(2));
    stamp.putOn(out);
}

/// out[k] = sum of a[i] * b[j] over i + j = k.
void HomEvaluatorImpl::tensorOfAnyLength(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    const PrimeModuli& primes = context_->primes;
    Ciphertext product(context_, a.isModUp());
    utils::fitElements(context_, a.getNumPoly() + b.getNumPoly() - 1, a.isModUp(), product);
    Polynomial term(context_, a.isModUp(), true);
    std::vector<bool> untouched(product.getNumPoly(), true);
    for (u64 i = 0; i < a.getNumPoly(); ++i) {
        for (u64 j = 0; j < b.getNumPoly(); ++j) {
            Polynomial& sum = product.getPoly(i + j);
            if (untouched[i + j]) {
                primes.hadamardMult(a.getPoly(i), b.getPoly(j), sum);
                untouched[i + j] = false;
            } else {
                primes.hadamardMult(a.getPoly(i), b.getPoly(j), term);
                primes.add(sum, term, sum);
            }
        }
    }
    out = std::move(product);
}

void HomEvaluatorImpl::relinearize(const Ciphertext& in, Ciphertext& out) const {
    utils::requireOnSlots(in);
    const u64 n = in.getNumPoly();
    require(n >= 3, message::nothingToRelinearize);
    context_->primes.requireServed(in.getPoly(n - 1).getDevice(), true);
    const std::shared_ptr<EvaluationKey> key = keyPack_.getMultKey();
    require(key != nullptr, message::noMultiplicationKey);
    require(!in.isModUp(), message::operandsDifferInModUp);
    requireOwn(in);
    // in[n-1] * s^(n-1) = (in[n-1] * s^2) * s^(n-3): one key serves all powers.
    Ciphertext switched =
        keySwitcher_->switchAndAdd(in.getPoly(n - 1), *key, in.getPoly(n - 3), in.getPoly(n - 2));
    const Stamp stamp = Stamp::of(in);
    utils::fitElements(context_, n - 1, false, out);
    for (u64 i = 0; i + 3 < n; ++i)
        if (&in != &out) out.getPoly(i) = in.getPoly(i);
    out.getPoly(n - 3) = std::move(switched.getPoly(0));
    out.getPoly(n - 2) = std::move(switched.getPoly(1));
    stamp.putOn(out);
}

void HomEvaluatorImpl::multWithoutRescale(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    require(a.getNumPoly() == 2 && b.getNumPoly() == 2, message::sizeAboveTwo);
    requireBothOnSlots(a, b);
    utils::requireEqualLevels(a, b);
    utils::requireReadyToMultiply(a, b);
    Ciphertext product = unsetCiphertext(context_, 3);
    tensor(a, b, product);
    relinearize(product, out);
}

void HomEvaluatorImpl::mult(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    requireBothOnSlots(a, b);
    utils::requireReadyToMultiply(a, b);
    if (a.getLevel() == b.getLevel()) {
        multWithoutRescale(a, b, out);
    } else {
        const auto [lower, higher] = std::minmax(
            a, b, [](const Ciphertext& x, const Ciphertext& y) { return x.getLevel() < y.getLevel(); });
        Ciphertext lowered = unsetCiphertext(context_);
        levelDown(higher, lower.getLevel(), lowered);
        multWithoutRescale(lower, lowered, out);
    }
    rescale(out);
}

void HomEvaluatorImpl::square(const Ciphertext& in, Ciphertext& out) const {
    multWithoutRescale(in, in, out);
    rescale(out);
}

void HomEvaluatorImpl::innerProduct(const Plaintext* plainBegin, const Plaintext* plainEnd,
                                    const Ciphertext* cipherBegin, Ciphertext& out) const {
    const std::ptrdiff_t count = plainEnd - plainBegin;
    require(count > 0, message::noOperand);
    for (const Ciphertext* ct = cipherBegin; ct != cipherBegin + count; ++ct) {
        require(ct->getNumPoly() == 2, message::sizeNotTwo);
        utils::requireOnSlots(*ct);
    }
    const auto plain = [](const Plaintext& p) -> const Polynomial& { return p.getMx(); };
    const auto partB = [](const Ciphertext& ct) -> const Polynomial& { return ct.getPoly(0); };
    const auto partA = [](const Ciphertext& ct) -> const Polynomial& { return ct.getPoly(1); };
    const Stamp stamp = Stamp::of(*cipherBegin);
    utils::fitLike(*cipherBegin, out);
    context_->primes.innerProduct(PolyIter(plainBegin, plain), PolyIter(plainEnd, plain),
                                  PolyIter(cipherBegin, partA), PolyIter(cipherBegin, partB), out.getPoly(1),
                                  out.getPoly(0));
    stamp.putOn(out); // refuses a counter that the level does not bear
    stamp.owing(1).putOn(out);
}

} // namespace Torvo
