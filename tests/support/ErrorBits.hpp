#pragma once

#include <Torvo/Message.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numeric>
#include <vector>

namespace Torvo::test {

/// -log2 of the absolute errors of slots, within the precision of doubles.
class ErrorBits {
public:
    ErrorBits() = default;
    ErrorBits(const Message& got, const Message& expected) { take(got, expected); }

    void take(const Message& got, const Message& expected) {
        for (std::size_t i = 0; i < expected.getSize(); ++i)
            bits_.push_back(-std::log2(std::max(std::abs(got[i] - expected[i]), 0x1p-53)));
    }
    double least() const { return std::ranges::min(bits_); }
    double onePercent() const {
        std::vector<double> sorted = bits_;
        std::ranges::sort(sorted);
        return sorted[sorted.size() / 100];
    }
    double mean() const {
        return std::accumulate(bits_.begin(), bits_.end(), 0.0) / static_cast<double>(bits_.size());
    }

private:
    std::vector<double> bits_;
};

} // namespace Torvo::test
