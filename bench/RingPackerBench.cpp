#include "core/Integers.hpp"
#include "support/Pointers.hpp"

#include <Torvo/Torvo.hpp>

#include <benchmark/benchmark.h>
#include <omp.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The moves of ciphertexts between FGb, its single-level partners and plain LWE, with teams of one and of
/// two threads. Names are operation/route/threads; keys are made when the first benchmark of a route runs,
/// and given back with the last.
namespace Torvo {
namespace {

using enum EncryptionType;
using test::pointersTo;

constexpr RingPacker packer;

/// One route: its keys and operands, held by the call.
using Run = std::function<void()>;
using Prepare = std::function<Run()>;

template <EncryptionType E>
CiphertextBase<E> encrypted(const Context& context, const SecretKeyBase<E>& key) {
    CiphertextBase<E> ciphertext(context);
    const std::vector<double> coefficients(getDegree(context), 0.5);
    Encryptor(context).encrypt(coefficients, key, ciphertext, 0, 0);
    return ciphertext;
}

template <EncryptionType To>
Run modPackOfModules(ParameterPreset from, ParameterPreset to) {
    const Context in = makeContext(from), out = makeContext(to);
    const SecretKeyBase<MLWE> inKey(in);
    const SecretKeyBase<To> outKey(out);
    const auto keys = KeyGenerator(makeContext(ParameterPreset::FGbD12L0)).genModPackKeyBundle(inKey, outKey);
    const auto parts = std::make_shared<std::vector<CiphertextBase<MLWE>>>(
        getNumCiphertextsToModPack(in, out), encrypted(in, inKey));
    const auto whole = std::make_shared<CiphertextBase<To>>(out);
    return [=] { packer.modPack(pointersTo(std::as_const(*parts)), keys, *whole); };
}

template <EncryptionType To>
Run modPackOfNumbers(ParameterPreset to) {
    const LWE::Context in = LWE::makeContext(LWE::ParameterPreset::FGbD12L0);
    const Context out = makeContext(to);
    const LWE::SecretKey inKey(in);
    const SecretKeyBase<To> outKey(out);
    const auto keys = KeyGenerator(makeContext(ParameterPreset::FGbD12L0)).genModPackKeyBundle(inKey, outKey);
    LWE::Ciphertext number(in);
    LWE::Encryptor(in).encrypt(0.5, inKey, number);
    const auto parts =
        std::make_shared<std::vector<LWE::Ciphertext>>(getNumCiphertextsToModPack(in, out), number);
    const auto whole = std::make_shared<CiphertextBase<To>>(out);
    return [=] { packer.modPack(pointersTo(std::as_const(*parts)), keys, *whole); };
}

struct LargeAndSmall {
    Context large = makeContext(ParameterPreset::FGb), small = makeContext(ParameterPreset::FGbD12L0);
    SecretKey largeKey{large}, smallKey{small};
    KeyGenerator generator{large, largeKey};
};

Run compose(u64 count) {
    const LargeAndSmall rings;
    const RingSwitchKey key = rings.generator.genComposeKey(rings.smallKey);
    const auto parts =
        std::make_shared<std::vector<Ciphertext>>(count, encrypted(rings.small, rings.smallKey));
    const auto whole = std::make_shared<Ciphertext>(rings.large);
    return [=] { packer.compose(pointersTo(std::as_const(*parts)), key, *whole); };
}

Run decompose(u64 count) {
    const LargeAndSmall rings;
    const RingSwitchKey key =
        rings.generator.genDecomposeKey(makeContext(ParameterPreset::FGbL0), rings.smallKey);
    const auto whole = std::make_shared<Ciphertext>(encrypted(rings.large, rings.largeKey));
    const auto parts = std::make_shared<std::vector<Ciphertext>>(count, Ciphertext(rings.small));
    return [=] {
        auto pointers = pointersTo(*parts);
        packer.decompose(*whole, key, pointers);
    };
}

Run unPack() {
    const Context context = makeContext(ParameterPreset::FGbD12L0);
    const auto whole = std::make_shared<Ciphertext>(encrypted(context, SecretKey(context)));
    const auto numbers = std::make_shared<std::vector<LWE::Ciphertext>>(
        getDegree(context), LWE::Ciphertext(LWE::makeContext(LWE::ParameterPreset::FGbD12L0)));
    return [=] { packer.unPack(*whole, pointersTo(*numbers)); };
}

void timeRoute(benchmark::State& state, const std::string& route, const Prepare& prepare, int threads) {
    static std::string prepared;
    static Run run;
    if (prepared != route) {
        run = nullptr; // the memory of the last route first
        run = prepare();
        prepared = route;
    }
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    run(); // outputs take their size
    for (auto _ : state) run();
    omp_set_num_threads(before);
}

[[maybe_unused]] const bool registered = [] {
    using enum ParameterPreset;
    const std::vector<std::pair<std::string, Prepare>> routes{
        {"modPack/FGbD6R6L0-FGbD8R4L0", [] { return modPackOfModules<MLWE>(FGbD6R6L0, FGbD8R4L0); }},
        {"modPack/FGbD8R4L0-FGbD12L0", [] { return modPackOfModules<RLWE>(FGbD8R4L0, FGbD12L0); }},
        {"modPack/LWE-FGbD6R6L0", [] { return modPackOfNumbers<MLWE>(FGbD6R6L0); }},
        {"modPack/LWE-FGbD12L0", [] { return modPackOfNumbers<RLWE>(FGbD12L0); }},
        {"compose/16xFGbD12L0-FGb", [] { return compose(16); }},
        {"compose/1xFGbD12L0-FGb", [] { return compose(1); }},
        {"decompose/FGb-16xFGbD12L0", [] { return decompose(16); }},
        {"decompose/FGb-1xFGbD12L0", [] { return decompose(1); }},
        {"unPack/FGbD12L0-LWE", [] { return unPack(); }},
    };
    for (const auto& [route, prepare] : routes)
        for (const int threads : {1, 2})
            benchmark::RegisterBenchmark(
                (route + "/" + std::to_string(threads)).c_str(),
                [route = route, prepare = prepare, threads](benchmark::State& state) {
                    timeRoute(state, route, prepare, threads);
                })
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
    return true;
}();

} // namespace
} // namespace Torvo

BENCHMARK_MAIN();
