#include "context/Parameter.hpp"

#include "context/LWEParameter.hpp"
#include "support/Expect.hpp"

#include <string>

namespace Torvo {
namespace {

using enum ParameterPreset;

constexpr const char *invalidLogDegree = "[Parameter] Invalid log_degree",
                     *invalidChainLength = "[Parameter] Invalid chain_length",
                     *gadgetRankMustDivide = "[Parameter] gadget_rank should divide chain_length",
                     *rankAboveOne = "[Parameter] custom parameter with rank > 1 is not supported.",
                     *needNumbers = "Need to specify some parameters in order to use CUSTOM parameters.",
                     *notSupported = "The input parameter preset is not yet supported.",
                     *noSparsePreset =
                         "This parameter preset does not have corresponding sparse parameter preset";

struct Row {
    ParameterPreset preset;
    u64 number;
    const char* name;
    const char* flags; ///< B has_bootstrap, E has_extended_bootstrap, S has_sparse_encapsulation
    u64 rank, log_degree, chain_length, gadget_rank, numTP, encryption_level, hamming_weight;
};

constexpr Row rows[] = {
    {FVa, 0, "FVa", "BE", 1, 17, 30, 3, 10, 29, 64},
    {FVb, 1, "FVb", "BE", 1, 17, 30, 3, 10, 14, 128},
    {FGa, 2, "FGa", "BE", 1, 16, 24, 6, 4, 9, 192},
    {FGb, 3, "FGb", "BE", 1, 16, 25, 5, 5, 12, 192},
    {FTa, 4, "FTa", "B", 1, 15, 20, 10, 2, 8, 192},
    {FTb, 5, "FTb", "B", 1, 15, 16, 16, 1, 4, 192},
    {ST19, 6, "ST19", "", 1, 15, 20, 20, 1, 19, 21845},
    {ST14, 7, "ST14", "", 1, 15, 15, 3, 5, 14, 21845},
    {ST11, 8, "ST11", "", 1, 15, 12, 3, 4, 11, 21845},
    {ST8, 9, "ST8", "", 1, 15, 9, 3, 3, 8, 21845},
    {ST7, 10, "ST7", "", 1, 15, 8, 2, 4, 7, 21845},
    {SS7, 11, "SS7", "", 1, 14, 8, 4, 2, 7, 10922},
    {SD3, 12, "SD3", "", 1, 13, 4, 4, 1, 3, 5461},
    {FVc, 14, "FVc", "BE", 1, 17, 30, 3, 10, 13, 128},
    {FX, 15, "FX", "BE", 1, 6, 25, 5, 5, 12, 8},
    {FGd, 16, "FGd", "BES", 1, 16, 25, 5, 5, 12, 192},
    {SGd0, 17, "SGd0", "", 1, 16, 1, 1, 1, 0, 32},
    {SD3D6R2, 18, "SD3D6R2", "", 4, 6, 4, 4, 1, 3, 171},
    {FGbL0, 19, "FGbL0", "", 1, 16, 1, 1, 1, 0, 2730},
    {FGbD12L0, 20, "FGbD12L0", "", 1, 12, 1, 1, 1, 0, 2730},
    {FGbD8R4L0, 21, "FGbD8R4L0", "", 16, 8, 1, 1, 1, 0, 2730},
    {FGbD6R6L0, 22, "FGbD6R6L0", "", 64, 6, 1, 1, 1, 0, 2730},
};

std::string flagsOf(const Parameter& p) {
    return std::string(p.has_bootstrap ? "B" : "") + (p.has_extended_bootstrap ? "E" : "") +
           (p.has_sparse_encapsulation ? "S" : "");
}

void expectSchemeInfo(const SchemeInfo& info) {
    EXPECT_EQ(info.scheme_name, "Torvo");
    EXPECT_EQ(info.library_name, "Torvo");
    EXPECT_EQ(info.scheme_version, 2);
}

Parameter custom(u64 log_degree, u64 chain_length, u64 gadget_rank, u64 rank = 1) {
    return Parameter(CustomSizes{log_degree, chain_length, 60, 40, 61, gadget_rank, rank});
}

TEST(Parameter, EveryPresetHasTheNumbersOfItsRow) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Parameter p(row.preset);
        EXPECT_EQ(static_cast<u64>(row.preset), row.number);
        EXPECT_EQ(p.preset, row.preset);
        EXPECT_EQ(p.name, row.name);
        EXPECT_EQ(flagsOf(p), row.flags);
        EXPECT_EQ(p.rank, row.rank);
        EXPECT_EQ(p.log_degree, row.log_degree);
        EXPECT_EQ(p.chain_length, row.chain_length);
        EXPECT_EQ(p.gadget_rank, row.gadget_rank);
        EXPECT_EQ(p.numTP, row.numTP);
        EXPECT_EQ(p.encryption_level, row.encryption_level);
        EXPECT_EQ(p.hamming_weight, row.hamming_weight);
    }
}

TEST(Parameter, EveryPresetObeysTheRulesOfAllSets) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Parameter p(row.preset);
        EXPECT_EQ(p.degree, u64{1} << p.log_degree);
        EXPECT_EQ(p.num_slots, p.degree / 2);
        EXPECT_EQ(p.numBP, 1u);
        EXPECT_EQ(p.numQP + p.numBP, p.chain_length);
        EXPECT_EQ(p.numTP * p.gadget_rank, p.chain_length);
        EXPECT_EQ(p.gaussian_stddev, 3.2);
        EXPECT_EQ(p.log_bpsize + p.log_tpsize + p.log_qpsize, 0u);
        EXPECT_EQ(p.security_level, row.preset == FX ? SecurityLevel::None : SecurityLevel::Bits128);
        expectSchemeInfo(p.scheme_info);
    }
}

TEST(Parameter, CustomIsNoPresetAndBeyondTheTableThereIsNone) {
    EXPECT_REFUSED(Parameter{CUSTOM}, needNumbers);
    EXPECT_REFUSED(Parameter(ParameterPreset{23}), notSupported);
    EXPECT_REFUSED(Parameter(ParameterPreset{0xffffffff}), notSupported);
}

TEST(Parameter, CustomSetFollowsFromItsNumbers) {
    const Parameter p(CustomSizes{15, 12, 61, 50, 60, 3});
    EXPECT_EQ(p.preset, CUSTOM);
    EXPECT_EQ(p.name, "CUSTOM");
    EXPECT_EQ(flagsOf(p), "");
    EXPECT_EQ(p.rank, 1u);
    EXPECT_EQ(p.log_degree, 15u);
    EXPECT_EQ(p.degree, 32768u);
    EXPECT_EQ(p.num_slots, 16384u);
    EXPECT_EQ(p.chain_length, 12u);
    EXPECT_EQ(p.gadget_rank, 3u);
    EXPECT_EQ(p.numBP, 1u);
    EXPECT_EQ(p.numQP, 11u);
    EXPECT_EQ(p.numTP, 4u);
    EXPECT_EQ(p.encryption_level, 11u);
    EXPECT_EQ(p.hamming_weight, 21845u);
    EXPECT_EQ(p.gaussian_stddev, 3.2);
    EXPECT_EQ(p.log_bpsize, 61u);
    EXPECT_EQ(p.log_tpsize, 60u);
    EXPECT_EQ(p.log_qpsize, 50u);
    EXPECT_EQ(p.security_level, SecurityLevel::Bits128); // 61 + 11 * 50 + 4 * 60 = 851 bits, of 881
    expectSchemeInfo(p.scheme_info);
}

TEST(Parameter, CustomWeightIsTwoThirdsOfTheKeyToTheNearest) {
    EXPECT_EQ(custom(14, 1, 1).hamming_weight, 10923u); // 10922.67
    EXPECT_EQ(custom(15, 1, 1).hamming_weight, 21845u); // 21845.33
    EXPECT_EQ(custom(6, 1, 1).hamming_weight, 43u);     // 42.67
}

TEST(Parameter, CustomSecurityCountsTheWholeExtendedModulus) {
    const auto level = [](u64 log_tpsize) {
        return Parameter(CustomSizes{15, 2, 400, 400, log_tpsize, 2}).security_level;
    };
    EXPECT_EQ(level(81), SecurityLevel::Bits128); // 881 bits
    EXPECT_EQ(level(82), SecurityLevel::None);
    EXPECT_EQ(custom(9, 1, 1).security_level, SecurityLevel::None);
}

TEST(Parameter, CustomBoundsAreInclusive) {
    EXPECT_REFUSED(custom(5, 1, 1), invalidLogDegree);
    EXPECT_NO_THROW(custom(6, 1, 1));
    EXPECT_NO_THROW(custom(20, 1, 1));
    EXPECT_REFUSED(custom(21, 1, 1), invalidLogDegree);
    EXPECT_NO_THROW(custom(6, 50, 50));
    EXPECT_REFUSED(custom(6, 51, 51), invalidChainLength);
}

TEST(Parameter, CustomIsCheckedInOrder) {
    EXPECT_REFUSED(custom(5, 51, 2, 2), invalidLogDegree);
    EXPECT_REFUSED(custom(64, 51, 2, 0), invalidLogDegree);
    EXPECT_REFUSED(custom(6, 51, 2, 2), invalidChainLength);
    EXPECT_REFUSED(custom(6, 50, 3, 2), gadgetRankMustDivide);
    EXPECT_REFUSED(custom(6, 50, 5, 2), rankAboveOne);
    EXPECT_REFUSED(custom(6, 50, 5, 0), rankAboveOne);
}

/// A chain without primes or digits without primes make no ring; a stored recipe may hold either.
TEST(Parameter, CustomRefusesAnEmptyChainAndNoDigits) {
    EXPECT_REFUSED(custom(6, 0, 1), invalidChainLength);
    EXPECT_REFUSED(custom(6, 4, 0), gadgetRankMustDivide);
}

TEST(Parameter, EncryptionTypeFollowsTheRank) {
    for (const Row& row : rows)
        EXPECT_EQ(getEncryptionType(row.preset), row.rank == 1 ? RLWE : MLWE) << row.name;
    EXPECT_EQ(static_cast<u64>(RLWE), 1u);
    EXPECT_EQ(static_cast<u64>(MLWE), 0u);
    EXPECT_EQ(sizeof(EncryptionType), 4u);
    EXPECT_REFUSED(getEncryptionType(CUSTOM), needNumbers);
    EXPECT_REFUSED(getEncryptionType(ParameterPreset{23}), notSupported);
}

TEST(Parameter, OnlyFgdHasASparsePartner) {
    for (const Row& row : rows) {
        if (row.preset == FGd)
            EXPECT_EQ(getSparseParameterPresetFor(FGd), SGd0);
        else
            EXPECT_REFUSED(getSparseParameterPresetFor(row.preset), noSparsePreset);
    }
    EXPECT_REFUSED(getSparseParameterPresetFor(CUSTOM), noSparsePreset);
    EXPECT_REFUSED(getSparseParameterPresetFor(ParameterPreset{23}), noSparsePreset);
}

struct LweRow {
    LWE::ParameterPreset preset;
    u64 number;
    const char* name;
    u64 dimension, chain_length, numQP, hamming_weight;
};

constexpr LweRow lweRows[] = {
    {LWE::ParameterPreset::SS7, 0, "SS7", 1024, 8, 7, 683},
    {LWE::ParameterPreset::SD3, 1, "SD3", 32, 4, 3, 21},
    {LWE::ParameterPreset::FGbD12L0, 3, "FGbD12L0", 4096, 1, 0, 2731},
};

TEST(LWEParameter, EveryPresetHasTheNumbersOfItsRow) {
    for (const LweRow& row : lweRows) {
        SCOPED_TRACE(row.name);
        const LWE::Parameter p(row.preset);
        EXPECT_EQ(static_cast<u64>(row.preset), row.number);
        EXPECT_EQ(p.preset, row.preset);
        EXPECT_EQ(p.name, row.name);
        EXPECT_EQ(p.dimension, row.dimension);
        EXPECT_EQ(p.chain_length, row.chain_length);
        EXPECT_EQ(p.numBP, 1u);
        EXPECT_EQ(p.numQP, row.numQP);
        EXPECT_EQ(p.hamming_weight, row.hamming_weight);
        EXPECT_EQ(p.gaussian_stddev, 3.2);
        EXPECT_EQ(p.log_bpsize + p.log_qpsize, 0u);
        EXPECT_EQ(p.security_level, SecurityLevel::Bits128);
        expectSchemeInfo(p.scheme_info);
    }
}

TEST(LWEParameter, CustomIsNoPresetAndBeyondTheTableThereIsNone) {
    EXPECT_REFUSED(LWE::Parameter{LWE::ParameterPreset::CUSTOM}, needNumbers);
    EXPECT_REFUSED(LWE::Parameter(LWE::ParameterPreset{4}), notSupported);
    EXPECT_REFUSED(LWE::Parameter(LWE::ParameterPreset{0xffffffff}), notSupported);
}

TEST(LWEParameter, CustomSetFollowsFromItsNumbers) {
    const LWE::Parameter p(LWE::CustomSizes{1030, 2, 15, 12});
    EXPECT_EQ(p.preset, LWE::ParameterPreset::CUSTOM);
    EXPECT_EQ(p.name, "CUSTOM");
    EXPECT_EQ(p.dimension, 1030u);
    EXPECT_EQ(p.chain_length, 2u);
    EXPECT_EQ(p.numBP, 1u);
    EXPECT_EQ(p.numQP, 1u);
    EXPECT_EQ(p.hamming_weight, 687u); // 686.67
    EXPECT_EQ(p.gaussian_stddev, 3.2);
    EXPECT_EQ(p.log_bpsize, 15u);
    EXPECT_EQ(p.log_qpsize, 12u);
    EXPECT_EQ(p.security_level, SecurityLevel::Bits128); // 27 bits, the last of its level at 2^10
    EXPECT_EQ(LWE::Parameter(LWE::CustomSizes{1030, 2, 16, 12}).security_level, SecurityLevel::None);
    EXPECT_EQ(LWE::Parameter(LWE::CustomSizes{1023, 1, 1, 12}).security_level, SecurityLevel::None);
    expectSchemeInfo(p.scheme_info);
}

TEST(LWEParameter, CustomChainHasOneToFiftyPrimes) {
    EXPECT_NO_THROW(LWE::Parameter(LWE::CustomSizes{1024, 50, 40, 40}));
    EXPECT_REFUSED(LWE::Parameter(LWE::CustomSizes{1024, 51, 40, 40}), invalidChainLength);
    EXPECT_REFUSED(LWE::Parameter(LWE::CustomSizes{1024, 0, 40, 40}), invalidChainLength);
}

} // namespace
} // namespace Torvo
