#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// One word at a time: the scalar form of the row kernels. AVX2Lanes has the same members.
struct ScalarLanes {
    using Words = u64;
    static constexpr u64 width = 1;
    /// Shoup products lie in [0, productRange * p).
    static constexpr u64 productRange = 2;
    /// See lanes::Roomy.
    static constexpr bool isRoomy = false;
    /// Whether there is `modularProduct`: see FloatProducts.
    static constexpr bool hasModularProduct = false;

    static Words load(const u64* from) { return *from; }
    static void store(u64* to, Words x) { *to = x; }
    static Words splat(u64 x) { return x; }
    static Words add(Words x, Words y) { return x + y; }
    static Words sub(Words x, Words y) { return x - y; }
    static Words mulLow(Words x, Words y) { return x * y; }
    /// v*w - x*y.
    static Words mulLowDifference(Words v, Words w, Words x, Words y) { return v * w - x * y; }
    static Words shoupQuotient(Words x, Words companion) { return mulHigh(x, companion); }
    static Words mulHigh(Words x, Words y) { return static_cast<u64>(u128{x} * y >> 64); }
    /// Low word of the product x * y shifted right by `shift` < 64, and the low word of the product itself.
    static Words mulShifted(Words x, Words y, u64 shift, Words& low) {
        const u128 product = u128{x} * y;
        low = static_cast<u64>(product);
        return static_cast<u64>(product >> shift);
    }
    /// A sum of products of words, below 2^128, whatever limbs the vector form uses.
    template <int>
    struct Sum {
        u128 value = 0;

        using Factor = u64;

        static u64 split(Words x) { return x; }
        static Factor factor(u64 x) { return x; }
        static u64 splat(Factor x) { return x; }
        void add(u64 x) { value += x; }
        void addProduct(u64 x, u64 y) { value += u128{x} * y; }
        void carry() {}
        Words highWord() const { return static_cast<u64>(value >> 64); }
        Words lowWord() const { return static_cast<u64>(value); }
    };
    /// x - m where x >= m, else x; x, m < 2^63.
    static Words subtractIfNotBelow(Words x, Words m) { return x >= m ? x - m : x; }
    /// x + y where x > bound, else x; x, bound < 2^63.
    static Words addIfAbove(Words x, Words bound, Words y) { return x + (x > bound ? y : 0); }
    /// x + y where the signed word `sign` is negative, else x.
    static Words addIfNegative(Words x, Words sign, Words y) { return x + (-(sign >> 63) & y); }
};

} // namespace Torvo
