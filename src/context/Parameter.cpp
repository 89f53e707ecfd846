#include "context/Parameter.hpp"

#include "context/Messages.hpp"
#include "core/Failure.hpp"

#include <bit>
#include <cmath>

namespace Torvo {

namespace {

struct PresetRow {
    const char* name;
    bool has_bootstrap;
    bool has_extended_bootstrap;
    bool has_sparse_encapsulation;
    u64 rank;
    u64 log_degree;
    u64 chain_length;
    u64 gadget_rank;
    u64 encryption_level;
    u64 hamming_weight;
};

// clang-format off
/// By the number of the preset. Most weights are two thirds of the key's length, rounded down or to the nearest;
/// the bootstrappable presets have sparser keys, since the range of their modular reduction grows with the weight,
/// and the partners of FGb one weight for all, that of a key of length 4096.
constexpr PresetRow presetTable[] = {
    // name        boot   ext    sparse rank log N chain gadget level weight
    {"FVa",        true,  true,  false,  1,  17,  30,    3,   29,     64},
    {"FVb",        true,  true,  false,  1,  17,  30,    3,   14,    128},
    {"FGa",        true,  true,  false,  1,  16,  24,    6,    9,    192},
    {"FGb",        true,  true,  false,  1,  16,  25,    5,   12,    192},
    {"FTa",        true,  false, false,  1,  15,  20,   10,    8,    192},
    {"FTb",        true,  false, false,  1,  15,  16,   16,    4,    192},
    {"ST19",       false, false, false,  1,  15,  20,   20,   19,  21845},
    {"ST14",       false, false, false,  1,  15,  15,    3,   14,  21845},
    {"ST11",       false, false, false,  1,  15,  12,    3,   11,  21845},
    {"ST8",        false, false, false,  1,  15,   9,    3,    8,  21845},
    {"ST7",        false, false, false,  1,  15,   8,    2,    7,  21845},
    {"SS7",        false, false, false,  1,  14,   8,    4,    7,  10922},
    {"SD3",        false, false, false,  1,  13,   4,    4,    3,   5461},
    {"CUSTOM",     false, false, false,  0,   0,   0,    0,    0,      0},
    {"FVc",        true,  true,  false,  1,  17,  30,    3,   13,    128},
    {"FX",         true,  true,  false,  1,   6,  25,    5,   12,      8},
    {"FGd",        true,  true,  true,   1,  16,  25,    5,   12,    192},
    {"SGd0",       false, false, false,  1,  16,   1,    1,    0,     32},
    {"SD3D6R2",    false, false, false,  4,   6,   4,    4,    3,    171},
    {"FGbL0",      false, false, false,  1,  16,   1,    1,    0,   2730},
    {"FGbD12L0",   false, false, false,  1,  12,   1,    1,    0,   2730},
    {"FGbD8R4L0",  false, false, false, 16,   8,   1,    1,    0,   2730},
    {"FGbD6R6L0",  false, false, false, 64,   6,   1,    1,    0,   2730},
};
// clang-format on

constexpr u64 maxChainLength = 50;

const PresetRow& rowOf(ParameterPreset preset) {
    const auto number = static_cast<u64>(preset);
    require(number < std::size(presetTable), message::presetNotSupported);
    require(preset != ParameterPreset::CUSTOM, message::customNeedsParameters);
    return presetTable[number];
}

/// Whether `divisor` divides `number`; 0 divides nothing.
bool divides(u64 divisor, u64 number) {
    return divisor != 0 && number % divisor == 0;
}

void setDegree(Parameter& parameter, u64 log_degree) {
    parameter.log_degree = log_degree;
    parameter.degree = u64{1} << log_degree;
    parameter.num_slots = parameter.degree / 2;
}

void setChain(Parameter& parameter, u64 chain_length, u64 gadget_rank) {
    parameter.chain_length = chain_length;
    parameter.gadget_rank = gadget_rank;
    parameter.numQP = chain_length - parameter.numBP;
    parameter.numTP = chain_length / gadget_rank;
}

} // namespace

Parameter::Parameter(const ParameterPreset& namedPreset) : preset(namedPreset) {
    const PresetRow& row = rowOf(preset);
    name = row.name;
    has_bootstrap = row.has_bootstrap;
    has_extended_bootstrap = row.has_extended_bootstrap;
    has_sparse_encapsulation = row.has_sparse_encapsulation;
    rank = row.rank;
    setDegree(*this, row.log_degree);
    setChain(*this, row.chain_length, row.gadget_rank);
    encryption_level = row.encryption_level;
    hamming_weight = row.hamming_weight;
    security_level = preset == ParameterPreset::FX ? SecurityLevel::None : SecurityLevel::Bits128;
}

Parameter::Parameter(const CustomSizes& sizes)
    : preset(ParameterPreset::CUSTOM), name("CUSTOM"), rank(sizes.rank), log_bpsize(sizes.log_bpsize),
      log_tpsize(sizes.log_tpsize), log_qpsize(sizes.log_qpsize) {
    require(6 <= sizes.log_degree && sizes.log_degree <= 20, message::invalidLogDegree);
    require(1 <= sizes.chain_length && sizes.chain_length <= maxChainLength, message::invalidChainLength);
    require(divides(sizes.gadget_rank, sizes.chain_length), message::gadgetRankMustDivide);
    require(rank == 1, message::customRankAboveOne);
    setDegree(*this, sizes.log_degree);
    setChain(*this, sizes.chain_length, sizes.gadget_rank);
    encryption_level = numQP;
    const u64 keyLength = rank << log_degree;
    hamming_weight = static_cast<u64>(std::lround(2.0 * static_cast<double>(keyLength) / 3.0));
    security_level = computeLWESecurityLevel(log_degree + static_cast<u64>(std::bit_width(rank)) - 1,
                                             numQP * log_qpsize + numTP * log_tpsize + log_bpsize);
}

std::vector<ParameterPreset> allPresets() {
    std::vector<ParameterPreset> presets;
    for (u64 number = 0; number < std::size(presetTable); ++number)
        if (const auto preset = static_cast<ParameterPreset>(number); preset != ParameterPreset::CUSTOM)
            presets.push_back(preset);
    return presets;
}

EncryptionType getEncryptionType(ParameterPreset preset) {
    return Parameter(preset).rank == 1 ? EncryptionType::RLWE : EncryptionType::MLWE;
}

ParameterPreset getSparseParameterPresetFor(ParameterPreset preset) {
    require(preset == ParameterPreset::FGd, message::noSparsePreset);
    return ParameterPreset::SGd0;
}

} // namespace Torvo
