#pragma once

#include "arithmetic/chain/CustomSizes.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/LWEParameter.hpp"
#include "context/ScaleFactors.hpp"

#include <Torvo/Device.hpp>
#include <Torvo/LWEContext.hpp>

#include <set>

namespace Torvo::LWE {

/// The one immutable object built per plain LWE parameter set.
class ContextContent {
public:
    ContextContent(const ParameterPreset& preset, const std::set<Device>& devices);
    ContextContent(const CustomSizes& sizes, const std::set<Device>& devices);

    Parameter parameter;
    PrimeModuli primes;
    ScaleFactors scale_factors;
    u64 context_hash; ///< stamp on saved objects, see `computeContextHash`; the dimension stands for the
                      ///< degree
};

} // namespace Torvo::LWE
