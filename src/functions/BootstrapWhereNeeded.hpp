#pragma once

#include "core/Integers.hpp"
#include "functions/Messages.hpp"
#include "functions/Operations.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace Torvo {

/// For those who give no levels back.
template <class Value>
void requireLevels(const Operations<Value>& operations, const std::string& what, u64 levels,
                   const std::vector<Value*>& values) {
    for (const Value* value : values) operations.requireAtOnce(what, levels, *value);
}

struct BootstrapLevels {
    u64 least; ///< that of a ciphertext to be bootstrapped
    u64 after; ///< that of the result
};

/// Brings the numbers of a ciphertext into the unit square, at the level from which it is bootstrapped: `least`.
template <class Value>
void divideAndLower(const Operations<Value>& operations, u64 least, long divisor, Value& x) {
    if (divisor == 1) return;
    const double factor =
        operations.rescaleGain(least + 1) * operations.scaleRatio(operations.level(x), least + 1);
    operations.multAtLevel(x, 1 / (factor * static_cast<double>(divisor)), least + 1, x);
    operations.rescale(x);
}

/// Bootstraps those of `values` on which `levels` cannot be spent, so that what a bootstrap needs is left afterwards.
/// Two of real numbers are bootstrapped as one of complex ones. bootstrapOne(x) works in place,
/// bootstrapPair(x, real, imaginary) takes the parts apart.
template <class Value, class BootstrapOne, class BootstrapPair>
void bootstrapWhereNeeded(const Operations<Value>& operations, const BootstrapLevels& limits,
                          const std::string& what, u64 levels, const Range& range,
                          const std::vector<Value*>& values, BootstrapOne bootstrapOne,
                          BootstrapPair bootstrapPair) {
    const long divisor = std::max(1L, std::lround(std::ceil(range.bound)));
    // One level more, where the numbers have to be divided before a bootstrap takes them.
    const u64 reserve = limits.least + (divisor > 1 ? 1 : 0);
    std::vector<Value*> exhausted;
    for (Value* value : values) {
        if (operations.level(*value) >= levels + reserve) continue;
        if (limits.after < levels + reserve)
            throw RuntimeException(message::tooFewLevelsAfterBootstrap(
                what, levels, limits.after - std::min(reserve, limits.after)));
        if (operations.level(*value) < reserve)
            throw RuntimeException(message::tooLowToBootstrap(what, reserve, operations.level(*value)));
        if (std::ranges::find(exhausted, value) == exhausted.end()) exhausted.push_back(value);
    }
    for (Value* value : exhausted) divideAndLower(operations, limits.least, divisor, *value);
    u64 next = 0;
    for (; range.isReal && next + 1 < exhausted.size(); next += 2) {
        Value pair = operations.unset();
        operations.multImagUnit(*exhausted[next + 1], pair);
        operations.add(*exhausted[next], pair, pair);
        bootstrapPair(pair, *exhausted[next], *exhausted[next + 1]);
    }
    for (; next < exhausted.size(); ++next) bootstrapOne(*exhausted[next]);
    if (divisor > 1)
        for (Value* value : exhausted) operations.multInteger(*value, divisor, *value);
}

} // namespace Torvo
