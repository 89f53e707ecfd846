#pragma once

#include "arithmetic/chain/CustomSizes.hpp"
#include "context/Parameter.hpp"
#include "core/Integers.hpp"
#include <Torvo/LWEParameterPreset.hpp>

#include <Torvo/SecurityLevel.hpp>

#include <string>

namespace Torvo::LWE {

/// The sizes and counts of a plain LWE parameter set.
struct Parameter {
    /// @throws RuntimeException "Need to specify some parameters in order to use CUSTOM parameters."; "The
    ///         input parameter preset is not yet supported."
    explicit Parameter(const ParameterPreset& preset);
    /// A custom set.
    /// @throws RuntimeException "[Parameter] Invalid chain_length"
    explicit Parameter(const CustomSizes& sizes);

    ParameterPreset preset;
    std::string name;
    u64 dimension = 0;
    u64 chain_length = 0;
    u64 numBP = 1;
    u64 numQP = 0; ///< also the encryption level
    u64 hamming_weight = 0;
    double gaussian_stddev = 3.2;
    u64 log_bpsize = 0;
    u64 log_qpsize = 0;
    SecurityLevel security_level = SecurityLevel::None;
    SchemeInfo scheme_info;
};

} // namespace Torvo::LWE
