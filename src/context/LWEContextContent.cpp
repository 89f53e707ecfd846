#include "context/LWEContextContent.hpp"

#include "arithmetic/elements/LWEChain.hpp"
#include "context/ContextContent.hpp"
#include "core/RequireContext.hpp"

namespace Torvo::LWE {

ContextContent::ContextContent(const ParameterPreset& preset, const std::set<Device>& devices)
    : parameter(preset), primes(preset, parameter.chain_length, parameter.dimension, devices),
      scale_factors(preset), context_hash(computeContextHash(primes.getPrimes(), parameter.dimension)) {}

ContextContent::ContextContent(const CustomSizes& sizes, const std::set<Device>& devices)
    : parameter(sizes), primes(sizes, devices), scale_factors(parameter, primes),
      context_hash(computeContextHash(primes.getPrimes(), parameter.dimension)) {}

Chain chainOf(const Context& context) {
    requireContext(context);
    return {context->primes.getModuli(), context->parameter.dimension, context->parameter.chain_length,
            context->context_hash};
}

} // namespace Torvo::LWE
