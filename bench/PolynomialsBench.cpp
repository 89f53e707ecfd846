#include "TimedOperation.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "functions/CipherOperations.hpp"
#include "functions/PlanImpl.hpp"

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
/// so what `evaluate` takes if all else is free. Names are form/preset/degree/threads.
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
};

ChebyshevSeries seriesOf(u64 degree) {
    std::vector<std::complex<double>> c(degree + 1);
    for (u64 k = 0; k <= degree; ++k) c[k] = 1.0 / static_cast<double>(k + 1);
    return ChebyshevSeries(std::move(c));
}

/// Takes each step of the plan of a function as often as it does, on operands of its level.
class CountedSteps {
public:
    CountedSteps(const Workbench& w, u64 degree) : operations_(w.evaluator), plan_(w.context) {
        PlannedCiphertext planned = plan_.encrypt(Message(getLogFullSlots(w.context), 0.5));
        evaluate(plan_, planned, seriesOf(degree), planned);
        for (const auto& [step, times] : plan_.getImpl()->counts()) {
            const u64 level = step.second;
            if (operands_.contains(level)) continue;
            Operands& at = operands_.try_emplace(level, w.x, w.x, w.x).first->second;
            at.two.setLevel(level);
            operations_.tensor(at.two, at.two, at.three);
            operations_.multAtLevel(at.two, 0.5, level, at.owing);
        }
    }

    void run() {
        using Step = PlanImpl::Step;
        for (const auto& [step, times] : plan_.getImpl()->counts())
            for (u64 k = 0; k < times; ++k) {
                const Operands& at = operands_.at(step.second);
                if (step.first == Step::Tensor) operations_.tensor(at.two, at.two, out_);
                if (step.first == Step::ConstantProduct)
                    operations_.multAtLevel(at.two, 0.5, step.second, out_);
                if (step.first == Step::Relinearize) {
                    out_ = at.three;
                    operations_.relinearize(out_);
                }
                if (step.first == Step::Rescale) {
                    out_ = at.owing;
                    operations_.rescale(out_);
                }
            }
    }

private:
    struct Operands {
        Ciphertext two, three, owing;
        Operands(const Ciphertext& a, const Ciphertext& b, const Ciphertext& c)
            : two(a), three(b), owing(c) {}
    };

    CipherOperations operations_;
    Plan plan_;
    std::map<u64, Operands> operands_;
    Ciphertext out_ = operations_.unset();
};

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

void registerAll() {
    const std::vector<std::pair<std::string, ParameterPreset>> presets{{"ST11", ParameterPreset::ST11},
                                                                       {"FGb", ParameterPreset::FGb}};
    for (const auto& [name, preset] : presets)
        for (const u64 degree : {7, 31, 63})
            for (const int threads : {1, 2}) {
                const std::string suffix =
                    "/" + name + "/" + std::to_string(degree) + "/" + std::to_string(threads);
                const ParameterPreset p = preset;
                benchmark::RegisterBenchmark(
                    ("evaluate" + suffix).c_str(),
                    [=](benchmark::State& state) {
                        const ChebyshevSeries f = seriesOf(degree);
                        timeOperation(state, workbenchOf(p),
                                      Operation{[&](Workbench& w) { evaluate(w.evaluator, w.x, f, w.out); }},
                                      threads);
                    })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
                benchmark::RegisterBenchmark(("counted" + suffix).c_str(),
                                             [=](benchmark::State& state) {
                                                 CountedSteps steps(workbenchOf(p), degree);
                                                 timeOperation(state, workbenchOf(p),
                                                               Operation{[&](Workbench&) { steps.run(); }},
                                                               threads);
                                             })
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
