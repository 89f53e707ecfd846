#pragma once

#include "core/Integers.hpp"
#include <Torvo/LWEParameterPreset.hpp>

#include <Torvo/ParameterPreset.hpp>

#include <cstdint>
#include <vector>

namespace Torvo {

class PrimeModuli;
struct Parameter;
namespace LWE {
struct Parameter;
}

/// The log2 of the scale of data at each level, chosen so that a product rescaled from level l has exactly
/// the scale of level l - 1: log_scale[l-1] = 2 * log_scale[l] - log2(p_l) - correction. Immutable.
class ScaleFactors {
public:
    explicit ScaleFactors(const ParameterPreset& preset);
    /// Custom sets: entries for the whole chain, of which the first chain_length are filled.
    ScaleFactors(const Parameter& parameter, const PrimeModuli& primes);
    explicit ScaleFactors(const LWE::ParameterPreset& preset);
    ScaleFactors(const LWE::Parameter& parameter, const PrimeModuli& primes);

    /// log2 of the default scale at each level.
    std::vector<double> log_scale;
    /// Entry l is the number of whole bits by which data is scaled up between level l and l - 1; entry 0 is
    /// 0.
    std::vector<std::int64_t> level_correction;
};

} // namespace Torvo
