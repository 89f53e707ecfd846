// Prints the preset table of the README, computed from the parameter sets and prime chains.

#include "arithmetic/chain/PrimeLists.hpp"
#include "context/Parameter.hpp"
#include "core/Integers.hpp"

#include <cmath>
#include <cstdio>

namespace {

using namespace Torvo;

double mebibytes(u64 words) {
    return static_cast<double>(words) * sizeof(u64) / (1 << 20);
}

void printRow(ParameterPreset preset) {
    const Parameter p(preset);
    double logModulus = 0;
    for (const unsigned long prime : getPrimeList(preset))
        logModulus += std::log2(static_cast<double>(prime));
    // A switching key: gadget_rank pairs of polynomials over the whole chain; a file holds the uniform half
    // of each as its seed of 1024 bytes.
    const u64 half = p.gadget_rank * (p.chain_length + p.numTP) * p.degree;
    const u64 ciphertext = (p.rank + 1) * (p.encryption_level + 1) * p.degree;
    std::printf("| `%s`%s | 2^%lu | %lu | %lu | %.0f | %.1f | %.1f | %.1f | %s |\n", p.name.c_str(),
                p.has_bootstrap ? " B" : "", p.log_degree, p.rank, p.encryption_level, logModulus,
                mebibytes(ciphertext), mebibytes(2 * half), mebibytes(half),
                p.security_level == SecurityLevel::None ? "none" : "128");
}

} // namespace

int main() {
    std::printf("| preset | degree | rank | levels | log2 of all primes | ciphertext, MiB | switching key, "
                "MiB | its file, MiB | "
                "security, bits |\n");
    std::printf("| --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
    for (u64 value = 0; value <= static_cast<u64>(ParameterPreset::FGbD6R6L0); ++value)
        if (static_cast<ParameterPreset>(value) != ParameterPreset::CUSTOM)
            printRow(static_cast<ParameterPreset>(value));
    return 0;
}
