#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// The sizes of a custom ring, in the order of `makeContext`, which documents them. Unchecked: `Parameter`
/// refuses counts that make no ring, `PrimeModuli` sizes of which there are no primes.
struct CustomSizes {
    u64 log_degree;
    u64 chain_length;
    u64 log_bpsize;
    u64 log_qpsize;
    u64 log_tpsize;
    u64 gadget_rank; ///< not 0
    u64 rank = 1;

    u64 degree() const { return u64{1} << log_degree; }
    /// Number of temporary primes.
    u64 numTP() const { return chain_length / gadget_rank; }
};

namespace LWE {

/// The sizes of a custom set of plain LWE, in the order of `LWE::makeContext`.
struct CustomSizes {
    u64 dimension;
    u64 chain_length;
    u64 log_bpsize;
    u64 log_qpsize;
};

} // namespace LWE

} // namespace Torvo
