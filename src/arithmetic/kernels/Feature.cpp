#include "arithmetic/kernels/Feature.hpp"

#include <cpuid.h>

namespace Torvo::detail {

namespace {

constexpr unsigned featureLeaf = 7;

/// Bit `bit` of `word`, moved to bit `place`.
constexpr u64 moveBit(unsigned word, int bit, int place) {
    return u64{(word >> bit) & 1U} << place;
}

} // namespace

u64 readProcessorFeature() {
    // Leaf 0 returns the highest leaf. It is read only once, because every CPUID instruction interrupts a
    // virtual machine.
    static const auto highestLeaf = static_cast<unsigned>(__get_cpuid_max(0, nullptr));
    if (highestLeaf < featureLeaf) return 0;
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    __cpuid_count(featureLeaf, 0, eax, ebx, ecx, edx);
    return moveBit(ebx, 5, 0) | moveBit(ebx, 17, 1) | moveBit(ebx, 16, 2) | moveBit(ebx, 31, 3);
}

bool processorHasFMA() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_FMA) != 0;
}

} // namespace Torvo::detail
