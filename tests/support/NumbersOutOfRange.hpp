#pragma once

#include "core/Integers.hpp"
#include "support/BigIntegers.hpp"

#include <Torvo/RuntimeException.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

/// Numbers that cannot be encoded, and the texts that refuse them.
namespace Torvo::test {

/// Numbers that no level and no scale makes encodable.
inline std::vector<double> neverEncodable() {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {std::nan(""), -std::nan(""), infinity, -infinity, 1e300, -1e300, DBL_MAX, -DBL_MAX};
}

/// The largest double x whose product with the scale, rounded to a double, is below half the product of the
/// primes and below 2^127; found by bisection over all doubles, with exact integers.
inline double largestEncodable(const std::vector<u64>& primes, double logScale) {
    const double scale = std::pow(2.0, logScale);
    const BigInt modulus = productOf(primes);
    const auto passes = [&](double x) {
        const double scaled = x * scale;
        if (!(scaled < 0x1p127)) return false;
        return (BigInt(std::trunc(std::ldexp(scaled, 60))) << 1) < (modulus << 60);
    };
    // Doubles that are not negative have the order of their words.
    u64 low = 0, high = std::bit_cast<u64>(std::numeric_limits<double>::infinity());
    while (high - low > 1) {
        const u64 middle = low + (high - low) / 2;
        (passes(std::bit_cast<double>(middle)) ? low : high) = middle;
    }
    return std::bit_cast<double>(low);
}

inline double nextAbove(double x) {
    return std::nextafter(x, std::numeric_limits<double>::infinity());
}

/// What stands between one of `pieces` and the next, where `text` is made of them from end to end; else
/// nothing.
inline std::vector<std::string> between(const std::vector<std::string>& pieces, const std::string& text) {
    if (!text.starts_with(pieces.front()) || !text.ends_with(pieces.back())) return {};
    std::vector<std::string> fields;
    std::size_t begin = pieces.front().size();
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        const std::size_t end = text.find(pieces[i], begin);
        if (end == std::string::npos) return {};
        fields.push_back(text.substr(begin, end - begin));
        begin = end + pieces[i].size();
    }
    return begin == text.size() ? fields : std::vector<std::string>{};
}

/// The parts of a refusal; only `text` if it was not one for a number out of range.
struct RangeRefusal {
    std::string text, what;
    double value = 0, largest = 0;
    u64 level = 0;
    int counter = 0;
};

template <class Call>
RangeRefusal rangeRefusalOf(Call&& call) {
    RangeRefusal told;
    try {
        call();
        told.text = "nothing thrown";
    } catch (const RuntimeException& refusal) {
        told.text = refusal.what();
    }
    const std::vector<std::string> fields =
        between({"[encode] Cannot encode the ", " ", " at level ", " with rescale counter ",
                 ": the magnitude should be at most ", ". Give a smaller number or a higher level."},
                told.text);
    if (fields.empty()) return told;
    told.what = fields[0];
    told.value = std::stod(fields[1]);
    told.level = std::stoul(fields[2]);
    told.counter = std::stoi(fields[3]);
    told.largest = std::stod(fields[4]);
    return told;
}

/// Expects `call` to be refused because of `value`, as what is to be encoded at `level` and `counter`.
template <class Call>
void expectOutOfRange(Call&& call, const std::string& what, double value, u64 level, int counter,
                      double largest) {
    const RangeRefusal told = rangeRefusalOf(call);
    EXPECT_EQ(told.what, what) << told.text;
    EXPECT_TRUE(told.value == value || (std::isnan(told.value) && std::isnan(value)))
        << value << " given: " << told.text;
    EXPECT_EQ(told.level, level) << told.text;
    EXPECT_EQ(told.counter, counter) << told.text;
    EXPECT_EQ(told.largest, largest) << told.text;
}

} // namespace Torvo::test
