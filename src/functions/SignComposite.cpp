#include "functions/SignComposite.hpp"

#include "functions/ChebyshevSeriesImpl.hpp"
#include "functions/Exchange.hpp"
#include "functions/Messages.hpp"
#include "functions/SignTables.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <bit>
#include <cmath>

namespace Torvo {

namespace {

/// The sum of c_k T_k(y), by T_(k + 1) = 2 y T_k - T_(k - 1).
Quad sumAt(const std::vector<Quad>& c, Quad y) {
    Quad before = y, current = 1, sum = 0; // T_(-1) = T_1
    for (const Quad& coefficient : c) {
        sum += coefficient * current;
        before = 2 * y * current - before;
        std::swap(before, current);
    }
    return sum;
}

bool hasTable(u64 exponent) {
    return leastSignExponent <= exponent && exponent <= mostSignExponent;
}

} // namespace

SignStage signStage(u64 degree, long double least) {
    Minimax best =
        minimaxOf({[](long double) { return Quad(1); }, degree, least, 1, ChebyshevSeries::Symmetry::Odd});
    // Behind 1 the polynomial goes up or down from its last extremum.
    const Quad end = sumAt(best.coefficients, 1 + Quad(signNoise));
    const Quad highest = std::max(1 + best.largest, end), lowest = std::min(1 - best.largest, end);
    SignStage stage{std::move(best.coefficients), std::max(highest - 1, 1 - lowest), 1 / highest, 0};
    stage.nextLeast = static_cast<long double>(lowest * stage.scale - signNoise);
    return stage;
}

long double firstLeast(u64 a) {
    return std::ldexp(1.0L, -static_cast<int>(a)) - signNoise;
}

u64 levelsOfDegree(u64 degree) {
    return static_cast<u64>(std::bit_width(degree));
}

u64 tensorsOfOddDegree(u64 degree) {
    const u64 levels = levelsOfDegree(degree);
    u64 fewest = degree;
    for (u64 k = 2; k <= degree + 1; k *= 2) fewest = std::min(fewest, (k / 2 - 1) + ((degree + k) / k - 1));
    return levels - 1 + fewest;
}

std::vector<ChebyshevSeries> signComposite(u64 a, u64 b) {
    if (!hasTable(a) || !hasTable(b)) throw RuntimeException(message::noSignTable(a, b));
    std::vector<ChebyshevSeries> stages;
    long double least = firstLeast(a);
    const auto degrees = signDegrees(a, b);
    for (u64 i = 0; i < degrees.size(); ++i) {
        SignStage stage = signStage(degrees[i], least);
        if (i + 1 < degrees.size())
            for (Quad& c : stage.coefficients) c *= stage.scale;
        const auto series = roundedSeries(stage.coefficients, {}, -1, 1);
        stages.emplace_back(series.coefficients());
        least = stage.nextLeast;
    }
    return stages;
}

} // namespace Torvo
