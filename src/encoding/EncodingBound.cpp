#include "encoding/EncodingBound.hpp"

#include "encoding/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <limits>

namespace Torvo {

namespace {

/// The smallest double that is not below x / 2. A double has 53 bits.
double halfRoundedUp(u128 x) {
    const auto high = static_cast<u64>(x >> 64), low = static_cast<u64>(x);
    const int bits = static_cast<int>(high != 0 ? 64 + std::bit_width(high) : std::bit_width(low));
    const int dropped = std::max(bits - 53, 0);
    const u128 kept = x >> dropped;
    const u64 top = static_cast<u64>(kept) + ((kept << dropped) != x ? 1 : 0);
    return std::ldexp(static_cast<double>(top), dropped - 1);
}

/// min(2^127, half the product of the primes 0 to `level`), rounded up.
double limitAt(const PrimeModuli& primes, u64 level) {
    u128 product = 1;
    for (u64 i = 0; i <= level; ++i) {
        const u128 p = primes.getPrime(i);
        if (product > ~u128{0} / p) return 0x1p127;
        product *= p;
    }
    return halfRoundedUp(product);
}

} // namespace

EncodingBound::EncodingBound(const PrimeModuli& primes, const ScaleFactors& scales, u64 level,
                             int rescale_counter)
    : level_(level), rescale_counter_(rescale_counter) {
    const u64 settled = level - static_cast<u64>(rescale_counter);
    scale_ = std::pow(2.0, scales.log_scale[settled]);
    limit_ = limitAt(primes, settled);
}

bool EncodingBound::holdsAll(std::span<const double> numbers) const {
    if (!holds(0.0)) return numbers.empty();
    // Without their signs doubles have the order of their words, infinities and NaN last: so the difference
    // borrows for just those that are too large. Of comparisons of doubles g++ makes no vector code.
    constexpr u64 magnitude = ~u64{0} >> 1;
    const u64 most = std::bit_cast<u64>(largest());
    u64 borrows = 0;
    for (const double x : numbers) borrows |= most - (std::bit_cast<u64>(x) & magnitude);
    return borrows <= magnitude;
}

double EncodingBound::largest() const {
    constexpr double most = std::numeric_limits<double>::max();
    // The quotient is rounded, and so is the product that decides: they part by a step or two.
    double x = std::min(limit_ / scale_, most);
    while (x > 0 && !holds(x)) x = std::nextafter(x, 0.0);
    while (x < most && holds(std::nextafter(x, most))) x = std::nextafter(x, most);
    return x;
}

void EncodingBound::refuse(const char* what, double value) const {
    throw RuntimeException(
        message::encodeOutOfRange(what, decimal(value), level_, rescale_counter_, decimal(largest())));
}

std::string decimal(double x) {
    std::array<char, 32> text{};
    auto* const end = std::to_chars(text.data(), text.data() + text.size(), x).ptr;
    return {text.data(), end};
}

} // namespace Torvo
