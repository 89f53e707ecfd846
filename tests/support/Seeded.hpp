#pragma once

#include "core/Integers.hpp"

#include <Torvo/Message.hpp>

#include <complex>
#include <random>
#include <string>
#include <vector>

namespace Torvo::test {

/// Test data from a seed that can be printed: `SCOPED_TRACE(random.describe())`.
class Seeded {
public:
    explicit Seeded(u64 seed) : seed_(seed), engine_(seed) {}

    std::string describe() const { return "seed=" + std::to_string(seed_); }
    u64 word() { return engine_(); }
    u64 below(u64 bound) { return std::uniform_int_distribution<u64>(0, bound - 1)(engine_); }
    double real(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(engine_);
    }

    /// n words below `bound`; from n = 2 on the first is 0 and the second bound - 1.
    std::vector<u64> row(u64 n, u64 bound) {
        std::vector<u64> words(n);
        for (auto& w : words) w = below(bound);
        if (n > 1) {
            words[0] = 0;
            words[1] = bound - 1;
        }
        return words;
    }

    /// A message of 2^logSlots slots, uniform in the square [-radius, radius]^2.
    Message message(u64 logSlots, double radius = 1.0) {
        Message m(logSlots);
        for (auto& slot : m) slot = {real(-radius, radius), real(-radius, radius)};
        return m;
    }

private:
    u64 seed_;
    std::mt19937_64 engine_;
};

} // namespace Torvo::test
