// Prints the preset table of the README, computed from the parameter sets and prime chains.

#include "arithmetic/chain/PrimeLists.hpp"
#include "context/Parameter.hpp"
#include "context/ScaleFactors.hpp"
#include "core/Integers.hpp"

#include <cmath>
#include <cstdio>
#include <string>

namespace {

using namespace Torvo;

double mebibytes(u64 words) {
    return static_cast<double>(words) * sizeof(u64) / (1 << 20);
}

/// The stated level, and whether the table of `computeLWESecurityLevel` bears it out. That table is for ternary
/// secrets two thirds of whose coefficients are not zero: a sparser one counts with the length at which its
/// weight would be that, and a shorter length is never the safer one.
std::string securityOf(const Parameter& p, double logModulus) {
    if (p.security_level == SecurityLevel::None) return "none";
    const auto logLength =
        static_cast<u64>(std::lround(std::log2(1.5 * static_cast<double>(p.hamming_weight))));
    const auto borneOut = computeLWESecurityLevel(logLength, static_cast<u64>(std::lround(logModulus)));
    return borneOut >= p.security_level ? "128" : "128, stated";
}

/// log2 of the largest coefficient that level 0 holds, the message's scale taken off: half of the base prime.
std::string roomOf(double logBasePrime, double logScale) {
    const double room = logBasePrime - 1 - logScale;
    if (room < 0) return "none";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", room);
    return text;
}

void printRow(ParameterPreset preset) {
    const Parameter p(preset);
    const auto& primes = getPrimeList(preset);
    const auto scales = ScaleFactors(preset).log_scale;
    double logModulus = 0;
    for (const unsigned long prime : primes) logModulus += std::log2(static_cast<double>(prime));
    // A switching key: gadget_rank pairs of polynomials over the whole chain; a file holds the uniform half
    // of each as its seed of 1024 bytes.
    const u64 half = p.gadget_rank * (p.chain_length + p.numTP) * p.degree;
    const u64 ciphertext = (p.rank + 1) * (p.encryption_level + 1) * p.degree;
    std::printf("| `%s`%s | 2^%lu | %lu | %lu | %.0f | %s | %.0f | %.1f | %.1f | %.1f | %s |\n", p.name.c_str(),
                p.has_bootstrap ? " B" : "", p.log_degree, p.rank, p.encryption_level,
                scales[p.encryption_level],
                roomOf(std::log2(static_cast<double>(primes.front())), scales.front()).c_str(), logModulus,
                mebibytes(ciphertext), mebibytes(2 * half), mebibytes(half),
                securityOf(p, logModulus).c_str());
}

} // namespace

int main() {
    std::printf("| preset | degree | rank | levels | scale, bits | room, bits | log2 of all primes | "
                "ciphertext, MiB | switching key, MiB | its file, MiB | security, bits |\n");
    std::printf("| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
    for (u64 value = 0; value <= static_cast<u64>(ParameterPreset::FGbD6R6L0); ++value)
        if (static_cast<ParameterPreset>(value) != ParameterPreset::CUSTOM)
            printRow(static_cast<ParameterPreset>(value));
    return 0;
}
