#include "context/ScaleFactors.hpp"

#include "arithmetic/chain/PrimeLists.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/LWEParameter.hpp"
#include "context/Parameter.hpp"

#include <cmath>
#include <span>

namespace Torvo {

namespace {

std::vector<double> logsOf(std::span<const u64> primes) {
    std::vector<double> logs;
    for (const u64 p : primes) logs.push_back(std::log2(static_cast<double>(p)));
    return logs;
}

std::vector<double> logsOf(const PrimeModuli& primes, u64 count) {
    std::vector<u64> values;
    for (u64 i = 0; i < count; ++i) values.push_back(primes.getPrime(i));
    return logsOf(values);
}

/// The scale at the top is the top prime. Each scale below is the square of the one above, divided by the
/// prime of that level: log_scale[i-1] = 2 * log_scale[i] - logs[i].
std::vector<double> uniformScales(const std::vector<double>& logs) {
    std::vector<double> scales(logs.size());
    scales.back() = logs.back();
    for (u64 i = logs.size() - 1; i > 0; --i) scales[i - 1] = 2 * scales[i] - logs[i];
    return scales;
}

/// For chains with small primes on the user's levels, up to `encryption_level`, and large ones above, on the
/// levels that bootstrapping spends. The prime of a level may differ by a few bits from the intended size of
/// its part of the chain. That difference d is the (negated) correction of the level, so that all scales of a
/// part have one size. The step between the parts is at the first level above `encryption_level`.
void setTwoSizeScales(ScaleFactors& factors, const std::vector<double>& logs, u64 encryption_level) {
    const auto bits = [&](u64 i) { return static_cast<std::int64_t>(std::round(logs[i])); };
    const u64 top = logs.size() - 1, firstHigh = encryption_level + 1;
    const std::int64_t high = bits(firstHigh), low = bits(encryption_level);
    auto& scales = factors.log_scale;
    scales[top] = static_cast<double>(high - bits(0)) + logs[0];
    for (u64 i = top; i > 0; --i) {
        std::int64_t d = (i >= firstHigh ? high : low) - bits(i);
        if (i == firstHigh) d += high - low;
        factors.level_correction[i] = -d;
        scales[i - 1] = 2 * scales[i] - logs[i] - static_cast<double>(d);
    }
}

/// Single-level partners of FGb: data that is brought from FGb down to level 0 keeps its scale.
bool takesScalesOfFGb(ParameterPreset preset) {
    using enum ParameterPreset;
    return preset == FGbD12L0 || preset == FGbD8R4L0 || preset == FGbD6R6L0;
}

std::vector<double> firstOf(std::vector<double> scales, u64 count) {
    scales.resize(count);
    return scales;
}

} // namespace

ScaleFactors::ScaleFactors(const ParameterPreset& preset) {
    const auto& primes = getPrimeList(preset);
    if (takesScalesOfFGb(preset)) {
        log_scale = firstOf(ScaleFactors(ParameterPreset::FGb).log_scale, primes.size());
        return;
    }
    const Parameter parameter(preset);
    const auto logs = logsOf(std::span(primes).first(parameter.chain_length));
    level_correction.resize(parameter.chain_length);
    log_scale = uniformScales(logs);
    if (parameter.hasLevelsAboveEncryption()) setTwoSizeScales(*this, logs, parameter.encryption_level);
}

ScaleFactors::ScaleFactors(const Parameter& parameter, const PrimeModuli& primes)
    : log_scale(uniformScales(logsOf(primes, parameter.chain_length))), level_correction(primes.size()) {
    log_scale.resize(primes.size());
}

ScaleFactors::ScaleFactors(const LWE::ParameterPreset& preset) {
    const auto& primes = getPrimeList(preset);
    log_scale = preset == LWE::ParameterPreset::FGbD12L0
                    ? firstOf(ScaleFactors(ParameterPreset::FGbD12L0).log_scale, primes.size())
                    : uniformScales(logsOf(primes));
}

ScaleFactors::ScaleFactors(const LWE::Parameter& parameter, const PrimeModuli& primes)
    : log_scale(uniformScales(logsOf(primes, parameter.chain_length))) {
    log_scale.resize(primes.size());
}

} // namespace Torvo
