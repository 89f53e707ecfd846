// Measures what bootstrapping costs, phase by phase: seconds, and memory.
//
//     BootstrapPhases [--batched] [--real] [--log-slots L] [--threads N,...] [--runs R]
//                     [--constants FILE] preset ...
//     BootstrapPhases --sizes
//
// The first form measures: for each number of threads it makes new keys, builds the constants R times,
// bootstraps R times phase by phase and R times as a whole, and takes medians. Beside the seconds on the clock
// it prints the processor time of the calling thread, which does its share of every loop: a machine that runs
// nothing else would take about that time. `resident` is the memory that the process holds after a step and `peak` the maximum within the
// step (of the last number of threads, from /proc/self/status, Linux). Without --batched rotations are
// sequential; without --log-slots all slots are used. With --constants the constants are also saved to FILE and
// taken back in every way, and the bootstraps use those that are mapped. The second form computes, for full slots,
// the sizes of rotation keys and constants.

#include "BootstrapMessages.hpp"
#include "bootstrap/BootstrapperImpl.hpp"
#include "context/ContextContent.hpp"
#include "context/RadixDecomposition.hpp"

#include <Torvo/Torvo.hpp>

#include <malloc.h>
#include <omp.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Torvo;

struct Options {
    bool isBatched = false;
    bool isReal = false;
    bool isForSizes = false;
    long log_slots = -1;
    int runs = 1;
    std::vector<int> threads{1, 2};
    std::string constantsFile;
    std::vector<std::string> presets;
};

std::vector<int> parseList(const std::string& list) {
    std::vector<int> numbers;
    std::istringstream stream(list);
    for (std::string number; std::getline(stream, number, ',');) numbers.push_back(std::stoi(number));
    return numbers;
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--batched")
            options.isBatched = true;
        else if (argument == "--real")
            options.isReal = true;
        else if (argument == "--sizes")
            options.isForSizes = true;
        else if (argument == "--log-slots" && hasValue)
            options.log_slots = std::stol(argv[++i]);
        else if (argument == "--runs" && hasValue)
            options.runs = std::stoi(argv[++i]);
        else if (argument == "--constants" && hasValue)
            options.constantsFile = argv[++i];
        else if (argument == "--threads" && hasValue)
            options.threads = parseList(argv[++i]);
        else
            options.presets.push_back(argument);
    }
    return options;
}

constexpr double mebibyte = 1 << 20;

// ---- sizes

u64 bytesOfKey(const Parameter& p) {
    return 2 * p.gadget_rank * (p.chain_length + p.numTP) * p.degree * sizeof(u64);
}

u64 rotationKeys(const Context& context, u64 log_slots, bool compact) {
    std::set<u64> distinct;
    for (const long index : context->getRotIndicesForBootstrap(log_slots, compact))
        distinct.insert(static_cast<u64>(index) & (context->parameter.num_slots - 1));
    distinct.erase(0);
    return distinct.size();
}

/// The constants of one direction: each stage has one plaintext per diagonal, at the level of its use.
template <class Level>
u64 bytesOfStages(const Parameter& p, const RadixDecomposition& plan, Level&& levelOfStage) {
    u64 rows = 0;
    for (u64 s = 0; s < plan.numStages; ++s)
        rows += (s == 0 ? plan.radix[s] : 2 * plan.radix[s] - 1) * (levelOfStage(s) + 1);
    return rows * p.degree * sizeof(u64);
}

void printSizes(ParameterPreset preset) {
    const Context context = makeContext(preset);
    const Parameter& p = context->parameter;
    const u64 log_slots = getLogFullSlots(context), key = bytesOfKey(p);
    const u64 batched = rotationKeys(context, log_slots, false),
              compact = rotationKeys(context, log_slots, true);
    const RadixDecomposition plan(log_slots);
    const u64 down = bytesOfStages(p, plan, [](u64 s) { return s + 1; });
    const u64 up = bytesOfStages(p, plan, [&](u64 s) { return p.chain_length - 1 - s; });
    const auto mib = [](u64 bytes) { return static_cast<double>(bytes) / mebibyte; };
    std::printf("| `%s` | %lu | %.1f | %lu | %.0f | %lu | %.0f | %.0f | %.0f |\n", p.name.c_str(), log_slots,
                mib(key), batched, mib(batched * key), compact, mib(compact * key), mib(down), mib(up));
}

// ---- memory

/// A line of /proc/self/status, in MiB.
double statusOf(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":")) return std::stod(line.substr(field.size() + 1)) / 1024;
    return 0;
}

/// Starts a new measurement of the peak.
void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5;
}

// ---- time

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

double secondsOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct Step {
    std::string name;
    std::vector<double> onTheClock; ///< seconds, one per run
    std::vector<double> computing;  ///< seconds of the calling thread
    double resident = 0;            ///< MiB
    double peak = 0;                ///< MiB
};

/// Steps by name, in the order in which they first run.
class Steps {
public:
    template <class Work>
    void time(const std::string& name, Work&& work) {
        begin();
        work();
        end(name);
    }

    /// Begins the first step.
    void begin() {
        resetPeak();
        started_ = secondsOf(CLOCK_MONOTONIC);
        computed_ = secondsOf(CLOCK_THREAD_CPUTIME_ID);
    }
    /// Ends the step that has run since the last call of either, and begins another.
    void end(const std::string& name) {
        Step& step = stepOf(name);
        step.computing.push_back(secondsOf(CLOCK_THREAD_CPUTIME_ID) - computed_);
        step.onTheClock.push_back(secondsOf(CLOCK_MONOTONIC) - started_);
        step.resident = statusOf("VmRSS");
        step.peak = std::max(step.peak, statusOf("VmHWM"));
        begin();
    }

    const std::vector<Step>& all() const { return steps_; }

private:
    Step& stepOf(const std::string& name) {
        const auto found = std::ranges::find(steps_, name, &Step::name);
        if (found != steps_.end()) return *found;
        steps_.push_back({});
        steps_.back().name = name;
        return steps_.back();
    }

    std::vector<Step> steps_;
    double started_ = 0, computed_ = 0;
};

std::string nameOf(BootstrapperImpl::Step step) {
    switch (step) {
    case BootstrapperImpl::Step::DownAndSlotToCoeff:
        return "down, slot to coefficient";
    case BootstrapperImpl::Step::Raise:
        return "raise";
    case BootstrapperImpl::Step::Fold:
        return "fold";
    case BootstrapperImpl::Step::CoeffToSlot:
        return "coefficient to slot";
    case BootstrapperImpl::Step::Conjugation:
        return "conjugation";
    case BootstrapperImpl::Step::SineOfRealPart:
        return "sine of the real part";
    case BootstrapperImpl::Step::SineOfImaginaryPart:
        return "sine of the imaginary part";
    case BootstrapperImpl::Step::Combination:
        return "combination";
    }
    return "?";
}

Message randomMessage(u64 log_slots, bool isReal) {
    std::mt19937_64 random(1); // NOLINT(bugprone-random-generator-seed): the same message in every run
    std::uniform_real_distribution<double> uniform(-0.7, 0.7);
    Message message(log_slots);
    for (auto& slot : message) slot = {uniform(random), isReal ? 0.0 : uniform(random)};
    return message;
}

/// A preset's keys and bootstrapper, and a bootstrap step by step.
class Phases {
public:
    Phases(ParameterPreset preset, const Options& options, Steps& steps)
        : preset_(preset), options_(options), steps_(steps) {}

    void run() {
        prepare();
        const Context& c = *context_;
        Ciphertext in(c);
        Encryptor(c).encrypt(randomMessage(logSlots_, options_.isReal), *secretKey_, in,
                             bootstrapper_->getMinLevelForBootstrap(), 0);
        Ciphertext out(c);
        bootstrapper_->setStepObserver([&](BootstrapperImpl::Step step) { steps_.end(nameOf(step)); });
        for (int i = 0; i < options_.runs; ++i) {
            steps_.begin();
            bootstrapper_->bootstrap(in, out, !options_.isReal);
        }
        bootstrapper_->setStepObserver({});
        repeat("whole bootstrap", [&] { bootstrapper_->bootstrap(in, out, !options_.isReal); });
    }

private:
    template <class Work>
    void repeat(const std::string& name, Work&& work) {
        for (int i = 0; i < options_.runs; ++i) steps_.time(name, work);
    }

    void prepare() {
        steps_.time("context", [&] {
            context_ = makeContext(preset_);
            if (isSparseSecretEncapsulationSupported(*context_))
                sparse_ = makeContext(getSparseParameterPresetFor(preset_));
        });
        const Context& c = *context_;
        logSlots_ = options_.log_slots < 0 ? getLogFullSlots(c) : static_cast<u64>(options_.log_slots);
        const bool compact = !options_.isBatched;
        secretKey_.emplace(c);
        const KeyPack pack = sparse_ ? KeyPack(c, *sparse_) : KeyPack(c);
        const KeyGenerator generator =
            sparse_ ? KeyGenerator(c, *sparse_, *secretKey_, pack) : KeyGenerator(c, *secretKey_, pack);
        steps_.time(sparse_ ? "keys: multiplication, conjugation, encapsulation"
                            : "keys: multiplication, conjugation",
                    [&] {
                        generator.genMultKey();
                        generator.genConjKey();
                        if (sparse_) generator.genSparseSecretEncapsulationKey();
                    });
        steps_.time("keys: " + std::to_string(rotationKeys(c, logSlots_, compact)) + " rotations",
                    [&] { generator.genRotKeysForBootstrap(logSlots_, compact); });
        const HomEvaluator evaluator(c, pack);
        repeat("`Bootstrapper`", [&] {
            bootstrapper_.reset();
            bootstrapper_ = std::make_unique<BootstrapperImpl>(evaluator, sparse_, logSlots_, compact);
        });
        if (!options_.constantsFile.empty()) takeConstants(options_.constantsFile);
    }

    void takeConstants(const std::string& file) {
        repeat("constants: save", [&] { bootstrapper_->saveBootConstants(logSlots_, file); });
        repeat("constants: read", [&] { bootstrapper_->readBootConstants(logSlots_, file, true); });
        repeat("constants: map, unchecked", [&] { bootstrapper_->mapBootConstants(logSlots_, file, false); });
        repeat("constants: map", [&] { bootstrapper_->mapBootConstants(logSlots_, file, true); });
    }

    ParameterPreset preset_;
    const Options& options_;
    Steps& steps_;
    u64 logSlots_ = 0;
    std::optional<Context> context_, sparse_;
    std::optional<SecretKey> secretKey_;
    std::unique_ptr<BootstrapperImpl> bootstrapper_;
};

void measure(const std::string& name, const Options& options) {
    std::vector<Steps> byThreads;
    for (const int threads : options.threads) {
        omp_set_num_threads(threads);
        Phases(bench::bootstrappable(name), options, byThreads.emplace_back()).run();
        malloc_trim(0); // so that the next round does not count what this one gave back
    }
    std::printf("\n`%s`, %s slots, %s, %s\n\n| step |", name.c_str(),
                options.log_slots < 0 ? "full" : ("2^" + std::to_string(options.log_slots)).c_str(),
                options.isBatched ? "batched" : "sequential", options.isReal ? "real" : "complex");
    for (const int threads : options.threads)
        std::printf(" %d thread%s, s | computing |", threads, threads == 1 ? "" : "s");
    std::printf(" resident, MiB | peak, MiB |\n| --- |");
    for (u64 i = 0; i < 2 * options.threads.size() + 2; ++i) std::printf(" --- |");
    std::printf("\n");
    const std::vector<Step>& last = byThreads.back().all();
    for (u64 k = 0; k < last.size(); ++k) {
        std::printf("| %s |", last[k].name.c_str());
        for (const Steps& steps : byThreads)
            std::printf(" %.3f | %.3f |", median(steps.all()[k].onTheClock),
                        median(steps.all()[k].computing));
        std::printf(" %.1f | %.1f |\n", last[k].resident, last[k].peak);
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    if (options.isForSizes) {
        std::printf("| preset | log slots | rotation key, MiB | keys, batched | MiB | keys, sequential | MiB "
                    "| slot to coefficient, MiB | coefficient to slot, MiB |\n"
                    "| --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
        for (const auto& [name, preset] : bench::bootstrappablePresets()) printSizes(preset);
    }
    for (const std::string& name : options.presets) measure(name, options);
    return 0;
}
