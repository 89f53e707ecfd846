// Measures the precision of bootstrapping: for each preset, over several keys, -log2 of the absolute error of
// a slot, as minimum, 1-percentile and mean, for complex messages uniform in the unit disc and for real ones
// uniform in [-1, 1]; beside it the mean that the roundings predict (docs/bootstrapping.md). Fails if the two
// means differ by more than 1.5 bits.
//
//     BootstrapPrecision [--keys K] [--log-slots L]... [--batched] [--extended] preset ...
//
// Without --log-slots all slots are used; given several times, one key set serves all of them. Rotations are
// sequential, so that the keys stay small, or with --batched in batches, with a key for each.

#include "BootstrapMessages.hpp"
#include "support/ErrorBits.hpp"
#include "support/SimulatedBootstrap.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Torvo;

constexpr double tolerance = 1.5;

struct Options {
    int keys = 3;
    std::vector<unsigned long> log_slots; ///< none: all slots
    bool isBatched = false;
    bool isExtended = false;
    std::vector<std::string> presets;
};

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--keys" && i + 1 < argc)
            options.keys = std::stoi(argv[++i]);
        else if (argument == "--log-slots" && i + 1 < argc)
            options.log_slots.push_back(std::stoul(argv[++i]));
        else if (argument == "--batched")
            options.isBatched = true;
        else if (argument == "--extended")
            options.isExtended = true;
        else
            options.presets.push_back(argument);
    }
    return options;
}

/// One secret with all keys that bootstrapping needs.
struct Setup {
    Setup(const Context& context, const Context& sparse, const std::vector<unsigned long>& log_slots,
          bool isBatched)
        : secretKey(context) {
        const KeyPack pack = sparse ? KeyPack(context, sparse) : KeyPack(context);
        const KeyGenerator generator =
            sparse ? KeyGenerator(context, sparse, secretKey, pack) : KeyGenerator(context, secretKey, pack);
        generator.genMultKey();
        generator.genConjKey();
        for (const auto slots : log_slots) generator.genRotKeysForBootstrap(slots, !isBatched);
        if (sparse) generator.genSparseSecretEncapsulationKey();
        const HomEvaluator evaluator(context, pack);
        bootstrapper =
            std::make_unique<Bootstrapper>(sparse ? Bootstrapper(evaluator, sparse, log_slots[0], !isBatched)
                                                  : Bootstrapper(evaluator, log_slots[0], !isBatched));
        for (const auto slots : log_slots) bootstrapper->makeBootConstants(slots);
    }

    SecretKey secretKey;
    std::unique_ptr<Bootstrapper> bootstrapper;
};

/// The results of the bootstraps of messages of one kind.
struct Series {
    unsigned long log_slots;
    bool isComplex;
    test::ErrorBits bits, predicted;
    double seconds = 0;
    unsigned long before = 0, after = 0;
};

class Measurement {
public:
    Measurement(std::string name, const Options& options)
        : name_(std::move(name)), options_(options), context_(makeContext(bench::bootstrappable(name_))),
          sparse_(isSparseSecretEncapsulationSupported(context_)
                      ? makeContext(getSparseParameterPresetFor(bench::bootstrappable(name_)))
                      : nullptr),
          constants_(options.log_slots) {
        if (constants_.empty()) constants_.push_back(getLogFullSlots(context_));
        for (const auto log_slots : constants_)
            for (const bool isComplex : {true, false}) series_.push_back({log_slots, isComplex, {}, {}});
        if (options.isExtended) constants_.push_back(getLogFullSlots(context_)); // for the second pass
    }

    void run() {
        for (int key = 0; key < options_.keys; ++key) {
            const Setup setup(context_, sparse_, constants_, options_.isBatched);
            for (Series& series : series_) bootstrap(setup, series);
        }
        for (const Series& series : series_) print(series);
    }
    /// Whether every mean is as predicted.
    bool isPredicted() const {
        return std::ranges::all_of(series_, [](const Series& series) {
            return std::abs(series.bits.mean() - series.predicted.mean()) <= tolerance;
        });
    }

private:
    void bootstrap(const Setup& setup, Series& series) {
        const Message message = bench::randomMessage(random_, series.log_slots, series.isComplex);
        series.before = setup.bootstrapper->getMinLevelForBootstrap() + (options_.isExtended ? 1 : 0);
        Ciphertext in(context_), out(context_);
        Encryptor(context_).encrypt(message, setup.secretKey, in, series.before, 0);

        const auto start = std::chrono::steady_clock::now();
        if (options_.isExtended)
            setup.bootstrapper->bootstrapExtended(in, out, series.isComplex);
        else
            setup.bootstrapper->bootstrap(in, out, series.isComplex);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        series.seconds += taken.count() / options_.keys;

        series.after = out.getLevel();
        Message got;
        Decryptor(context_).decrypt(out, setup.secretKey, got);
        series.bits.take(got, message);
        predict(message, series);
    }

    /// Repeated for short messages, whose mean varies between runs.
    void predict(const Message& message, Series& series) const {
        test::SimulatedBootstrap simulated(context_, series.log_slots, !options_.isBatched);
        for (u64 slots = 0; slots < 1024; slots += message.getSize())
            series.predicted.take(options_.isExtended ? simulated.bootstrapExtended(message, series.isComplex)
                                                      : simulated.bootstrap(message, series.isComplex),
                                  message);
    }

    void print(const Series& series) const {
        std::printf("| `%s`%s | %lu | %s | %lu | %lu | %.1f | %.1f | %.1f | %.1f | %.1f |\n", name_.c_str(),
                    options_.isExtended ? " extended" : "", series.log_slots,
                    series.isComplex ? "complex" : "real", series.before, series.after, series.bits.least(),
                    series.bits.onePercent(), series.bits.mean(), series.predicted.mean(), series.seconds);
        std::fflush(stdout);
    }

    std::string name_;
    const Options& options_;
    Context context_, sparse_;
    std::vector<unsigned long> constants_;
    std::mt19937_64 random_{1}; // NOLINT(bugprone-random-generator-seed): the same messages in every run
    std::vector<Series> series_;
};

} // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    std::printf(
        "| preset | log slots | message | level before | after | min bits | 1 %% | mean | predicted | "
        "seconds |\n"
        "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
    bool arePredicted = true;
    for (const std::string& name : options.presets) {
        Measurement measurement(name, options);
        measurement.run();
        arePredicted = measurement.isPredicted() && arePredicted;
    }
    if (!arePredicted) std::printf("A mean lies more than %.1f bits from its prediction.\n", tolerance);
    return arePredicted ? 0 : 1;
}
