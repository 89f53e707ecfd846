#include "arithmetic/chain/PrimeLists.hpp"

#include <cstddef>
#include <map>

namespace Torvo {

namespace {

// The chains, in chain order: the base prime, the quantize primes from the lowest level up, the temporary
// primes. Presets whose ciphertexts pass from one to the other share a chain, or at least its base prime. The
// comments give the sizes as round(log2(p)), "base | quantize | temporary".
//
// The quantize primes are so close to their powers of two, alternately above and below, that the scales of
// the user's levels stay within 0.04 bit of their nominal size. The numbers never change: contexts are stored
// by the name of their preset, and keys by the hash of the primes.

/// FVa: 1 modulo 2^18. Bits: 61 | 29 x 51 | 10 x 53.
constexpr unsigned long chainOfFVa[] = {
    // base
    0x1ffffffffc000001,
    // quantize
    0x7fffffc900001,
    0x7fffffe780001,
    0x8000001d00001,
    0x80000032c0001,
    0x7fffffdb00001,
    0x7fffffc9c0001,
    0x8000001ac0001,
    0x7fffffcfc0001,
    0x8000001a80001,
    0x8000002d40001,
    0x7fffffe900001,
    0x8000002a80001,
    0x7fffffeac0001,
    0x8000002200001,
    0x7ffffff080001,
    0x80000025c0001,
    0x7ffffff240001,
    0x7fffffdc40001,
    0x8000001600001,
    0x7fffffddc0001,
    0x8000001540001,
    0x7fffffe0c0001,
    0x80000014c0001,
    0x8000000940001,
    0x7ffffff9c0001,
    0x7ffffff900001,
    0x8000000500001,
    0x80000002c0001,
    0x80000001c0001,
    // temporary
    0x1fffffffd80001,
    0x1fffffff900001,
    0x1fffffff8c0001,
    0x1fffffff740001,
    0x1fffffff5c0001,
    0x1fffffff2c0001,
    0x1fffffff200001,
    0x1ffffffee80001,
    0x1ffffffed80001,
    0x1ffffffed00001,
};

/// FVb: 1 modulo 2^18. Bits: 61 | 55, 13 x 51, 12 x 61, 3 x 57 | 10 x 61.
constexpr unsigned long chainOfFVb[] = {
    // base
    0x1ffffffffc000001,
    // quantize
    0x800000143c0001,
    0x7fffffeac0001,
    0x8000000940001,
    0x8000001600001,
    0x7ffffff080001,
    0x80000014c0001,
    0x7ffffff240001,
    0x7ffffff900001,
    0x8000000500001,
    0x7ffffff9c0001,
    0x80000002c0001,
    0x80000001c0001,
    0x8000002a80001,
    0x8000036b00001,
    0x1ffffffffe4c0001,
    0x1ffffffffe600001,
    0x1ffffffffe780001,
    0x1ffffffffeb40001,
    0x1ffffffffee80001,
    0x1ffffffffef00001,
    0x1fffffffff000001,
    0x1fffffffff380001,
    0x1fffffffff500001,
    0x1fffffffffb40001,
    0x1fffffffffc80001,
    0x1fffffffffe00001,
    0x1ffffffff8c0001,
    0x1fffffffffc0001,
    0x1ffffffff840001,
    // temporary
    0x1ffffffffdf40001,
    0x1ffffffffdac0001,
    0x1ffffffffda40001,
    0x1ffffffffc680001,
    0x1ffffffffb880001,
    0x1ffffffffb7c0001,
    0x1ffffffffb300001,
    0x1ffffffffb1c0001,
    0x1ffffffffadc0001,
    0x1ffffffffa400001,
};

/// FGa: 1 modulo 2^17. Bits: 60 | 3 x 45, 6 x 48, 11 x 60, 3 x 56 | 4 x 61.
constexpr unsigned long chainOfFGa[] = {
    // base
    0xffffffffffc0001,
    // quantize
    0x1fffffc20001,
    0x1fffff980001,
    0x1fffff7e0001,
    0xffffff6a0001,
    0xffffff280001,
    0xffffff060001,
    0xfffffed60001,
    0xfffffebc0001,
    0xfffffe8e0001,
    0xfffffffff840001,
    0xfffffffff6a0001,
    0xfffffffff5a0001,
    0xfffffffff2a0001,
    0xfffffffff240001,
    0xffffffffefe0001,
    0xffffffffeca0001,
    0xffffffffe9e0001,
    0xffffffffe7c0001,
    0xffffffffe740001,
    0xffffffffe520001,
    0xfffffffff00001,
    0xffffffffd80001,
    0xffffffffd20001,
    // temporary
    0x1fffffffffe00001,
    0x1fffffffffc80001,
    0x1fffffffffb40001,
    0x1fffffffff500001,
};

/// FGb, FX, FGd: 1 modulo 2^17. Bits: 58 | 12 x 42, 12 x 58 | 3 x 59, 2 x 60.
constexpr unsigned long chainOfFGb[] = {
    // base
    0x3ffffffffbe0001,
    // quantize
    0x3ffffe80001,
    0x3ffffd20001,
    0x3ffffca0001,
    0x3ffffbe0001,
    0x3ffff4e0001,
    0x3fffefa0001,
    0x3fffee60001,
    0x3fffe880001,
    0x3fffe820001,
    0x3fffe800001,
    0x3fffe580001,
    0x3fffe560001,
    0x3fffffffdd80001,
    0x3ffffffff3a0001,
    0x3ffffffff040001,
    0x3fffffffed60001,
    0x3fffffffed00001,
    0x3fffffffeb00001,
    0x3fffffffea00001,
    0x3fffffffe800001,
    0x3fffffffe440001,
    0x3fffffffe320001,
    0x3fffffffe2c0001,
    0x3fffffffdfe0001,
    // temporary
    0x7ffffffffcc0001,
    0x7ffffffffba0001,
    0x7ffffffffb00001,
    0xffffffffffc0001,
    0xfffffffff840001,
};

/// FTa: 1 modulo 2^16. Bits: 38 | 32, 7 x 28, 8 x 38, 3 x 41 | 2 x 42.
constexpr unsigned long chainOfFTa[] = {
    // base
    0x3fffe80001,
    // quantize
    0xffac0001,
    0x10200001,
    0x10240001,
    0xfeb0001,
    0xffa0001,
    0x100c0001,
    0xffd0001,
    0xfff0001,
    0x3fff810001,
    0x40003f0001,
    0x3fffaf0001,
    0x4000300001,
    0x3fffb80001,
    0x40002f0001,
    0x3fffcf0001,
    0x4000170001,
    0x1ffffff0001,
    0x200000d0001,
    0x1fffe780001,
    // temporary
    0x3ffffe80001,
    0x3ffffd20001,
};

/// FTb: 1 modulo 2^16. Bits: 49 | 3 x 33, 36, 8 x 49, 3 x 47 | 54.
constexpr unsigned long chainOfFTb[] = {
    // base
    0x1fffffff50001,
    // quantize
    0x1fff60001,
    0x200080001,
    0x1fff90001,
    0x1000090001,
    0x20000005e0001,
    0x1ffffffd40001,
    0x1ffffffb00001,
    0x20000003b0001,
    0x20000000b0001,
    0x1ffffffea0001,
    0x20000001a0001,
    0x2000000ce0001,
    0x7fffffe70001,
    0x7ffffff00001,
    0x800000020001,
    // temporary
    0x3fffffffd60001,
};

/// ST19: 1 modulo 2^16. Bits: 50 | 19 x 40 | 50.
constexpr unsigned long chainOfST19[] = {
    // base
    0x3ffffffdf0001,
    // quantize
    0xffff780001,
    0x10000c90001,
    0xffff820001,
    0xffff2d0001,
    0x10000650001,
    0x10000de0001,
    0xffff8a0001,
    0xffff690001,
    0x10000500001,
    0x10000ab0001,
    0xffff940001,
    0x100004b0001,
    0xffffb20001,
    0x10000470001,
    0xffffc40001,
    0x100003e0001,
    0xffffe80001,
    0x10000290001,
    0x10000140001,
    // temporary
    0x3ffffffd20001,
};

/// ST14: 1 modulo 2^16. Bits: 48 | 14 x 42 | 5 x 46.
constexpr unsigned long chainOfST14[] = {
    // base
    0xfffffffa0001,
    // quantize
    0x3ffff3f0001,
    0x40000560001,
    0x3ffff4b0001,
    0x400004d0001,
    0x3ffffbe0001,
    0x400003b0001,
    0x3ffffc30001,
    0x40000390001,
    0x3ffffca0001,
    0x40000330001,
    0x3ffffe80001,
    0x3ffffd20001,
    0x400002f0001,
    0x400000b0001,
    // temporary
    0x3ffffff70001,
    0x3fffffe50001,
    0x3fffffcc0001,
    0x3fffffc70001,
    0x3fffffb20001,
};

/// ST11: 1 modulo 2^16. Bits: 61 | 11 x 51 | 4 x 61.
constexpr unsigned long chainOfST11[] = {
    // base
    0x1fffffffffe10001,
    // quantize
    0x7ffffffc60001,
    0x7ffffff9c0001,
    0x80000002c0001,
    0x8000000590001,
    0x7ffffffd10001,
    0x80000001c0001,
    0x7ffffffdd0001,
    0x8000000130001,
    0x7ffffffd20001,
    0x8000000110001,
    0x7fffffffe0001,
    // temporary
    0x1fffffffffe00001,
    0x1fffffffffdd0001,
    0x1fffffffffc80001,
    0x1fffffffffb40001,
};

/// ST8: 1 modulo 2^16. Bits: 61 | 8 x 51 | 3 x 61.
constexpr unsigned long chainOfST8[] = {
    // base
    0x1fffffffffe10001,
    // quantize
    0x8000000590001,
    0x7ffffffd10001,
    0x80000001c0001,
    0x7ffffffdd0001,
    0x8000000130001,
    0x7ffffffd20001,
    0x8000000110001,
    0x7fffffffe0001,
    // temporary
    0x1fffffffffe00001,
    0x1fffffffffdd0001,
    0x1fffffffffc80001,
};

/// ST7: 1 modulo 2^16. Bits: 61 | 7 x 51 | 4 x 61.
constexpr unsigned long chainOfST7[] = {
    // base
    0x1fffffffffe10001,
    // quantize
    0x7ffffffd10001,
    0x80000001c0001,
    0x7ffffffdd0001,
    0x8000000130001,
    0x7ffffffd20001,
    0x8000000110001,
    0x7fffffffe0001,
    // temporary
    0x1fffffffffe00001,
    0x1fffffffffdd0001,
    0x1fffffffffc80001,
    0x1fffffffffb40001,
};

/// SS7: 1 modulo 2^15. Bits: 50 | 7 x 42 | 2 x 46.
constexpr unsigned long chainOfSS7[] = {
    // base
    0x3ffffffb80001,
    // quantize
    0x3ffffe80001,
    0x40000330001,
    0x3ffffd38001,
    0x400000b0001,
    0x40000248001,
    0x3ffffe28001,
    0x3fffffa8001,
    // temporary
    0x3ffffff70001,
    0x3ffffff58001,
};

/// SD3, SD3D6R2: 1 modulo 2^14. Bits: 47 | 3 x 41 | 47.
constexpr unsigned long chainOfSD3[] = {
    // base
    0x7ffffff00001,
    // quantize
    0x1ffffd80001,
    0x1ffffff0001,
    0x20000008001,
    // temporary
    0x7ffffffec001,
};

/// FVc: 1 modulo 2^18. Bits: 61 | 58, 12 x 54, 13 x 61, 3 x 57 | 10 x 61.
constexpr unsigned long chainOfFVc[] = {
    // base
    0x1ffffffffc000001,
    // quantize
    0x3ffffffff040001,
    0x3fffffff000001,
    0x40000034b80001,
    0x40000034c40001,
    0x40000035540001,
    0x40000035b80001,
    0x40000035d00001,
    0x40000037f40001,
    0x40000038880001,
    0x40000039680001,
    0x40000039e00001,
    0x4000003a1c0001,
    0x4000003a2c0001,
    0x1ffffffffdf40001,
    0x1ffffffffe4c0001,
    0x1ffffffffe600001,
    0x1ffffffffe780001,
    0x1ffffffffeb40001,
    0x1ffffffffee80001,
    0x1ffffffffef00001,
    0x1fffffffff000001,
    0x1fffffffff380001,
    0x1fffffffff500001,
    0x1fffffffffb40001,
    0x1fffffffffc80001,
    0x1fffffffffe00001,
    0x1ffffffff8c0001,
    0x1fffffffffc0001,
    0x1ffffffff840001,
    // temporary
    0x1ffffffffdac0001,
    0x1ffffffffda40001,
    0x1ffffffffc680001,
    0x1ffffffffb880001,
    0x1ffffffffb7c0001,
    0x1ffffffffb300001,
    0x1ffffffffb1c0001,
    0x1ffffffffadc0001,
    0x1ffffffffa400001,
    0x1ffffffffa140001,
};

/// SGd0: 1 modulo 2^17. Bits: 58 | none | 59.
constexpr unsigned long chainOfSGd0[] = {
    // base
    0x3ffffffffbe0001,
    // temporary
    0x7ffffffffcc0001,
};

/// FGbL0, FGbD12L0, FGbD8R4L0, FGbD6R6L0: 1 modulo 2^17. Bits: 58 | none | 51.
constexpr unsigned long chainOfL0[] = {
    // base
    0x3ffffffffbe0001,
    // temporary
    0x7ffffffd20001,
};

/// Plain LWE, SS7. Bits: 50 | 7 x 42.
constexpr unsigned long lweChainOfSS7[] = {
    // base
    0x3ffffffb80001,
    // quantize
    0x3ffffe80001,
    0x40000330001,
    0x3ffffd38001,
    0x400000b0001,
    0x40000248001,
    0x3ffffe28001,
    0x3fffffa8001,
};

/// Plain LWE, SD3. Bits: 47 | 3 x 41.
constexpr unsigned long lweChainOfSD3[] = {
    // base
    0x7ffffff00001,
    // quantize
    0x1ffffd80001,
    0x1ffffff0001,
    0x20000008001,
};

/// Plain LWE, FGbD12L0. Bits: 58 | none.
constexpr unsigned long lweChainOfFGbD12L0[] = {
    // base
    0x3ffffffffbe0001,
};

template <std::size_t n>
std::vector<unsigned long> listOf(const unsigned long (&primes)[n]) {
    return {primes, primes + n};
}

} // namespace

const std::vector<unsigned long>& getPrimeList(ParameterPreset preset) {
    using enum ParameterPreset;
    static const std::map<ParameterPreset, std::vector<unsigned long>> PRIME_LIST{
        {FVa, listOf(chainOfFVa)},      {FVb, listOf(chainOfFVb)},     {FGa, listOf(chainOfFGa)},
        {FGb, listOf(chainOfFGb)},      {FTa, listOf(chainOfFTa)},     {FTb, listOf(chainOfFTb)},
        {ST19, listOf(chainOfST19)},    {ST14, listOf(chainOfST14)},   {ST11, listOf(chainOfST11)},
        {ST8, listOf(chainOfST8)},      {ST7, listOf(chainOfST7)},     {SS7, listOf(chainOfSS7)},
        {SD3, listOf(chainOfSD3)},      {FVc, listOf(chainOfFVc)},     {FX, listOf(chainOfFGb)},
        {FGd, listOf(chainOfFGb)},      {SGd0, listOf(chainOfSGd0)},   {SD3D6R2, listOf(chainOfSD3)},
        {FGbL0, listOf(chainOfL0)},     {FGbD12L0, listOf(chainOfL0)}, {FGbD8R4L0, listOf(chainOfL0)},
        {FGbD6R6L0, listOf(chainOfL0)},
    };
    return PRIME_LIST.at(preset);
}

const std::vector<unsigned long>& getPrimeList(LWE::ParameterPreset preset) {
    using enum LWE::ParameterPreset;
    static const std::map<LWE::ParameterPreset, std::vector<unsigned long>> LWE_PRIME_LIST{
        {SS7, listOf(lweChainOfSS7)},
        {SD3, listOf(lweChainOfSD3)},
        {FGbD12L0, listOf(lweChainOfFGbD12L0)},
    };
    return LWE_PRIME_LIST.at(preset);
}

} // namespace Torvo
