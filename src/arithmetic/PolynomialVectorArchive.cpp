#include "arithmetic/PolynomialArchive.hpp"
#include "arithmetic/PolynomialVector.hpp"
#include "arithmetic/Ring.hpp"

namespace Torvo {

namespace {

/// A vector of a secret key has `rank` polynomials, a ciphertext `rank` + 1, or 3 after a tensor product;
/// the rest is for callers that hold more.
constexpr u64 polynomialsBeyondRank = 15;

} // namespace

void PolynomialVector::save(OutputArchive& archive) const {
    savePolynomials(archive, polys_);
}

void PolynomialVector::load(InputArchive& archive) {
    const Ring ring = ringOf(context_);
    loadPolynomials(archive, polys_, ring.rank + polynomialsBeyondRank, ring);
}

} // namespace Torvo
