#include "arithmetic/kernels/Feature.hpp"

#include <cpuid.h>

namespace Torvo::detail {

namespace {

/// What CPUID answers; zeros for a leaf that the processor does not have.
struct Leaf {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
};

constexpr unsigned featureLeaf = 7;

Leaf readFeatureLeaf() {
    // Leaf 0 returns the highest leaf. It is read only once, because every CPUID instruction interrupts a
    // virtual machine.
    static const auto highestLeaf = static_cast<unsigned>(__get_cpuid_max(0, nullptr));
    Leaf leaf;
    if (highestLeaf >= featureLeaf) __cpuid_count(featureLeaf, 0, leaf.eax, leaf.ebx, leaf.ecx, leaf.edx);
    return leaf;
}

constexpr bool hasAll(u64 word, u64 bits) {
    return (word & bits) == bits;
}

/// Bit `bit` of `word`, moved to bit `place`.
constexpr u64 moveBit(unsigned word, int bit, int place) {
    return u64{(word >> bit) & 1U} << place;
}

/// The registers that the system saves and restores: extended control register 0.
u64 savedRegisters() {
    unsigned low = 0;
    unsigned high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return u64{high} << 32 | low;
}

} // namespace

u64 readProcessorFeature() {
    const unsigned ebx = readFeatureLeaf().ebx;
    return moveBit(ebx, 5, 0) | moveBit(ebx, 17, 1) | moveBit(ebx, 16, 2) | moveBit(ebx, 31, 3);
}

KernelForm readWidestForm() {
    Leaf first;
    if (__get_cpuid(1, &first.eax, &first.ebx, &first.ecx, &first.edx) == 0 || !hasAll(first.ecx, bit_FMA))
        return KernelForm::AVX2;
    constexpr u64 avx512 = bit_AVX512F | bit_AVX512DQ | bit_AVX512VL;
    // Halves and wholes of the first 16 vectors, masks, upper halves of the first 16 and the other 16 vectors.
    constexpr u64 registers = 0b11100110;
    const u64 ebx = readFeatureLeaf().ebx;
    if (!hasAll(ebx, avx512) || !hasAll(first.ecx, bit_OSXSAVE) || !hasAll(savedRegisters(), registers))
        return KernelForm::FMA;
    return hasAll(ebx, bit_AVX512IFMA) ? KernelForm::IFMA : KernelForm::AVX512;
}

} // namespace Torvo::detail
