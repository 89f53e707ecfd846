#pragma once

#include "arithmetic/kernels/Modulus.hpp"
#include "core/Integers.hpp"

#include <Torvo/Context.hpp>

#include <algorithm>
#include <span>

namespace Torvo {

/// The view that the ring containers and base conversion have of a context: its ring and the shape of its
/// chain. The members live as long as the context.
struct Ring {
    std::span<const Modulus> moduli; ///< by index, as in `total`
    u64 degree;
    u64 rank;
    u64 numBase;      ///< ciphertext primes; prime i < numBase is the i-th of the chain
    u64 numTemp;      ///< temporary primes of key switching, at indices numBase to numBase + numTemp - 1
    u64 gadget_rank;  ///< digits of key switching
    u64 context_hash; ///< the stamp of the ring on saved objects

    u64 total() const { return numBase + numTemp; }
    /// Primes per digit.
    u64 groupSize() const { return (numBase + gadget_rank - 1) / gadget_rank; }
    /// Digit g holds the ciphertext primes with indices in [digitBegin(g), digitEnd(g)).
    u64 digitBegin(u64 g) const { return std::min(g * groupSize(), numBase); }
    u64 digitEnd(u64 g) const { return std::min((g + 1) * groupSize(), numBase); }
    bool isInDigit(u64 t, u64 g) const { return digitBegin(g) <= t && t < digitEnd(g); }
    /// Digits that have a live row at `level`.
    u64 liveDigits(u64 level) const { return level / groupSize() + 1; }
};

/// Declared here and defined beside `ContextContent`: by this abstract edge the layer sees a context without
/// an include that points upward.
Ring ringOf(const Context& context);

} // namespace Torvo
