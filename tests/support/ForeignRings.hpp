#pragma once

#include "context/ContextContent.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Context.hpp>

#include <algorithm>
#include <string>
#include <vector>

/// Toy rings that keys and ciphertexts may be taken to by mistake, and those that only look like it.
namespace Torvo::test {

/// Degree 64, four ciphertext primes, 4 / `digits` temporary primes: the same four whatever the digits.
inline Context ringOfDigits(unsigned long digits) {
    return makeContext(6, 4, 50, 42, 50, digits);
}

/// Like `ringOfDigits(2)`, with other primes.
inline Context ringOfOtherPrimes() {
    return makeContext(6, 4, 49, 41, 50, 2);
}

/// Like `ringOfDigits(2)`, with another degree, and so other primes too.
inline Context ringOfOtherDegree() {
    return makeContext(7, 4, 50, 42, 50, 2);
}

struct TwoRings {
    Context ours, theirs;
};

/// Rings whose keys do not fit, each way.
inline std::vector<TwoRings> foreignRings() {
    std::vector<TwoRings> pairs;
    const Context own = ringOfDigits(2);
    for (const Context& other : {ringOfDigits(4), ringOfOtherPrimes(), ringOfOtherDegree()}) {
        pairs.push_back({own, other});
        pairs.push_back({other, own});
    }
    return pairs;
}

/// Rings whose primes differ, each way: what has no digits does not fit either.
inline std::vector<TwoRings> ringsOfOtherPrimes() {
    std::vector<TwoRings> pairs = foreignRings();
    std::erase_if(pairs, [](const TwoRings& pair) {
        return pair.ours->parameter.degree == pair.theirs->parameter.degree &&
               getPrimeList(pair.ours)[0] == getPrimeList(pair.theirs)[0];
    });
    return pairs;
}

/// Contexts whose ring is that of `own`, a custom one: made again, loaded from a file, of another name and
/// other parameters.
inline std::vector<Context> twinsOf(const Context& own) {
    const TemporaryDirectory directory;
    saveContextToFile(own, directory.path() + "/context");
    const Context loaded = makeContextFromFile(directory.path() + "/context");
    Context made = makeContextFromFile(directory.path() + "/context");
    Context renamed = makeContextFromFile(directory.path() + "/context");
    renamed->parameter.preset = ParameterPreset::FX;
    renamed->parameter.name = "FX";
    renamed->parameter.log_qpsize += 1;
    return {made, loaded, renamed};
}

inline std::string shapeOf(const Context& context) {
    const u64 total = getPrimeList(context).size(), base = getDefaultScaleFactorList(context).size();
    return "degree " + std::to_string(getDegree(context)) +
           (getRank(context) == 1 ? "" : ", rank " + std::to_string(getRank(context))) + ", " +
           std::to_string(base) + " + " + std::to_string(total - base) + " primes, " +
           std::to_string(context->parameter.gadget_rank) + " digits (" + context->parameter.name + ")";
}

/// The refusal that describes two different rings.
inline std::string refusalOf(const std::string& subject, const Context& theirs, const std::string& owner,
                             const Context& ours, const std::string& advice) {
    const auto a = getPrimeList(theirs), b = getPrimeList(ours);
    const auto common = static_cast<std::ptrdiff_t>(std::min(a.size(), b.size()));
    const auto parting = std::mismatch(a.begin(), a.begin() + common, b.begin()).first - a.begin();
    const std::string primes =
        parting == common ? "" : ", with other primes from index " + std::to_string(parting) + " on";
    return subject + ": " + shapeOf(theirs) + ", but " + owner + " is " + shapeOf(ours) + primes + "; " +
           advice;
}

} // namespace Torvo::test
