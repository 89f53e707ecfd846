#include "TimedOperation.hpp"
#include "core/Integers.hpp"

#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>
#include <Torvo/LWESecretKey.hpp>

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

/// The operations on plain LWE ciphertexts at the top level, with teams of one and of two threads. Names are
/// operation/preset/threads.
namespace Torvo::LWE {
namespace {

struct Workbench {
    explicit Workbench(ParameterPreset preset) : context(makeContext(preset)) {
        encryptor.encrypt(0.5, key, a);
        encryptor.encrypt(0.25, key, b);
        if (top > 0) evaluator.multWithoutRescale(a, 0.3, owing);
    }

    Context context;
    u64 top = getEncryptionLevel(context);
    SecretKey key{context};
    Encryptor encryptor{context};
    Decryptor decryptor{context};
    HomEvaluator evaluator{context};
    Ciphertext a{context}, b{context}, owing{context};

    // Outputs keep their storage from one iteration to the next, as they would in an application.
    Ciphertext out{context};
    double decrypted = 0;
};

struct NamedOperation {
    const char* name;
    bool spendsLevel;
    std::function<void(Workbench&)> run;
    /// Work between iterations that is not timed.
    std::function<void(Workbench&)> prepare = nullptr;
};

const NamedOperation operations[] = {
    {"encrypt", false, [](Workbench& w) { w.encryptor.encrypt(0.5, w.key, w.out); }},
    {"decrypt", false, [](Workbench& w) { w.decryptor.decrypt(w.a, w.key, w.decrypted); }},
    {"negate", false, [](Workbench& w) { w.evaluator.negate(w.a, w.out); }},
    {"add", false, [](Workbench& w) { w.evaluator.add(w.a, w.b, w.out); }},
    {"addConstant", false, [](Workbench& w) { w.evaluator.add(w.a, 0.3, w.out); }},
    {"multInteger", false, [](Workbench& w) { w.evaluator.multInteger(w.a, 3, w.out); }},
    {"mult", true, [](Workbench& w) { w.evaluator.mult(w.a, 0.3, w.out); }},
    {"rescale", true, [](Workbench& w) { w.evaluator.rescale(w.out); },
     [](Workbench& w) { w.out = w.owing; }},
    {"levelDown", true, [](Workbench& w) { w.evaluator.levelDown(w.a, w.top / 2, w.out); }},
};

void run(benchmark::State& state, ParameterPreset preset, const NamedOperation& operation, int threads) {
    Workbench workbench(preset);
    timeOperation(state, workbench, operation, threads);
}

[[maybe_unused]] const bool registered = [] {
    const std::pair<const char*, ParameterPreset> presets[] = {{"SS7", ParameterPreset::SS7},
                                                               {"FGbD12L0", ParameterPreset::FGbD12L0}};
    for (const auto& [presetName, preset] : presets)
        for (const NamedOperation& operation : operations) {
            if (operation.spendsLevel && preset == ParameterPreset::FGbD12L0) continue;
            for (const int threads : {1, 2})
                benchmark::RegisterBenchmark(
                    (std::string(operation.name) + "/" + presetName + "/" + std::to_string(threads)).c_str(),
                    [preset = preset, &operation, threads](benchmark::State& state) {
                        run(state, preset, operation, threads);
                    })
                    ->Unit(benchmark::kMicrosecond)
                    ->UseRealTime();
        }
    return true;
}();

} // namespace
} // namespace Torvo::LWE

BENCHMARK_MAIN();
