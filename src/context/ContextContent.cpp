#include "context/ContextContent.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "core/RequireContext.hpp"

namespace Torvo {

namespace {

u64 mix(u64 x) {
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9;
    x ^= x >> 27;
    x *= 0x94d049bb133111eb;
    x ^= x >> 31;
    return x;
}

u64 combine(u64 h, u64 v) {
    return h ^ (mix(v) + 0x9e3779b9 + (h << 6) + (h >> 2));
}

} // namespace

ContextContent::ContextContent(const ParameterPreset& preset, const std::set<Device>& cudaDevices)
    : devices(cudaDevices), parameter(preset),
      primes(preset, parameter.chain_length + parameter.numTP, parameter.degree, devices),
      scale_factors(preset), fft(parameter.degree, devices),
      context_hash(computeContextHash(primes.getPrimes(), parameter.degree)) {}

ContextContent::ContextContent(const CustomSizes& sizes, const std::set<Device>& cudaDevices)
    : devices(cudaDevices), parameter(sizes), primes(sizes, devices), scale_factors(parameter, primes),
      fft(parameter.degree, devices), context_hash(computeContextHash(primes.getPrimes(), parameter.degree)) {
}

bool ContextContent::operator==(const ContextContent& other) const {
    const Parameter &a = parameter, &b = other.parameter;
    if (a.preset != b.preset) return false;
    if (a.preset != ParameterPreset::CUSTOM) return true;
    return a.log_degree == b.log_degree && a.numTP == b.numTP && a.log_bpsize == b.log_bpsize &&
           a.log_qpsize == b.log_qpsize && a.gadget_rank == b.gadget_rank && a.log_tpsize == b.log_tpsize;
}

u64 computeContextHash(const std::vector<unsigned long>& primes, u64 degree) {
    u64 h = 0;
    for (const u64 p : primes) h = combine(h, p);
    return combine(h, degree);
}

Ring ringOf(const Context& context) {
    const Parameter& parameter = requireContext(context)->parameter;
    return {context->primes.getModuli(), parameter.degree, parameter.rank,
            parameter.chain_length,      parameter.numTP,  parameter.gadget_rank,
            context->context_hash};
}

} // namespace Torvo
