// Where a bootstrap loses its bits: for each preset, with all slots in use, the mean of -log2 of the error
// that each source alone makes (the bend of the sine, the cosine's polynomial, the rounded scales, the
// roundings of each phase), and of all errors together, in one pass and extended. Simulated
// (docs/bootstrapping.md), without keys.
//
//     BootstrapBudget [--log-slots L] [--real] preset ...
//     BootstrapBudget --odds preset ...
//
// The second form evaluates formulas instead: how far the sine bends at modulus 1, and how likely a bootstrap
// fails.

#include "BootstrapMessages.hpp"
#include "support/ErrorBits.hpp"
#include "support/SimulatedBootstrap.hpp"

#include <Torvo/Torvo.hpp>

#include <cmath>
#include <cstdio>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace Torvo;

constexpr unsigned long allSlots = ~0UL;
constexpr unsigned long sample = 12; // log2 of how many slots are simulated

/// The factor of the message in the argument of the sine, whose period is 1.
double epsilonOf(const Context& context, const BootParameter& boot) {
    return static_cast<double>(boot.pre_raise_factor) * std::exp2(context->scale_factors.log_scale[0]) /
           static_cast<double>(context->primes.getPrime(0));
}

/// The value that the sine, straightened by its arcsine polynomial, gives for a part of the message.
double bent(const Context& context, const BootParameter& boot, double part) {
    const double s = 2 * std::numbers::pi * epsilonOf(context, boot) * part;
    if (boot.arcsine_degree == 1) return part - part * s * s / 6;
    if (boot.arcsine_degree == 3) return part - part * 3 * std::pow(s, 4) / 40;
    return part - part * 35 * std::pow(s, 8) / 1152;
}

Message bent(const Context& context, const Message& message) {
    const BootParameter boot(context);
    Message out = message;
    for (auto& slot : out) slot = {bent(context, boot, slot.real()), bent(context, boot, slot.imag())};
    return out;
}

class Budget {
public:
    Budget(const std::string& name, unsigned long log_slots, bool isComplex)
        : context_(makeContext(bench::bootstrappable(name))), logSlots_(log_slots), isComplex_(isComplex),
          message_(randomMessage()) {
        if (logSlots_ == allSlots) logSlots_ = getLogFullSlots(context_);
    }

    void print(const std::string& name) const {
        const Message straight = bent(context_, message_),
                      exact = simulated({false, false, false, false, false, false});
        std::printf("| `%s` | %.1f | %.1f |", name.c_str(), bits(straight, message_), bits(exact, straight));
        const bool hasArcsine = BootParameter(context_).arcsine_degree > 1;
        for (int phase = 0; phase < 6; ++phase) {
            const Message noisy =
                simulated({phase == 0, phase == 1, phase == 2, phase == 3, phase == 4, phase == 5});
            if (phase < 5 || hasArcsine)
                std::printf(" %.1f |", bits(noisy, exact));
            else
                std::printf(" |");
        }
        std::printf(" %.1f |", bits(simulated({}), message_));
        if (context_->parameter.has_extended_bootstrap)
            std::printf(" %.1f |\n", bits(extended(), message_));
        else
            std::printf(" |\n");
    }

private:
    Message simulated(test::ErrorSources sources) const {
        return test::SimulatedBootstrap(context_, logSlots_, true, sources).bootstrap(message_, isComplex_);
    }
    Message extended() const {
        return test::SimulatedBootstrap(context_, logSlots_, true).bootstrapExtended(message_, isComplex_);
    }
    static double bits(const Message& got, const Message& expected) {
        return test::ErrorBits(got, expected).mean();
    }
    Message randomMessage() const {
        std::mt19937_64 random(1); // NOLINT(bugprone-random-generator-seed): the same in every run
        return bench::randomMessage(random, sample, isComplex_);
    }

    Context context_;
    unsigned long logSlots_;
    bool isComplex_;
    Message message_;
};

/// The multiples of the base prime, of which there are as many as coefficients.
struct Odds {
    Odds(const Context& context, const BootParameter& boot) {
        const Parameter& parameter = context->parameter;
        // At the raise the secret is the sparse one, if there is one.
        const Context raised = parameter.has_sparse_encapsulation
                                   ? makeContext(getSparseParameterPresetFor(parameter.preset))
                                   : context;
        terms = 1 + static_cast<double>(raised->parameter.hamming_weight);
        deviation = std::sqrt(terms / 12);
        z = boot.range_bound / deviation;
        isPossible = terms / 2 > boot.range_bound;
    }
    /// log2 of twice the normal tail, times the number of coefficients.
    double logByNormalTail(double logCoefficients) const {
        return logCoefficients + std::log2(std::erfc(z / std::numbers::sqrt2));
    }
    double log(double logCoefficients) const {
        return logByNormalTail(logCoefficients) - std::pow(z, 4) / (20 * terms) * std::numbers::log2e;
    }

    double terms, deviation, z;
    bool isPossible;
};

void printOdds(const std::vector<std::string>& presets) {
    std::printf("| preset | \u03b5 | error at modulus 1 |\n| --- | --- | --- |\n");
    for (const std::string& name : presets) {
        const Context context = makeContext(bench::bootstrappable(name));
        const BootParameter boot(context);
        std::printf("| `%s` | 2^%.1f | 2^%.1f |\n", name.c_str(), std::log2(epsilonOf(context, boot)),
                    std::log2(1 - bent(context, boot, 1)));
    }
    std::printf("\n| preset | deviation of x / q0 | K | z | full slots | by the normal tail | 2^8 slots |\n"
                "| --- | --- | --- | --- | --- | --- | --- |\n");
    for (const std::string& name : presets) {
        const Context context = makeContext(bench::bootstrappable(name));
        const BootParameter boot(context);
        const Odds odds(context, boot);
        std::printf("| `%s` | %.2f | %.1f |", name.c_str(), odds.deviation, boot.range_bound);
        const auto log_degree = static_cast<double>(context->parameter.log_degree);
        if (odds.isPossible)
            std::printf(" %.2f | 2^%.1f | 2^%.1f | 2^%.1f |\n", odds.z, odds.log(log_degree),
                        odds.logByNormalTail(log_degree), odds.log(9));
        else
            std::printf(" | never | | never |\n");
    }
}

} // namespace

int main(int argc, char** argv) {
    unsigned long log_slots = allSlots;
    bool isComplex = true, isForOdds = false;
    std::vector<std::string> presets;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--log-slots" && i + 1 < argc)
            log_slots = std::stoul(argv[++i]);
        else if (argument == "--real")
            isComplex = false;
        else if (argument == "--odds")
            isForOdds = true;
        else
            presets.push_back(argument);
    }
    if (isForOdds) {
        printOdds(presets);
        return 0;
    }
    std::printf(
        "| preset | bend | polynomial | scales | slot to coefficient | coefficient to slot | cosine | double "
        "angle | arcsine | all | extended |\n"
        "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
    for (const std::string& name : presets) Budget(name, log_slots, isComplex).print(name);
    return 0;
}
