// Functions of encrypted numbers against the single operations that they replace.
//
// A linear transform of 64 diagonals, on all slots, beside 64 rotations, 64 products with plaintexts and one rescale:
//   FunctionsBench --benchmark_filter='^(transform|singles)/'

#include "TimedOperation.hpp"
#include "context/ContextContent.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <Torvo/Torvo.hpp>

#include <benchmark/benchmark.h>

#include <complex>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;

constexpr u64 diagonalCount = 64;

/// The first diagonals of a matrix as large as the message.
LinearTransform diagonalsOf(u64 size) {
    std::map<unsigned long, std::vector<Complex>> diagonals;
    for (u64 d = 0; d < diagonalCount; ++d) {
        auto& numbers = diagonals[d];
        for (u64 i = 0; i < size; ++i)
            numbers.push_back(std::polar(0.1, static_cast<double>(i * (d + 1) % 1009)));
    }
    return LinearTransform::fromDiagonals(size, diagonals);
}

/// All that one preset's benchmarks work on, at one level.
struct Workbench {
    Workbench(ParameterPreset preset, u64 theLevel) : context(makeContext(preset)), level(theLevel) {
        generator.genEncKey();
        for (const u64 needed : encoded.getRotationIndices()) generator.genLeftRotKey(needed);
        for (u64 i = 0; i < message.getSize(); ++i)
            message[i] = std::polar(0.9, static_cast<double>(i * i % 1009));
        Encryptor(context).encrypt(message, generator.getKeyPack(), in, level, 0);
        index = encoded.getRotationIndices().front();
        plain = EnDecoder(context).encode(message, level);
    }

    Context context;
    u64 level;
    SecretKey secretKey{context};
    KeyGenerator generator{context, secretKey};
    HomEvaluator evaluator{context, generator.getKeyPack()};
    Message message = Message(getLogFullSlots(context));
    LinearTransform transform = diagonalsOf(message.getSize());
    EncodedTransform encoded{context, transform, message.getLogSlots(), level};
    Ciphertext in{context};
    u64 index = 1;
    Plaintext plain{context};

    // Outputs keep their storage from one iteration to the next, as they would in an application.
    Ciphertext out{context}, product{context};
};

/// 64 rotations with one key, which so stays in the caches rather than less, the products, and a rescale of the sum.
void runSingles(Workbench& w) {
    for (u64 d = 0; d < diagonalCount; ++d) {
        w.evaluator.leftRotate(w.in, w.index, w.out);
        w.evaluator.multWithoutRescale(w.out, w.plain, w.product);
    }
    w.evaluator.rescale(w.product);
}

struct NamedOperation {
    const char* name;
    std::function<void(Workbench&)> run;
    std::function<void(Workbench&)> prepare = nullptr;
};

const NamedOperation operations[] = {
    {"transform", [](Workbench& w) { w.encoded.apply(w.evaluator, w.in, w.out); }},
    {"singles", runSingles},
    {"encodeTransform",
     [](Workbench& w) {
         EncodedTransform encoded(w.context, w.transform, w.message.getLogSlots(), w.level);
         benchmark::DoNotOptimize(encoded);
     }},
};

/// One preset at a time: the keys of a large one fill gigabytes.
Workbench& workbenchOf(ParameterPreset preset, u64 level) {
    static std::unique_ptr<Workbench> workbench;
    static ParameterPreset current;
    if (!workbench || current != preset) {
        workbench.reset();
        workbench = std::make_unique<Workbench>(preset, level);
        current = preset;
    }
    return *workbench;
}

struct Place {
    const char* name;
    ParameterPreset preset;
    u64 level;
};

[[maybe_unused]] const bool registered = [] {
    for (const Place& place :
         {Place{"ST11", ParameterPreset::ST11, 11}, Place{"FGb", ParameterPreset::FGb, 12}})
        for (const NamedOperation& operation : operations)
            for (const int threads : {1, 2})
                benchmark::RegisterBenchmark(
                    (std::string(operation.name) + "/" + place.name + "/" + std::to_string(threads)).c_str(),
                    [place, &operation, threads](benchmark::State& state) {
                        timeOperation(state, workbenchOf(place.preset, place.level), operation, threads);
                    })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
    return true;
}();

} // namespace
} // namespace Torvo

BENCHMARK_MAIN();
