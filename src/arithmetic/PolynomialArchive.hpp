#pragma once

#include "arithmetic/Polynomial.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <vector>

namespace Torvo {

struct Ring;

/// u64 count, then the polynomials.
void savePolynomials(OutputArchive& archive, const std::vector<Polynomial>& polys);
/// At most `maxCount` polynomials of any shape, or, in the second form, of no shape but that of `ring`. A
/// germ of a kilobyte grows to megabytes, so the caller says how many it can have a use for.
/// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
void loadPolynomials(InputArchive& archive, std::vector<Polynomial>& polys, u64 maxCount);
void loadPolynomials(InputArchive& archive, std::vector<Polynomial>& polys, u64 maxCount, const Ring& ring);

} // namespace Torvo
