// Made by `build/release/tools/sign_tables`, which prints this file. Not to be edited.

#include "functions/SignTables.hpp"

#include <array>

namespace Torvo {

namespace {

constexpr u64 exponents = mostSignExponent - leastSignExponent + 1;

/// How many polynomials, and their degrees.
struct Row {
    u64 count;
    std::array<u64, 8> degrees;
};

// clang-format off
constexpr Row rows[exponents][exponents] = {
    {// from 2^-4 on
     {2, {7, 7}}, // 2^-4: 6 levels, 8 products
     {1, {47}}, // 2^-5: 6 levels, 13 products
     {1, {55}}, // 2^-6: 6 levels, 14 products
     {1, {63}}, // 2^-7: 6 levels, 15 products
     {2, {7, 15}}, // 2^-8: 7 levels, 11 products
     {2, {7, 15}}, // 2^-9: 7 levels, 11 products
     {3, {3, 7, 7}}, // 2^-10: 8 levels, 10 products
     {2, {7, 23}}, // 2^-11: 8 levels, 13 products
     {2, {7, 23}}, // 2^-12: 8 levels, 13 products
     {2, {7, 23}}, // 2^-13: 8 levels, 13 products
     {2, {7, 31}}, // 2^-14: 8 levels, 14 products
     {2, {7, 31}}, // 2^-15: 8 levels, 14 products
     {2, {7, 31}}, // 2^-16: 8 levels, 14 products
    },
    {// from 2^-5 on
     {2, {7, 15}}, // 2^-4: 7 levels, 11 products
     {2, {7, 15}}, // 2^-5: 7 levels, 11 products
     {2, {11, 15}}, // 2^-6: 8 levels, 13 products
     {2, {11, 15}}, // 2^-7: 8 levels, 13 products
     {2, {15, 15}}, // 2^-8: 8 levels, 14 products
     {2, {15, 15}}, // 2^-9: 8 levels, 14 products
     {3, {7, 7, 7}}, // 2^-10: 9 levels, 12 products
     {3, {7, 7, 7}}, // 2^-11: 9 levels, 12 products
     {2, {11, 31}}, // 2^-12: 9 levels, 16 products
     {2, {11, 31}}, // 2^-13: 9 levels, 16 products
     {2, {11, 31}}, // 2^-14: 9 levels, 16 products
     {2, {15, 31}}, // 2^-15: 9 levels, 17 products
     {2, {15, 31}}, // 2^-16: 9 levels, 17 products
    },
    {// from 2^-6 on
     {2, {11, 15}}, // 2^-4: 8 levels, 13 products
     {2, {15, 15}}, // 2^-5: 8 levels, 14 products
     {3, {7, 7, 7}}, // 2^-6: 9 levels, 12 products
     {2, {15, 23}}, // 2^-7: 9 levels, 16 products
     {2, {15, 31}}, // 2^-8: 9 levels, 17 products
     {2, {15, 31}}, // 2^-9: 9 levels, 17 products
     {2, {15, 31}}, // 2^-10: 9 levels, 17 products
     {3, {7, 7, 15}}, // 2^-11: 10 levels, 15 products
     {3, {7, 7, 15}}, // 2^-12: 10 levels, 15 products
     {2, {23, 31}}, // 2^-13: 10 levels, 19 products
     {2, {23, 31}}, // 2^-14: 10 levels, 19 products
     {2, {31, 31}}, // 2^-15: 10 levels, 20 products
     {2, {31, 31}}, // 2^-16: 10 levels, 20 products
    },
    {// from 2^-7 on
     {2, {15, 23}}, // 2^-4: 9 levels, 16 products
     {2, {15, 31}}, // 2^-5: 9 levels, 17 products
     {3, {7, 7, 15}}, // 2^-6: 10 levels, 15 products
     {3, {7, 7, 15}}, // 2^-7: 10 levels, 15 products
     {2, {23, 31}}, // 2^-8: 10 levels, 19 products
     {2, {31, 31}}, // 2^-9: 10 levels, 20 products
     {2, {31, 31}}, // 2^-10: 10 levels, 20 products
     {3, {7, 7, 31}}, // 2^-11: 11 levels, 18 products
     {3, {7, 7, 31}}, // 2^-12: 11 levels, 18 products
     {3, {7, 7, 31}}, // 2^-13: 11 levels, 18 products
     {2, {31, 47}}, // 2^-14: 11 levels, 23 products
     {2, {31, 47}}, // 2^-15: 11 levels, 23 products
     {2, {31, 55}}, // 2^-16: 11 levels, 24 products
    },
    {// from 2^-8 on
     {2, {23, 31}}, // 2^-4: 10 levels, 19 products
     {2, {31, 31}}, // 2^-5: 10 levels, 20 products
     {3, {7, 15, 15}}, // 2^-6: 11 levels, 18 products
     {3, {7, 15, 15}}, // 2^-7: 11 levels, 18 products
     {2, {31, 47}}, // 2^-8: 11 levels, 23 products
     {2, {31, 55}}, // 2^-9: 11 levels, 24 products
     {2, {31, 63}}, // 2^-10: 11 levels, 25 products
     {3, {7, 15, 31}}, // 2^-11: 12 levels, 21 products
     {3, {7, 15, 31}}, // 2^-12: 12 levels, 21 products
     {3, {7, 15, 31}}, // 2^-13: 12 levels, 21 products
     {3, {7, 15, 31}}, // 2^-14: 12 levels, 21 products
     {2, {55, 55}}, // 2^-15: 12 levels, 28 products
     {2, {55, 63}}, // 2^-16: 12 levels, 29 products
    },
    {// from 2^-9 on
     {3, {7, 15, 15}}, // 2^-4: 11 levels, 18 products
     {2, {31, 55}}, // 2^-5: 11 levels, 24 products
     {3, {11, 15, 15}}, // 2^-6: 12 levels, 20 products
     {3, {15, 15, 15}}, // 2^-7: 12 levels, 21 products
     {2, {55, 55}}, // 2^-8: 12 levels, 28 products
     {2, {55, 63}}, // 2^-9: 12 levels, 29 products
     {2, {63, 63}}, // 2^-10: 12 levels, 30 products
     {3, {11, 15, 31}}, // 2^-11: 13 levels, 23 products
     {3, {15, 15, 31}}, // 2^-12: 13 levels, 24 products
     {3, {15, 15, 31}}, // 2^-13: 13 levels, 24 products
     {3, {15, 15, 31}}, // 2^-14: 13 levels, 24 products
     {3, {15, 15, 31}}, // 2^-15: 13 levels, 24 products
     {4, {7, 7, 7, 31}}, // 2^-16: 14 levels, 22 products
    },
    {// from 2^-10 on
     {3, {15, 15, 15}}, // 2^-4: 12 levels, 21 products
     {2, {55, 63}}, // 2^-5: 12 levels, 29 products
     {3, {15, 15, 23}}, // 2^-6: 13 levels, 23 products
     {3, {15, 15, 31}}, // 2^-7: 13 levels, 24 products
     {3, {15, 15, 31}}, // 2^-8: 13 levels, 24 products
     {4, {7, 7, 7, 31}}, // 2^-9: 14 levels, 22 products
     {4, {7, 7, 7, 31}}, // 2^-10: 14 levels, 22 products
     {3, {15, 23, 31}}, // 2^-11: 14 levels, 26 products
     {3, {15, 31, 31}}, // 2^-12: 14 levels, 27 products
     {3, {15, 31, 31}}, // 2^-13: 14 levels, 27 products
     {3, {15, 31, 31}}, // 2^-14: 14 levels, 27 products
     {3, {15, 31, 31}}, // 2^-15: 14 levels, 27 products
     {4, {7, 7, 15, 31}}, // 2^-16: 15 levels, 25 products
    },
    {// from 2^-11 on
     {3, {15, 15, 31}}, // 2^-4: 13 levels, 24 products
     {4, {7, 7, 15, 15}}, // 2^-5: 14 levels, 22 products
     {3, {15, 23, 31}}, // 2^-6: 14 levels, 26 products
     {3, {15, 31, 31}}, // 2^-7: 14 levels, 27 products
     {3, {15, 31, 31}}, // 2^-8: 14 levels, 27 products
     {4, {7, 7, 15, 31}}, // 2^-9: 15 levels, 25 products
     {4, {7, 7, 15, 31}}, // 2^-10: 15 levels, 25 products
     {3, {23, 31, 31}}, // 2^-11: 15 levels, 29 products
     {3, {23, 31, 31}}, // 2^-12: 15 levels, 29 products
     {3, {31, 31, 31}}, // 2^-13: 15 levels, 30 products
     {3, {31, 31, 31}}, // 2^-14: 15 levels, 30 products
     {3, {31, 31, 31}}, // 2^-15: 15 levels, 30 products
     {4, {7, 11, 15, 31}}, // 2^-16: 16 levels, 27 products
    },
    {// from 2^-12 on
     {3, {15, 31, 31}}, // 2^-4: 14 levels, 27 products
     {4, {7, 15, 15, 15}}, // 2^-5: 15 levels, 25 products
     {3, {23, 31, 31}}, // 2^-6: 15 levels, 29 products
     {3, {31, 31, 31}}, // 2^-7: 15 levels, 30 products
     {3, {31, 31, 31}}, // 2^-8: 15 levels, 30 products
     {4, {7, 15, 15, 31}}, // 2^-9: 16 levels, 28 products
     {4, {7, 15, 15, 31}}, // 2^-10: 16 levels, 28 products
     {4, {7, 15, 15, 31}}, // 2^-11: 16 levels, 28 products
     {3, {31, 31, 55}}, // 2^-12: 16 levels, 34 products
     {3, {31, 31, 55}}, // 2^-13: 16 levels, 34 products
     {3, {31, 31, 63}}, // 2^-14: 16 levels, 35 products
     {3, {31, 31, 63}}, // 2^-15: 16 levels, 35 products
     {4, {11, 15, 15, 31}}, // 2^-16: 17 levels, 30 products
    },
    {// from 2^-13 on
     {3, {31, 31, 31}}, // 2^-4: 15 levels, 30 products
     {4, {7, 15, 15, 31}}, // 2^-5: 16 levels, 28 products
     {4, {7, 15, 15, 31}}, // 2^-6: 16 levels, 28 products
     {3, {31, 31, 63}}, // 2^-7: 16 levels, 35 products
     {3, {15, 63, 63}}, // 2^-8: 16 levels, 37 products
     {4, {15, 15, 15, 31}}, // 2^-9: 17 levels, 31 products
     {4, {15, 15, 15, 31}}, // 2^-10: 17 levels, 31 products
     {4, {15, 15, 15, 31}}, // 2^-11: 17 levels, 31 products
     {3, {31, 55, 63}}, // 2^-12: 17 levels, 39 products
     {3, {31, 63, 63}}, // 2^-13: 17 levels, 40 products
     {3, {31, 63, 63}}, // 2^-14: 17 levels, 40 products
     {4, {11, 15, 31, 31}}, // 2^-15: 18 levels, 33 products
     {4, {11, 15, 31, 31}}, // 2^-16: 18 levels, 33 products
    },
    {// from 2^-14 on
     {5, {7, 7, 7, 15, 15}}, // 2^-4: 17 levels, 26 products
     {4, {7, 15, 31, 31}}, // 2^-5: 17 levels, 31 products
     {3, {31, 63, 63}}, // 2^-6: 17 levels, 40 products
     {5, {7, 7, 15, 15, 15}}, // 2^-7: 18 levels, 29 products
     {4, {11, 15, 31, 31}}, // 2^-8: 18 levels, 33 products
     {4, {7, 31, 31, 31}}, // 2^-9: 18 levels, 34 products
     {4, {7, 31, 31, 31}}, // 2^-10: 18 levels, 34 products
     {4, {7, 15, 31, 63}}, // 2^-11: 18 levels, 36 products
     {5, {7, 7, 15, 15, 31}}, // 2^-12: 19 levels, 32 products
     {5, {7, 7, 15, 15, 31}}, // 2^-13: 19 levels, 32 products
     {5, {7, 7, 15, 15, 31}}, // 2^-14: 19 levels, 32 products
     {4, {11, 31, 31, 31}}, // 2^-15: 19 levels, 36 products
     {4, {15, 31, 31, 31}}, // 2^-16: 19 levels, 37 products
    },
    {// from 2^-15 on
     {4, {7, 23, 31, 31}}, // 2^-4: 18 levels, 33 products
     {4, {7, 31, 31, 31}}, // 2^-5: 18 levels, 34 products
     {5, {7, 7, 15, 15, 31}}, // 2^-6: 19 levels, 32 products
     {5, {7, 7, 15, 15, 31}}, // 2^-7: 19 levels, 32 products
     {4, {15, 31, 31, 31}}, // 2^-8: 19 levels, 37 products
     {4, {7, 31, 31, 63}}, // 2^-9: 19 levels, 39 products
     {5, {7, 11, 15, 15, 31}}, // 2^-10: 20 levels, 34 products
     {5, {7, 15, 15, 15, 31}}, // 2^-11: 20 levels, 35 products
     {5, {7, 15, 15, 15, 31}}, // 2^-12: 20 levels, 35 products
     {5, {7, 15, 15, 15, 31}}, // 2^-13: 20 levels, 35 products
     {4, {15, 31, 31, 55}}, // 2^-14: 20 levels, 41 products
     {4, {15, 31, 31, 63}}, // 2^-15: 20 levels, 42 products
     {4, {15, 31, 31, 63}}, // 2^-16: 20 levels, 42 products
    },
    {// from 2^-16 on
     {6, {7, 7, 7, 7, 15, 15}}, // 2^-4: 20 levels, 30 products
     {5, {7, 7, 15, 31, 31}}, // 2^-5: 20 levels, 35 products
     {4, {7, 31, 63, 63}}, // 2^-6: 20 levels, 44 products
     {6, {7, 7, 7, 15, 15, 15}}, // 2^-7: 21 levels, 33 products
     {5, {7, 11, 15, 31, 31}}, // 2^-8: 21 levels, 37 products
     {5, {7, 7, 31, 31, 31}}, // 2^-9: 21 levels, 38 products
     {5, {7, 7, 31, 31, 31}}, // 2^-10: 21 levels, 38 products
     {5, {7, 7, 15, 31, 63}}, // 2^-11: 21 levels, 40 products
     {6, {7, 7, 7, 15, 15, 31}}, // 2^-12: 22 levels, 36 products
     {6, {7, 7, 7, 15, 15, 31}}, // 2^-13: 22 levels, 36 products
     {6, {7, 7, 7, 15, 15, 31}}, // 2^-14: 22 levels, 36 products
     {5, {7, 11, 31, 31, 31}}, // 2^-15: 22 levels, 40 products
     {5, {7, 15, 31, 31, 31}}, // 2^-16: 22 levels, 41 products
    },
};
// clang-format on

} // namespace

std::span<const u64> signDegrees(u64 a, u64 b) {
    const Row& row = rows[a - leastSignExponent][b - leastSignExponent];
    return std::span(row.degrees).first(row.count);
}

} // namespace Torvo
