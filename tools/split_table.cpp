// Usage: split_table [highest degree] > tests/functions/SplitTable.hpp
//
// The least products that a polynomial of a degree can be computed with in ceil(log2(degree + 1)) levels, found by
// dynamic programming over all recursive splits q * T_m + r: with powers 1 to k for any k, and the doublings of any g
// in (k/2, k], divided at any of these powers. Tensors and relinearisations are each the least of all these ways, so that
// no one way need reach both. It shares no code with the library, which is tested against the table. Takes some
// minutes.

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int impossible = 1 << 20;

int levelsOf(unsigned degree) {
    return std::bit_width(degree);
}

struct Part {
    int cost = impossible;
    bool isProduct = false; // to be relinearised before it is a factor
    bool isKnown = false;
};

/// The least of one count, with one set of powers.
class Search {
public:
    Search(unsigned small, unsigned doubled, unsigned doublings, unsigned degree, bool countsTensors)
        : countsTensors_(countsTensors), small_(small), degree_(degree),
          parts_((degree + 1) * static_cast<unsigned>(levelsOf(degree) + 1)) {
        for (unsigned index = 1; index <= small; ++index) powers_.push_back({index, levelsOf(index - 1)});
        for (unsigned k = 1; k <= doublings; ++k)
            powers_.push_back({doubled << k, levelsOf(doubled - 1) + static_cast<int>(k)});
    }

    /// Powers are products, and relinearised; so is the result, if it is one.
    int cost() {
        const Part& whole = part(degree_, levelsOf(degree_));
        const int closing = !countsTensors_ && whole.isProduct ? 1 : 0;
        return static_cast<int>(powers_.size()) - 1 + whole.cost + closing;
    }

private:
    struct Power {
        unsigned index;
        int depth;
    };

    const Part& part(unsigned degree, int depth) {
        Part& known = parts_[static_cast<unsigned>(depth) * (degree_ + 1) + degree];
        if (!known.isKnown) {
            known = best(degree, depth);
            known.isKnown = true;
        }
        return known;
    }

    Part best(unsigned degree, int depth) {
        if (degree == 0 || (degree <= small_ && levelsOf(degree - 1) + 1 <= depth)) return {0, false, true};
        Part least;
        for (const Power& power : powers_) {
            if (power.index > degree || power.depth + 1 > depth) continue;
            Part rest = part(power.index - 1, depth);
            if (power.index < degree) {
                const Part& quotient = part(degree - power.index, depth - 1);
                rest.cost += quotient.cost + (countsTensors_ ? 1 : quotient.isProduct ? 1 : 0);
                rest.isProduct = true;
            }
            if (rest.cost < least.cost || (rest.cost == least.cost && least.isProduct && !rest.isProduct)) least = rest;
        }
        return least;
    }

    bool countsTensors_;
    unsigned small_, degree_;
    std::vector<Power> powers_;
    std::vector<Part> parts_;
};

int leastOf(unsigned degree, bool countsTensors) {
    int least = impossible;
    for (unsigned small = 1; small <= degree && static_cast<int>(small) - 1 < least; ++small)
        for (unsigned doubled = small / 2 + 1; doubled <= small; ++doubled)
            for (unsigned doublings = 0; doublings == 0 || (doubled << doublings) <= degree; ++doublings)
                least = std::min(least, Search(small, doubled, doublings, degree, countsTensors).cost());
    return least;
}

} // namespace

int main(int argc, char** argv) {
    const unsigned highest = argc > 1 ? static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)) : 255;
    std::puts("#pragma once\n\n// Made by tools/split_table. Entry d - 1 is that of degree d.\n"
              "namespace Torvo::test {\n\nstruct LeastProducts {\n    unsigned tensors, relinearizations;\n};\n");
    std::printf("inline constexpr LeastProducts leastProducts[] = {\n");
    for (unsigned degree = 1; degree <= highest; ++degree)
        std::printf("    {%d, %d},%s", leastOf(degree, true), leastOf(degree, false), degree % 6 == 0 ? "\n" : "");
    std::puts("\n};\n\n} // namespace Torvo::test");
    return 0;
}
