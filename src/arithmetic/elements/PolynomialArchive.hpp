#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <optional>
#include <vector>

namespace Torvo {

struct Ring;

/// u64 count, then the polynomials.
void savePolynomials(OutputArchive& archive, const std::vector<Polynomial>& polys);
/// Any number of polynomials, each as `Polynomial::load` of a ring.
/// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
void loadPolynomials(InputArchive& archive, std::vector<Polynomial>& polys, const Ring& ring);

/// The two parts of a switching key, one after the other; the uniform one by its germs.
void saveKeyPolynomials(OutputArchive& archive, const std::vector<Polynomial>& ax,
                        const std::vector<Polynomial>& bx);
/// Accepts `expectedCount` polynomials of each part, or as many of one as of the other, with expected
/// headers. A germ of a kilobyte expands to megabytes, so a germ of ax is expanded only after the polynomial
/// of bx beside it has been read in full and has the same shape. So the load costs little more than twice the
/// bytes of the key.
/// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
void loadKeyPolynomials(InputArchive& archive, std::vector<Polynomial>& ax, std::vector<Polynomial>& bx,
                        std::optional<u64> expectedCount, const Polynomial::HeaderCheck& isExpected);

} // namespace Torvo
