// Usage: sign_tables > src/functions/SignTables.cpp
//        sign_tables FILE A...
//
// Finds the composites of odd polynomials of degrees 3 to 63 that approximate sign on fewest levels, and
// among these with fewest products, and prints them as the source file of the library. With a file it fails
// unless that has the rows for the exponents A.
//
// A dynamic programme over levels and products: whatever the stages before, a stage does better the larger
// its least input is. So of all beginnings that spend so many levels and products only the one that leads to
// the largest least input can be part of a best composite, and it only if no beginning that spends less leads
// as far.

#include "functions/SignComposite.hpp"
#include "functions/SignTables.hpp"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace Torvo;
using Degrees = std::vector<u64>;

constexpr u64 mostDegree = 63;

struct Step {
    u64 degree, levels, tensors;
};

/// Of the degrees with the same costs the highest.
std::vector<Step> stepsOf() {
    std::vector<Step> steps;
    for (u64 degree = 3; degree <= mostDegree; degree += 2) {
        const Step step{degree, levelsOfDegree(degree), tensorsOfOddDegree(degree)};
        if (!steps.empty() && steps.back().levels == step.levels && steps.back().tensors == step.tensors)
            steps.pop_back();
        steps.push_back(step);
    }
    return steps;
}

struct Composite {
    Degrees degrees;
    Quad error = 1;
};

struct Beginning {
    Degrees degrees;
    long double least;
};

class Programme {
public:
    explicit Programme(u64 a) { beginnings_[{0, 0}] = {{}, firstLeast(a)}; }

    /// The best composite for each b.
    std::map<u64, Composite> run() {
        for (u64 levels = 2; found_.size() <= mostSignExponent - leastSignExponent; ++levels)
            for (u64 tensors = 1; tensors <= mostTensors(levels); ++tensors) tryAll(levels, tensors);
        return found_;
    }

private:
    using Costs = std::pair<u64, u64>; ///< levels and products

    /// No step has more products for its levels than one of degree 63.
    static u64 mostTensors(u64 levels) { return levels * tensorsOfOddDegree(mostDegree) / 6 + 1; }

    void tryAll(u64 levels, u64 tensors) {
        Beginning furthest{{}, leastOf(levels, tensors)};
        std::map<u64, Composite> ends;
        for (const Step& step : steps_) {
            if (step.levels > levels || step.tensors > tensors) continue;
            const auto before = beginnings_.find({levels - step.levels, tensors - step.tensors});
            if (before == beginnings_.end()) continue;
            const SignStage stage = signStage(step.degree, before->second.least);
            Degrees degrees = before->second.degrees;
            degrees.push_back(step.degree);
            for (u64 b = leastSignExponent; b <= mostSignExponent; ++b)
                if (isWithin(stage.error, b) && stage.error < ends[b].error) ends[b] = {degrees, stage.error};
            if (stage.nextLeast > furthest.least) furthest = {degrees, stage.nextLeast};
        }
        if (!furthest.degrees.empty()) beginnings_[{levels, tensors}] = furthest;
        for (const auto& [b, end] : ends)
            if (!end.degrees.empty()) found_.emplace(b, end); // stays where fewer levels or products did
    }

    /// The coefficients are rounded to doubles, which the last part in 2^20 of the error is left for.
    static bool isWithin(Quad error, u64 b) {
        return error <= std::ldexp(1 - 0x1p-20, -static_cast<int>(b));
    }

    /// How far beginnings lead that spend no more.
    long double leastOf(u64 levels, u64 tensors) const {
        long double least = 0;
        for (const auto& [costs, beginning] : beginnings_)
            if (costs.first <= levels && costs.second <= tensors) least = std::max(least, beginning.least);
        return least;
    }

    const std::vector<Step> steps_ = stepsOf();
    std::map<Costs, Beginning> beginnings_;
    std::map<u64, Composite> found_;
};

/// The lines for one a: a row of degrees for each b.
std::string rowsOf(u64 a) {
    std::string text = "    {// from 2^-" + std::to_string(a) + " on\n";
    for (const auto& [b, composite] : Programme(a).run()) {
        u64 levels = 0, tensors = 0;
        std::string degrees;
        for (const u64 degree : composite.degrees) {
            degrees += (degrees.empty() ? "" : ", ") + std::to_string(degree);
            levels += levelsOfDegree(degree);
            tensors += tensorsOfOddDegree(degree);
        }
        text += "     {" + std::to_string(composite.degrees.size()) + ", {" + degrees + "}}, // 2^-" +
                std::to_string(b) + ": " + std::to_string(levels) + " levels, " + std::to_string(tensors) +
                " products\n";
    }
    return text + "    },\n";
}

constexpr const char* head = R"(// Made by `build/release/tools/sign_tables`, which prints this file. Not to be edited.

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
)";

constexpr const char* foot = R"(};
// clang-format on

} // namespace

std::span<const u64> signDegrees(u64 a, u64 b) {
    const Row& row = rows[a - leastSignExponent][b - leastSignExponent];
    return std::span(row.degrees).first(row.count);
}

} // namespace Torvo
)";

int check(const std::string& path, int count, char** exponents) {
    std::ifstream stream(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        const std::string rows = rowsOf(std::stoul(exponents[i]));
        if (file.find(rows) != std::string::npos) continue;
        std::fprintf(stderr, "%s lacks these rows, which the programme finds:\n%s", path.c_str(), rows.c_str());
        ++failures;
    }
    return failures == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2) {
        std::fputs("usage: sign_tables [FILE A...]\n", stderr);
        return 2;
    }
    if (argc > 2) return check(argv[1], argc - 2, argv + 2);
    std::fputs(head, stdout);
    for (u64 a = leastSignExponent; a <= mostSignExponent; ++a) std::fputs(rowsOf(a).c_str(), stdout);
    std::fputs(foot, stdout);
    return 0;
}
