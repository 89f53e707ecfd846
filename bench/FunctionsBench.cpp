// Functions of encrypted numbers against the single operations that they replace.
//
// A linear transform of 64 diagonals, on all slots, beside 64 rotations, 64 products with plaintexts and one rescale:
//   FunctionsBench --benchmark_filter='^(transform|singles)/'
//
// Every other function, beside the products, rotations and rescales of its plan alone: what it takes if all else is free.
// Names are function/preset/threads and counted/function/preset/threads. Presets are those whose levels suffice: ST11 or
// ST19, and FGb.
//   FunctionsBench --benchmark_filter='(^|/)softmax/'

#include "CountedSteps.hpp"
#include "TimedOperation.hpp"
#include "context/ContextContent.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <Torvo/Torvo.hpp>

#include <benchmark/benchmark.h>

#include <complex>
#include <functional>
#include <map>
#include <memory>
#include <set>
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

// ---- functions

/// What a function is given: real numbers from 0.25 to 1.
template <class Value>
struct Operands {
    Value x, y;
};

template <class Value>
using Apply = std::function<void(const FunctionEvaluator<Value>&, const Operands<Value>&, Value&)>;

struct Function {
    const char* name;
    Apply<Ciphertext> run;
    Apply<PlannedCiphertext> plan;
    u64 log_slots = 0;   ///< 0 for all slots
    bool isDeep = false; ///< beyond 12 levels
};

#define TORVO_ROW(name, ...)                                                                                 \
    Function {                                                                                               \
#name, [](const auto& on, const auto& in,                                                            \
                  auto& out) { Torvo::name(on, __VA_ARGS__); },                                              \
                                                             [](const auto& on, const auto& in,              \
                                                                auto& out) { Torvo::name(on, __VA_ARGS__); } \
    }

Function named(const char* name, Function function) {
    function.name = name;
    return function;
}

/// Of four numbers.
Function sorting(Function function, bool isDeep) {
    function.log_slots = 2;
    function.isDeep = isDeep;
    return function;
}

constexpr Accuracy coarse{4, 4}, fine{7, 8};
constexpr SlotBlocks blocks{4};

template <class Value>
void firstBins(const FunctionEvaluator<Value>& on, const Operands<Value>& in, Value& out) {
    std::vector<Value> bins;
    histogram(on, in.x, {-1, 0, 0.5, 1}, bins, coarse, blocks);
    out = std::move(bins.front());
}

const std::vector<Function>& functions() {
    static const std::vector<Function> all{
        TORVO_ROW(inverse, in.x, 0.25, 1, 1e-4, out),
        TORVO_ROW(sqrt, in.x, 0.25, 1, 1e-4, out),
        TORVO_ROW(inverseSqrt, in.x, 0.25, 1, 1e-4, out),
        TORVO_ROW(exp, in.x, -1, 1, 1e-4, out),
        TORVO_ROW(log, in.x, 0.25, 1, 1e-4, out),
        TORVO_ROW(sigmoid, in.x, 8, 1e-4, out),
        TORVO_ROW(tanh, in.x, 8, 1e-4, out),
        TORVO_ROW(gelu, in.x, 8, 1e-4, out),
        TORVO_ROW(sin, in.x, 8, 1e-4, out),
        TORVO_ROW(cos, in.x, 8, 1e-4, out),
        TORVO_ROW(softmax, in.x, 1, 1e-4, out, 4),
        TORVO_ROW(sign, in.x, 1, out, fine),
        TORVO_ROW(step, in.x, 1, out, fine),
        TORVO_ROW(isBelow, in.x, in.y, 1, out, fine),
        named("maxOfTwo", TORVO_ROW(max, in.x, in.y, 1, out, fine)),
        named("minOfTwo", TORVO_ROW(min, in.x, in.y, 1, out, fine)),
        TORVO_ROW(abs, in.x, 1, out, fine),
        TORVO_ROW(relu, in.x, 1, out, fine),
        TORVO_ROW(clamp, in.x, -0.5, 0.5, 1, out, fine),
        TORVO_ROW(isInInterval, in.x, -0.5, 0.5, 1, out, fine),
        TORVO_ROW(sum, in.x, out, blocks),
        TORVO_ROW(mean, in.x, out, blocks),
        TORVO_ROW(innerProduct, in.x, in.y, out, blocks),
        TORVO_ROW(variance, in.x, Variance::Population, out, blocks),
        TORVO_ROW(covariance, in.x, in.y, Variance::Population, out, blocks),
        TORVO_ROW(correlation, in.x, in.y, 0.05, 1, 1e-2, out, blocks),
        TORVO_ROW(squaredDistance, in.x, in.y, out, blocks),
        TORVO_ROW(distance, in.x, in.y, 0.25, 4, 1e-4, out, blocks),
        TORVO_ROW(weightedMean, in.x, in.y, 1, 4, 1e-4, out, blocks),
        {"histogram", firstBins<Ciphertext>, firstBins<PlannedCiphertext>},
        sorting(TORVO_ROW(rank, in.x, 1, out, coarse), false),
        sorting(TORVO_ROW(argmax, in.x, 1, out, coarse), true),
        sorting(named("maxOfFour", TORVO_ROW(max, in.x, 1, out, coarse)), true),
        sorting(TORVO_ROW(sort, in.x, 1, out, coarse), true),
        sorting(TORVO_ROW(topK, in.x, 2, 1, out, coarse), true),
    };
    return all;
}

#undef TORVO_ROW

/// All that the functions of one preset work on. Rotation keys are made where a function first needs them.
struct FunctionWorkbench {
    FunctionWorkbench(ParameterPreset preset, u64 /*level*/) : context(makeContext(preset)) {
        generator.genEncKey();
        generator.genMultKey();
    }

    Ciphertext encrypted(u64 log_slots, u64 first) const {
        Ciphertext out(context);
        Encryptor(context).encrypt(numbers(log_slots, first), generator.getKeyPack(), out);
        return out;
    }
    Message numbers(u64 log_slots, u64 first) const {
        Message message(log_slots == 0 ? getLogFullSlots(context) : log_slots);
        for (u64 i = 0; i < message.getSize(); ++i)
            message[i] = 0.25 + 0.75 * static_cast<double>((i + first) * 7 % 16) / 15;
        return message;
    }

    Context context;
    SecretKey secretKey{context};
    KeyGenerator generator{context, secretKey};
    HomEvaluator evaluator{context, generator.getKeyPack()};
};

struct FunctionOperation {
    std::function<void(FunctionWorkbench&)> run;
    std::function<void(FunctionWorkbench&)> prepare = nullptr;
};

void makeKeys(const KeyGenerator& generator, const std::set<unsigned long>& rotations) {
    for (const unsigned long index : rotations)
        if (generator.getKeyPack().getLeftRotKey(index) == nullptr) generator.genLeftRotKey(index);
}

void runFunction(benchmark::State& state, FunctionWorkbench& w, const Function& function, bool isCounted,
                 int threads) {
    const Plan plan(w.context);
    PlannedCiphertext planned;
    function.plan(
        plan,
        {plan.encrypt(w.numbers(function.log_slots, 0)), plan.encrypt(w.numbers(function.log_slots, 5))},
        planned);
    makeKeys(w.generator, plan.getReport().leftRotations);
    const Operands<Ciphertext> in{w.encrypted(function.log_slots, 0), w.encrypted(function.log_slots, 5)};
    Ciphertext out(w.context);
    if (isCounted) {
        CountedSteps steps(w.evaluator, in.x, plan);
        timeOperation(state, w, FunctionOperation{[&](FunctionWorkbench&) { steps.run(); }}, threads);
    } else {
        timeOperation(state, w,
                      FunctionOperation{[&](FunctionWorkbench&) { function.run(w.evaluator, in, out); }},
                      threads);
    }
}

constexpr u64 matrixDimension = 4;

/// As many products of four by four matrices as lie beside each other in all slots.
void runMatrixProduct(benchmark::State& state, FunctionWorkbench& w, int threads) {
    const u64 log_slots = getLogFullSlots(w.context);
    const MatrixProduct product(w.context, matrixDimension, log_slots, 3);
    const std::vector<unsigned long> rotations = product.getRotationIndices();
    makeKeys(w.generator, {rotations.begin(), rotations.end()});
    Ciphertext a = w.encrypted(0, 0), b = w.encrypted(0, 5), out(w.context);
    a.setLevel(3);
    b.setLevel(3);
    timeOperation(state, w,
                  FunctionOperation{[&](FunctionWorkbench&) { product.mult(w.evaluator, a, b, out); }},
                  threads);
}

// ---- rows

/// One preset at a time: the keys of a large one fill gigabytes.
template <class Bench>
Bench& workbenchOf(ParameterPreset preset, u64 level) {
    static std::unique_ptr<Bench> workbench;
    static ParameterPreset current;
    if (!workbench || current != preset) {
        workbench.reset();
        workbench = std::make_unique<Bench>(preset, level);
        current = preset;
    }
    return *workbench;
}

struct Place {
    const char* name;
    ParameterPreset preset;
    u64 level;
};

template <class Run>
void addRow(const std::string& name, const Place& place, int threads, Run run) {
    benchmark::RegisterBenchmark((name + "/" + place.name + "/" + std::to_string(threads)).c_str(), run)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

void addTransforms(const Place& place) {
    for (const NamedOperation& operation : operations)
        for (const int threads : {1, 2})
            addRow(operation.name, place, threads, [place, &operation, threads](benchmark::State& state) {
                timeOperation(state, workbenchOf<Workbench>(place.preset, place.level), operation, threads);
            });
}

void addFunctions(const Place& place) {
    const bool isDeep = place.preset == ParameterPreset::ST19;
    for (const Function& function : functions())
        for (const int threads : {1, 2})
            for (const bool isCounted : {false, true})
                if (function.isDeep == isDeep)
                    addRow((isCounted ? "counted/" : "") + std::string(function.name), place, threads,
                           [place, &function, isCounted, threads](benchmark::State& state) {
                               runFunction(state, workbenchOf<FunctionWorkbench>(place.preset, place.level),
                                           function, isCounted, threads);
                           });
}

void addMatrixProducts(const Place& place) {
    for (const int threads : {1, 2})
        addRow("matrixProduct", place, threads, [place, threads](benchmark::State& state) {
            runMatrixProduct(state, workbenchOf<FunctionWorkbench>(place.preset, place.level), threads);
        });
}

[[maybe_unused]] const bool registered = [] {
    const Place small{"ST11", ParameterPreset::ST11, 11}, deep{"ST19", ParameterPreset::ST19, 19},
        large{"FGb", ParameterPreset::FGb, 12};
    addTransforms(small);
    addTransforms(large);
    for (const Place& place : {small, large}) {
        addFunctions(place);
        addMatrixProducts(place);
    }
    addFunctions(deep);
    return true;
}();

} // namespace
} // namespace Torvo

BENCHMARK_MAIN();
