#pragma once

#include "arithmetic/chain/CustomSizes.hpp"
#include "core/Integers.hpp"

#include <Torvo/ParameterPreset.hpp>
#include <Torvo/SecurityLevel.hpp>

#include <string>
#include <vector>

namespace Torvo {

/// The origin of a parameter set; no code reads it.
struct SchemeInfo {
    std::string scheme_name = "Torvo";
    std::string library_name = "Torvo";
    int scheme_version = 2;
};

/// The sizes and counts of a ring parameter set. Every set obeys numTP * gadget_rank == chain_length and
/// numQP + numBP == chain_length; `PrimeModuli` holds its primes.
struct Parameter {
    /// A preset.
    /// @throws RuntimeException "Need to specify some parameters in order to use CUSTOM parameters."; "The
    ///         input parameter preset is not yet supported."
    explicit Parameter(const ParameterPreset& preset);
    /// A custom set.
    /// @throws RuntimeException in this order: "[Parameter] Invalid log_degree"; "[Parameter] Invalid
    ///         chain_length"; "[Parameter] gadget_rank should divide chain_length"; "[Parameter] custom
    ///         parameter with rank > 1 is not supported."
    explicit Parameter(const CustomSizes& sizes);

    /// Whether the chain has levels above that of fresh ciphertexts. Bootstrapping spends those levels, and
    /// their primes are larger than those of the user's levels.
    bool hasLevelsAboveEncryption() const { return encryption_level + 1 < chain_length; }

    ParameterPreset preset;
    std::string name;
    bool has_bootstrap = false;
    bool has_extended_bootstrap = false;
    bool has_sparse_encapsulation = false;
    u64 rank = 1; ///< ring elements of a secret key
    u64 log_degree = 0;
    u64 degree = 0;
    u64 num_slots = 0;        ///< degree / 2
    u64 chain_length = 0;     ///< ciphertext primes at the top level
    u64 gadget_rank = 0;      ///< digits in key switching
    u64 numBP = 1;            ///< base primes
    u64 numQP = 0;            ///< the other ciphertext primes; also the top level
    u64 numTP = 0;            ///< temporary primes of key switching
    u64 encryption_level = 0; ///< level of fresh ciphertexts
    u64 hamming_weight = 0;   ///< non-zero coefficients of a secret key, over all its ring elements
    double gaussian_stddev = 3.2;
    u64 log_bpsize = 0; ///< bits of the base prime; custom sets only, as the next two
    u64 log_tpsize = 0;
    u64 log_qpsize = 0;
    SecurityLevel security_level = SecurityLevel::None;
    SchemeInfo scheme_info;
};

/// All presets but CUSTOM, by number.
std::vector<ParameterPreset> allPresets();

} // namespace Torvo
