#include "CountedSteps.hpp"
#include "TimedOperation.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <Torvo/Encryptor.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Polynomials.hpp>

#include <benchmark/benchmark.h>

#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Polynomials of ciphertexts, at the level of encryption, with teams of one and of two threads. `evaluate` is the whole
/// function; `counted` is its products and rescales alone, each at the level where the plan of the function has it, and
/// so what `evaluate` takes if all else is free; `shared` and `countedShared` are those of three series. Names are form/preset/degree/threads.
namespace Torvo {
namespace {

struct Workbench {
    explicit Workbench(ParameterPreset preset) : context(makeContext(preset)) {
        generator.genEncKey();
        generator.genMultKey();
        for (auto& slot : message) slot = std::cos(static_cast<double>(&slot - message.begin()));
        encryptor.encrypt(message, generator.getKeyPack(), x);
    }

    Context context;
    SecretKey secretKey{context};
    KeyGenerator generator{context, secretKey};
    HomEvaluator evaluator{context, generator.getKeyPack()};
    Encryptor encryptor{context};
    Message message = Message(getLogFullSlots(context));
    Ciphertext x{context}, out{context};
    std::vector<Ciphertext> outs;
};

ChebyshevSeries seriesOf(u64 degree) {
    std::vector<std::complex<double>> c(degree + 1);
    for (u64 k = 0; k <= degree; ++k) c[k] = 1.0 / static_cast<double>(k + 1);
    return ChebyshevSeries(std::move(c));
}

/// The steps of the plan of `count` series that share the powers of one argument.
CountedSteps stepsOf(const Workbench& w, u64 degree, u64 count) {
    const Plan plan(w.context);
    std::vector<PlannedCiphertext> outs;
    evaluate(plan, plan.encrypt(Message(getLogFullSlots(w.context), 0.5)),
             std::vector(count, seriesOf(degree)), outs);
    return CountedSteps(w.evaluator, w.x, plan);
}

struct Operation {
    std::function<void(Workbench&)> run;
    std::function<void(Workbench&)> prepare = nullptr;
};

Workbench& workbenchOf(ParameterPreset preset) {
    static std::map<ParameterPreset, std::unique_ptr<Workbench>> made;
    auto& workbench = made[preset];
    if (!workbench) workbench = std::make_unique<Workbench>(preset);
    return *workbench;
}

struct Form {
    const char* name;
    u64 count; ///< of series
    bool isCounted;
};

/// Three series on powers that are made once: two of them have their basis before they begin.
constexpr Form forms[] = {
    {"evaluate", 1, false}, {"counted", 1, true}, {"shared", 3, false}, {"countedShared", 3, true}};

void run(benchmark::State& state, const Form& form, Workbench& w, u64 degree, int threads) {
    const std::vector<ChebyshevSeries> f(form.count, seriesOf(degree));
    if (form.isCounted) {
        CountedSteps steps = stepsOf(w, degree, form.count);
        timeOperation(state, w, Operation{[&](Workbench&) { steps.run(); }}, threads);
    } else if (form.count == 1) {
        timeOperation(state, w, Operation{[&](Workbench&) { evaluate(w.evaluator, w.x, f[0], w.out); }},
                      threads);
    } else {
        timeOperation(state, w, Operation{[&](Workbench&) { evaluate(w.evaluator, w.x, f, w.outs); }},
                      threads);
    }
}

void registerAll() {
    const std::vector<std::pair<std::string, ParameterPreset>> presets{{"ST11", ParameterPreset::ST11},
                                                                       {"FGb", ParameterPreset::FGb}};
    for (const auto& [name, preset] : presets)
        for (const u64 degree : {7, 31, 63})
            for (const int threads : {1, 2})
                for (const Form& form : forms) {
                    const std::string row = std::string(form.name) + "/" + name + "/" +
                                            std::to_string(degree) + "/" + std::to_string(threads);
                    const ParameterPreset p = preset;
                    benchmark::RegisterBenchmark(
                        row.c_str(),
                        [=](benchmark::State& state) { run(state, form, workbenchOf(p), degree, threads); })
                        ->Unit(benchmark::kMillisecond)
                        ->UseRealTime();
                }
}

} // namespace
} // namespace Torvo

int main(int argc, char** argv) {
    Torvo::registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
