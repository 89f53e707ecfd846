#include "TimedOperation.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Decryptor.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/SecretKey.hpp>

#include <benchmark/benchmark.h>

#include <complex>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

/// Whole operations on ciphertexts at the top level, and encoding, encryption and decryption, with teams of
/// one and of two threads. Names are operation/preset/threads; `--benchmark_filter=mult/FGb` selects.
/// Contexts and keys are made when the first of their benchmarks runs.
namespace Torvo {
namespace {

using Complex = std::complex<double>;

template <class Save>
std::string bytesOf(Save&& save) {
    std::ostringstream stream;
    save(stream);
    return stream.str();
}

/// Keys and operands of one preset. Slots lie within the unit disc.
struct Workbench {
    explicit Workbench(ParameterPreset preset) : context(makeContext(preset)) {
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        for (const u64 index : rotations) generator.genLeftRotKey(index);
        for (u64 i = 0; i < message.getSize(); ++i)
            message[i] = std::polar(0.9, static_cast<double>(i * i % 1009));
        a = encrypt();
        b = encrypt();
        lower = a;
        lower.setLevel(top - 1);
        evaluator.tensor(a, b, threeElements);
        evaluator.multWithoutRescale(a, Complex(0.3), owing);
        operands = {a, b, a};
        plain = encoder.encode(message, top);
        saved = bytesOf([&](std::ostream& stream) { a.save(stream); });
    }

    /// A ciphertext at the top of the chain, which may lie above the level of encryption.
    Ciphertext encrypt() const {
        Ciphertext ct(context);
        encryptor.encrypt(message, generator.getKeyPack(), ct);
        while (ct.getLevel() < top) evaluator.inverseRescale(ct);
        ct.setRescaleCounter(0);
        return ct;
    }

    const std::vector<u64> rotations{1, 2, 4};

    Context context;
    u64 top = getDefaultScaleFactorList(context).size() - 1;
    SecretKey secretKey{context};
    KeyGenerator generator{context, secretKey};
    HomEvaluator evaluator{context, generator.getKeyPack()};
    EnDecoder encoder{context};
    Encryptor encryptor{context};
    Decryptor decryptor{context};
    Message message = Message(getLogFullSlots(context));
    Plaintext plain{context};
    Ciphertext a{context}, b{context}, lower{context}, threeElements{context}, owing{context};
    std::vector<Ciphertext> operands;
    std::string saved; ///< the file of `a`

    // Outputs keep their storage from one iteration to the next, as they would in an application.
    Ciphertext out{context};
    std::vector<Ciphertext> outs;
    Message decoded;
};

const std::vector<u64> eightRotations{1, 2, 3, 4, 5, 6, 7, 8};

/// Made when they are needed: those of a large preset fill another gigabyte.
void makeKeysOfEight(Workbench& w) {
    for (const u64 index : eightRotations)
        if (w.generator.getKeyPack().getLeftRotKey(index) == nullptr) w.generator.genLeftRotKey(index);
}

struct NamedOperation {
    const char* name;
    std::function<void(Workbench&)> run;
    /// Work between iterations that is not timed.
    std::function<void(Workbench&)> prepare = nullptr;
};

void useOwing(Workbench& w) {
    w.out = w.owing;
}

const NamedOperation operations[] = {
    {"negate", [](Workbench& w) { w.evaluator.negate(w.a, w.out); }},
    {"add", [](Workbench& w) { w.evaluator.add(w.a, w.b, w.out); }},
    {"addAcrossLevels", [](Workbench& w) { w.evaluator.add(w.a, w.lower, w.out); }},
    {"addConstant", [](Workbench& w) { w.evaluator.add(w.a, Complex(0.3, 0.1), w.out); }},
    {"addMessage", [](Workbench& w) { w.evaluator.add(w.a, w.message, w.out); }},
    {"addPlaintext", [](Workbench& w) { w.evaluator.add(w.a, w.plain, w.out); }},
    {"sub", [](Workbench& w) { w.evaluator.sub(w.a, w.b, w.out); }},
    {"subConstant", [](Workbench& w) { w.evaluator.sub(w.a, Complex(0.3, 0.1), w.out); }},
    {"subPlaintext", [](Workbench& w) { w.evaluator.sub(w.a, w.plain, w.out); }},
    {"multConstant", [](Workbench& w) { w.evaluator.mult(w.a, Complex(0.3, 0.1), w.out); }},
    {"multGaussianInteger", [](Workbench& w) { w.evaluator.mult(w.a, Complex(2.0, -3.0), w.out); }},
    {"multMessage", [](Workbench& w) { w.evaluator.mult(w.a, w.message, w.out); }},
    {"multPlaintext", [](Workbench& w) { w.evaluator.mult(w.a, w.plain, w.out); }},
    {"multPlaintextWithoutRescale",
     [](Workbench& w) { w.evaluator.multWithoutRescale(w.a, w.plain, w.out); }},
    {"multImagUnit", [](Workbench& w) { w.evaluator.multImagUnit(w.a, w.out); }},
    {"multInteger", [](Workbench& w) { w.evaluator.multInteger(w.a, 3, w.out); }},
    {"rescale", [](Workbench& w) { w.evaluator.rescale(w.out); }, useOwing},
    {"inverseRescale", [](Workbench& w) { w.evaluator.inverseRescale(w.out); },
     [](Workbench& w) { w.out = w.lower; }},
    {"levelDown", [](Workbench& w) { w.evaluator.levelDown(w.a, w.top / 2, w.out); }},
    {"levelDownOne", [](Workbench& w) { w.evaluator.levelDownOne(w.a, w.out); }},
    {"tensor", [](Workbench& w) { w.evaluator.tensor(w.a, w.b, w.out); }},
    {"relinearize", [](Workbench& w) { w.evaluator.relinearize(w.threeElements, w.out); }},
    {"multWithoutRescale", [](Workbench& w) { w.evaluator.multWithoutRescale(w.a, w.b, w.out); }},
    {"mult", [](Workbench& w) { w.evaluator.mult(w.a, w.b, w.out); }},
    {"multAcrossLevels", [](Workbench& w) { w.evaluator.mult(w.a, w.lower, w.out); }},
    {"square", [](Workbench& w) { w.evaluator.square(w.a, w.out); }},
    {"leftRotate", [](Workbench& w) { w.evaluator.leftRotate(w.a, 1, w.out); }},
    {"leftRotateThree", [](Workbench& w) { w.evaluator.getImpl()->leftRotate(w.a, w.rotations, w.outs); }},
    {"leftRotateEight", [](Workbench& w) { w.evaluator.leftRotate(w.a, eightRotations, w.outs); },
     makeKeysOfEight},
    {"leftRotateReduceEight", [](Workbench& w) { w.evaluator.leftRotateReduce(w.a, 1, 8, w.out); }},
    {"rotSumThree", [](Workbench& w) { w.evaluator.rotSum(w.operands, w.rotations, w.out); }},
    {"conjugate", [](Workbench& w) { w.evaluator.conjugate(w.a, w.out); }},
    {"killImag", [](Workbench& w) { w.evaluator.killImag(w.a, w.out); }},
    {"encode", [](Workbench& w) { benchmark::DoNotOptimize(w.encoder.encode(w.message, w.top)); }},
    {"decode", [](Workbench& w) { w.decoded = w.encoder.decode(w.plain); }},
    {"encrypt", [](Workbench& w) { w.encryptor.encrypt(w.message, w.generator.getKeyPack(), w.out); }},
    {"encryptWithSecretKey", [](Workbench& w) { w.encryptor.encrypt(w.message, w.secretKey, w.out); }},
    {"decrypt", [](Workbench& w) { w.decryptor.decrypt(w.a, w.secretKey, w.decoded); }},
    {"genMultKey", [](Workbench& w) { w.generator.genMultKey(); }},
    {"genRotKey", [](Workbench& w) { w.generator.genLeftRotKey(8); }},
    {"genEncKey", [](Workbench& w) { w.generator.genEncKey(); }},
    {"saveCiphertext",
     [](Workbench& w) {
         benchmark::DoNotOptimize(bytesOf([&](std::ostream& stream) { w.a.save(stream); }));
     }},
    {"loadCiphertext",
     [](Workbench& w) {
         std::istringstream stream(w.saved);
         w.out.load(stream);
     }},
    {"saveMultKey",
     [](Workbench& w) {
         const auto key = w.generator.getKeyPack().getMultKey();
         benchmark::DoNotOptimize(bytesOf([&](std::ostream& stream) { key->save(stream); }));
     }},
};

/// One preset at a time: the keys of a large one fill a gigabyte.
Workbench& workbenchOf(ParameterPreset preset) {
    static std::unique_ptr<Workbench> workbench;
    static ParameterPreset current;
    if (!workbench || current != preset) {
        workbench.reset();
        workbench = std::make_unique<Workbench>(preset);
        current = preset;
    }
    return *workbench;
}

void run(benchmark::State& state, ParameterPreset preset, const NamedOperation& operation, int threads) {
    Workbench& workbench = workbenchOf(preset);
    timeOperation(state, workbench, operation, threads);
}

[[maybe_unused]] const bool registered = [] {
    const std::pair<const char*, ParameterPreset> presets[] = {
        {"ST11", ParameterPreset::ST11}, {"ST19", ParameterPreset::ST19}, {"FGb", ParameterPreset::FGb}};
    for (const auto& [presetName, preset] : presets)
        for (const NamedOperation& operation : operations)
            for (const int threads : {1, 2})
                benchmark::RegisterBenchmark(
                    (std::string(operation.name) + "/" + presetName + "/" + std::to_string(threads)).c_str(),
                    [preset = preset, &operation, threads](benchmark::State& state) {
                        run(state, preset, operation, threads);
                    })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
    return true;
}();

} // namespace
} // namespace Torvo

BENCHMARK_MAIN();
