#pragma once

#include "core/Integers.hpp"

namespace Torvo::test {

/// The products of `arith`, on rows of n words, n a multiple of 4; on processors with AVX2 only. Their header
/// is for units compiled for AVX2, as the one behind this is.
void multiplyByVectors(const u64* x, const u64* y, u64* high, u64* low, u64* highAlone, u64 n);

} // namespace Torvo::test
