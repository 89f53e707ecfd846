#include "context/LWEParameter.hpp"

#include "context/Messages.hpp"
#include "core/Failure.hpp"

#include <bit>
#include <cmath>

namespace Torvo::LWE {

namespace {

constexpr u64 maxChainLength = 50;

void setSizes(Parameter& parameter, u64 dimension, u64 chain_length) {
    parameter.dimension = dimension;
    parameter.chain_length = chain_length;
    parameter.numQP = chain_length - parameter.numBP;
    parameter.hamming_weight = static_cast<u64>(std::lround(2.0 * static_cast<double>(dimension) / 3.0));
}

} // namespace

Parameter::Parameter(const ParameterPreset& namedPreset) : preset(namedPreset) {
    switch (preset) {
    case ParameterPreset::SS7:
        name = "SS7";
        setSizes(*this, 1024, 8);
        break;
    case ParameterPreset::SD3:
        name = "SD3";
        setSizes(*this, 32, 4);
        break;
    case ParameterPreset::FGbD12L0:
        name = "FGbD12L0";
        setSizes(*this, 4096, 1);
        break;
    case ParameterPreset::CUSTOM:
        throw RuntimeException(message::customNeedsParameters);
    default:
        throw RuntimeException(message::presetNotSupported);
    }
    security_level = SecurityLevel::Bits128;
}

Parameter::Parameter(const CustomSizes& sizes)
    : preset(ParameterPreset::CUSTOM), name("CUSTOM"), log_bpsize(sizes.log_bpsize),
      log_qpsize(sizes.log_qpsize) {
    require(1 <= sizes.chain_length && sizes.chain_length <= maxChainLength, message::invalidChainLength);
    require(sizes.dimension >= 1, message::invalidDimension);
    setSizes(*this, sizes.dimension, sizes.chain_length);
    const u64 logDimension = static_cast<u64>(std::bit_width(dimension | 1)) - 1;
    security_level = computeLWESecurityLevel(logDimension, log_bpsize + numQP * log_qpsize);
}

} // namespace Torvo::LWE
