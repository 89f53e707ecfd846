#include "functions/AnalysisGuards.hpp"

#include "encoding/EncodingBound.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>

namespace Torvo {

namespace {

struct Rule {
    bool isKept;
    const char* text;
};

Rule ruleOf(Domain domain, double lower, double upper) {
    switch (domain) {
    case Domain::OneSign:
        return {lower > 0 || upper < 0, message::boundsOfOneSign};
    case Domain::Positive:
        return {lower > 0, message::positiveBounds};
    case Domain::FromZero:
        return {lower >= 0, message::boundsFromZero};
    default:
        return {true, message::finiteBounds};
    }
}

bool isPositive(double x) {
    return x > 0 && std::isfinite(x);
}

} // namespace

void requireInterval(const std::string& function, double lower, double upper, Domain domain) {
    const Rule rule = ruleOf(domain, lower, upper);
    if (!(std::isfinite(lower) && std::isfinite(upper) && lower < upper && rule.isKept))
        throw RuntimeException(message::intervalGiven(function, decimal(lower), decimal(upper), rule.text));
}

void requireRatio(const std::string& function, double lower, double upper) {
    const double smaller = std::min(std::abs(lower), std::abs(upper));
    if (std::max(std::abs(lower), std::abs(upper)) > 0x1p32 * smaller)
        throw RuntimeException(
            message::intervalGiven(function, decimal(lower), decimal(upper), message::boundsTooWide));
}

void requireBound(const std::string& function, double bound) {
    if (!isPositive(bound)) throw RuntimeException(message::boundGiven(function, decimal(bound)));
}

void requireErrorOf(const std::string& function, double error) {
    if (!isPositive(error)) throw RuntimeException(message::errorGiven(function, decimal(error)));
}

void requireAsMany(const std::string& function, u64 first, u64 second) {
    if (first != second) throw RuntimeException(message::unequalCounts(function, first, second));
}

void requirePairs(const std::string& function, u64 first, u64 second) {
    if (first == 0) throw RuntimeException(message::nothingGiven(function));
    requireAsMany(function, first, second);
}

} // namespace Torvo
