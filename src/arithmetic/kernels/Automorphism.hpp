#pragma once

#include "arithmetic/kernels/BitReversal.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// The automorphism X -> X^k, k odd, of rows in NTT form, modulo whatever prime: it moves words, and changes none.
/// A group of 2^m words that begins at a multiple of 2^m comes from one such group, for every m: a cache line is
/// filled from a single other one.
class Automorphism {
public:
    // Position j holds the value at psi^(2 rev(j) + 1); there the image of f has the value of f at
    // psi^((2 rev(j) + 1) k).
    Automorphism(u64 degree, long k) : sources_(degree) {
        const u64 bits = static_cast<u64>(__builtin_ctzl(degree));
        const u64 exponent = static_cast<u64>(k);
        forEachIndex(degree, [&](u64 j) {
            const u64 image = (2 * reverseBits(j, bits) + 1) * exponent & (2 * degree - 1);
            sources_[j] = static_cast<int>(reverseBits(image / 2, bits));
        });
    }

    /// `out` is not `in`.
    void apply(const u64* in, u64* out) const {
        const int* sources = sources_.getData();
        for (u64 j = 0; j < sources_.size(); ++j) out[j] = in[sources[j]];
    }

private:
    DeviceSpecificArray<int> sources_;
};

} // namespace Torvo
