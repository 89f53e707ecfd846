#include "arithmetic/elements/PolynomialArchive.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "arithmetic/elements/Ring.hpp"

namespace Torvo {

void PolynomialVector::save(OutputArchive& archive) const {
    savePolynomials(archive, polys_);
}

void PolynomialVector::load(InputArchive& archive) {
    loadPolynomials(archive, polys_, ringOf(context_));
}

} // namespace Torvo
