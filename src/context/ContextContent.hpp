#pragma once

#include "arithmetic/chain/CustomSizes.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/Parameter.hpp"
#include "context/ScaleFactors.hpp"
#include "encoding/FFT.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>

#include <set>
#include <vector>

namespace Torvo {

/// The one immutable object built per parameter set. Its members are read directly throughout the library.
class ContextContent {
public:
    ContextContent(const ParameterPreset& preset, const std::set<Device>& devices);
    ContextContent(const CustomSizes& sizes, const std::set<Device>& devices);

    /// Compares parameters, not identity: presets by name; custom sets by log_degree, numTP, prime sizes and
    /// gadget_rank.
    bool operator==(const ContextContent& other) const;

    /// Refuses more slots than the ring has: no bootstrapper and no key could support them.
    /// @throws RuntimeException "The parameter dose not support bootstrap."; "log_slots should not
    ///         exceed " and log2 of the number of slots
    void requireSlotsForBootstrap(u64 log_slots) const;
    /// The signed rotation indices that bootstrapping at `log_slots` needs, in ascending order; with
    /// `compact` those for sequential rotations. Computed from the plan alone, also for more slots than the
    /// ring has. Both members are defined beside the plan of the stages.
    /// @throws RuntimeException "The parameter dose not support bootstrap."
    std::set<long> getRotIndicesForBootstrap(u64 log_slots, bool compact) const;

    std::set<Device> devices; ///< GPUs that this context serves
    Parameter parameter;
    PrimeModuli primes;
    ScaleFactors scale_factors;
    FFT fft;
    u64 context_hash; ///< stamp of the ring, see `computeContextHash`
};

/// The hash by which saved objects name their ring: it mixes the primes, in chain order, and the degree. Not
/// cryptographic.
u64 computeContextHash(const std::vector<unsigned long>& primes, u64 degree);

} // namespace Torvo
