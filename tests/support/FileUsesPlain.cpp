// Plain LWE, the recipes of contexts, the state of a generator.

#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/FileUses.hpp"
#include "support/NamelessFile.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Torvo::test::uses {

namespace {

/// The number at `offset` of a file, in the byte order that the frame gives; 0 beyond its end.
u64 numberAt(const std::string& file, std::size_t offset, std::size_t width) {
    if (file.size() < offset + width) return 0;
    std::string bytes = file.substr(offset, width);
    if (file[0] != 1) std::reverse(bytes.begin(), bytes.end());
    u64 number = 0;
    std::memcpy(&number, bytes.data(), width);
    return number;
}

/// Whether the recipe is one of a small ring, or of none at all: a sound file of 69 bytes may ask for
/// gigabytes.
bool isToyRecipe(const std::string& file) {
    using enum ParameterPreset;
    const u64 preset = numberAt(file, 1, 4), logDegree = numberAt(file, 5, 8);
    if (preset == static_cast<u64>(CUSTOM)) return logDegree <= 8 || logDegree > 20;
    return preset > static_cast<u64>(FGbD6R6L0) || preset == static_cast<u64>(FX) ||
           preset == static_cast<u64>(SD3D6R2) || preset == static_cast<u64>(FGbD8R4L0) ||
           preset == static_cast<u64>(FGbD6R6L0);
}

template <class Make, class Save>
void useContextFile(const std::string& file, Make&& make, Save&& save) {
    const NamelessFile in(file), out;
    const auto made = make(in.path());
    getPrimeList(made);
    getDefaultScaleFactorList(made);
    getSecurityLevel(made);
    save(made, out.path());
    expectLoadsAgain(out.content(), [&](const std::string& bytes) {
        const NamelessFile again(bytes), saved;
        save(make(again.path()), saved.path());
        return saved.content();
    });
}

struct ToyVectors {
    ToyVectors() { LWE::Encryptor(context).encrypt(archives::plainNumber, secretKey, fresh); }

    LWE::Context context = archives::plain();
    LWE::SecretKey secretKey{context};
    LWE::HomEvaluator evaluator{context};
    LWE::Ciphertext fresh{context};
};

const ToyVectors& toyVectors() {
    static const ToyVectors vectors;
    return vectors;
}

void evaluate(const ToyVectors& toy, const LWE::Ciphertext& in) {
    const auto into = [&](auto&& operation) {
        attempt([&] {
            LWE::Ciphertext out(toy.context);
            operation(out);
        });
    };
    into([&](LWE::Ciphertext& out) { toy.evaluator.negate(in, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.add(in, 0.25, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.sub(in, 0.25, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.add(in, in, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.sub(toy.fresh, in, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.multInteger(in, -3, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.multWithoutRescale(in, 0.25, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.mult(in, 0.25, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.rescale(out = in); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.levelDown(in, 0, out); });
    into([&](LWE::Ciphertext& out) { toy.evaluator.levelDownOne(in, out); });
    into([&](LWE::Ciphertext& out) { (out = in).setLevel(0); });
}

} // namespace

void plainCiphertext(const std::string& file) {
    const ToyVectors& toy = toyVectors();
    LWE::Ciphertext in(toy.context);
    load(file, in);
    attempt([&] {
        double out = 0;
        LWE::Decryptor(toy.context).decrypt(in, toy.secretKey, out);
    });
    evaluate(toy, in);
    expectLoadsAgain(in, LWE::Ciphertext(toy.context));
}

void plainSecretKey(const std::string& file) {
    const ToyVectors& toy = toyVectors();
    const auto key = loadedKey<LWE::SecretKey>(file, toy.context), copy = key;
    attempt([&] {
        LWE::Ciphertext out(toy.context);
        LWE::Encryptor(toy.context).encrypt(archives::plainNumber, copy, out);
    });
    attempt([&] {
        double out = 0;
        LWE::Decryptor(toy.context).decrypt(toy.fresh, copy, out);
    });
    expectKeyLoadsAgain(key, toy.context);
}

void context(const std::string& file) {
    if (!isToyRecipe(file)) throw std::invalid_argument("the ring is no toy");
    useContextFile(
        file, [](const std::string& path) { return makeContextFromFile(path); },
        [](const Context& made, const std::string& path) { saveContextToFile(made, path); });
}

void plainContext(const std::string& file) {
    useContextFile(
        file, [](const std::string& path) { return LWE::makeContextFromFile(path); },
        [](const LWE::Context& made, const std::string& path) { LWE::saveContextToFile(made, path); });
}

void generatorState(const std::string& file) {
    // A mebibyte each: not for the stack.
    static const auto generator = std::make_unique<UniformRandomBitGenerator>();
    static const auto other = std::make_unique<UniformRandomBitGenerator>();
    load(file, *generator);
    const std::string state = saved(*generator);
    expectLoadsAgain(state, [&](const std::string& bytes) {
        load(bytes, *other);
        return saved(*other);
    });
    std::array<unsigned long, 5> words{};
    generator->getRandomNumbers(words.data(), words.size());
    for (const u64 word : words)
        if ((*other)() != word) throw Finding{"one state, and two streams of words"};
}

std::vector<std::string> madeGeneratorStates() {
    const auto generator = std::make_unique<UniformRandomBitGenerator>();
    generator->setSeed({1, 2, 3, 4});
    const std::string start = generator->getState();
    (*generator)();
    return {start, generator->getState()};
}

} // namespace Torvo::test::uses
