#pragma once

#include "arithmetic/kernels/Modulus.hpp"
#include "core/Integers.hpp"

#include <Torvo/LWEContext.hpp>

#include <span>

namespace Torvo {

namespace LWE {

/// The view that containers and samplers have of a plain LWE context: its primes and its shape. The members
/// live as long as the context.
struct Chain {
    std::span<const Modulus> moduli;
    u64 dimension;
    u64 numPrimes;
    u64 context_hash; ///< the stamp of the context on saved objects
};

/// As `ringOf`: declared here, defined beside `LWE::ContextContent`, so that no include points upward.
Chain chainOf(const Context& context);

} // namespace LWE
} // namespace Torvo
