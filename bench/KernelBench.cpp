#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/Modulus.hpp"
#include "arithmetic/kernels/NumberTheoryUtils.hpp"
#include "core/DeviceSpecificArray.hpp"

#include "support/ForcedFeature.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

/// The row kernels and the transforms in every form that the processor has, for primes of 40, 50, 51 and 61
/// bits, on one core; `time/word` and `time/butterfly` are seconds with their unit prefix. The rows named `copy` give
/// the speed of the machine's memory at each length, for comparison with the others.
namespace Torvo {
namespace {

/// The rows of one degree and the prime they belong to.
class Rows {
public:
    Rows(u64 degree, u64 prime) : modulus(degree, prime, true) {
        std::mt19937_64 engine(degree);
        std::uniform_int_distribution<u64> below(0, prime - 1);
        for (auto& row : rows_) {
            row.resize(degree); // aligned, as the rows of a polynomial are
            for (u64& word : row) word = below(engine);
        }
        tenRows.resize(10 * degree);
        for (u64 r = 0; r < 10; ++r) {
            std::copy(rows_[0].begin(), rows_[0].end(), tenRows.getData() + r * degree);
            tenSources.emplace_back(degree, prime, false);
        }
    }

    u64* operator[](int i) { return rows_[static_cast<unsigned>(i)].getData(); }
    u64 degree() const { return modulus.getDegree(); }

    Modulus modulus;
    DeviceSpecificArray<u64> tenRows;
    std::vector<Modulus> tenSources;

private:
    DeviceSpecificArray<u64> rows_[7];
};

using Kernel = std::function<void(Rows&)>;

struct NamedKernel {
    const char* name;
    Kernel run;
    bool isTransform = false;
};

/// A modulus change from a prime near by.
u64 neighbour(const Rows& rows) {
    return rows.modulus.getPrime() + 2 * rows.degree();
}

const NamedKernel kernels[] = {
    {"forward1", [](Rows& r) { r.modulus.getNTT().computeForward<1>(r[0]); }, true},
    {"forward4", [](Rows& r) { r.modulus.getNTT().computeForward<4>(r[0]); }, true},
    {"backward1", [](Rows& r) { r.modulus.getNTT().computeBackward<1>(r[0]); }, true},
    {"backward2", [](Rows& r) { r.modulus.getNTT().computeBackward<2>(r[0]); }, true},
    {"constAdd", [](Rows& r) { r.modulus.constAdd(r[1], 12345, r[0], r.degree()); }},
    {"addVector", [](Rows& r) { r.modulus.addVector(r[0], r[1], r[2], r.degree()); }},
    {"subVector", [](Rows& r) { r.modulus.subVector(r[0], r[1], r[2], r.degree()); }},
    {"negateVector", [](Rows& r) { r.modulus.negateVector(r[0], r[1], r.degree()); }},
    {"mulVector", [](Rows& r) { r.modulus.mulVector(r[0], r[1], r[2], r.degree()); }},
    {"mulVectorTwo", [](Rows& r) { r.modulus.mulVector(r[0], r[1], r[2], r[3], r[4]); }},
    {"mulAddVector", [](Rows& r) { r.modulus.mulAddVector(r[0], r[1], r[2], r[3], r[4]); }},
    {"tensorVector", [](Rows& r) { r.modulus.tensorVector(r[0], r[1], r[2], r[3], r[4], r[5], r[6]); }},
    {"residueSmall", [](Rows& r) { r.modulus.residueVector(r[1], 0, r[0], r.degree()); }},
    {"residueGreat", [](Rows& r) { r.modulus.residueVector(r[1], ~u64{0} >> 1, r[0], r.degree()); }},
    {"constMult1", [](Rows& r) { r.modulus.constMult<1>(r[1], 12345, r[0], r.degree()); }},
    {"constMult2", [](Rows& r) { r.modulus.constMult<2>(r[1], 12345, r[0], r.degree()); }},
    {"subAndConstMult1", [](Rows& r) { r.modulus.subAndConstMult<1>(r[1], r[2], 12345, r[0], r.degree()); }},
    {"subAndConstMult2", [](Rows& r) { r.modulus.subAndConstMult<2>(r[1], r[2], 12345, r[0], r.degree()); }},
    {"normalizeMod", [](Rows& r) { r.modulus.normalizeModVector(r[0], r[1], neighbour(r), r.degree()); }},
    {"normalizeMult",
     [](Rows& r) { r.modulus.normalizeModAndConstMult<false>(r[1], 12345, neighbour(r), r[0]); }},
    {"normalizeMultAdd",
     [](Rows& r) { r.modulus.normalizeModAndConstMult<true>(r[1], 12345, neighbour(r), r[0]); }},
    {"convertTenRows",
     [](Rows& r) {
         r.modulus.sumCentredProducts(r.tenRows.getData(), r.tenSources.data(), r.tenRows.getData(), 1, 10,
                                      r[0]);
     }},
    {"sumThreeProducts",
     [](Rows& r) {
         r.modulus.sumProducts(
             3,
             [&](u64 j) {
                 return rows::ProductTerm{r[2 + static_cast<int>(j)], r[5], r[6]};
             },
             r[0], r[1]);
     }},
    {"innerProduct", [](Rows& r) { r.modulus.innerProduct(r[1], r[2], r[0], r.degree()); }},
    {"copy", [](Rows& r) { std::memcpy(r[0], r[1], r.degree() * sizeof(u64)); }},
};

benchmark::Counter timePer(u64 units) {
    return {static_cast<double>(units),
            benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert};
}

void run(benchmark::State& state, const NamedKernel& kernel, KernelForm form, u64 prime) {
    const test::ForcedFeature forced(form);
    Rows rows(static_cast<u64>(state.range(0)), prime);
    for ([[maybe_unused]] auto _ : state) {
        kernel.run(rows);
        benchmark::ClobberMemory();
    }
    const u64 n = rows.degree();
    state.counters["time/word"] = timePer(n);
    if (kernel.isTransform)
        state.counters["time/butterfly"] = timePer(n / 2 * static_cast<u64>(std::countr_zero(n)));
}

/// The greatest prime of `bits` bits that all degrees below allow.
u64 greatestPrime(int bits) {
    return utils::seekPrimes(u64{1} << bits, u64{1} << 18, 1, true).front();
}

void registerForm(const NamedKernel& kernel, const std::string& name, KernelForm form) {
    for (int bits : {40, 50, 51, 61}) {
        const std::string full = std::string(kernel.name) + "/" + name + "/" + std::to_string(bits) + "bits";
        benchmark::RegisterBenchmark(full.c_str(), run, kernel, form, greatestPrime(bits))
            ->RangeMultiplier(2)
            ->Range(1 << 13, 1 << 17);
    }
}

void registerAll() {
    const std::pair<const char*, KernelForm> forms[] = {{"scalar", KernelForm::Scalar},
                                                        {"AVX2", KernelForm::AVX2},
                                                        {"FMA", KernelForm::FMA},
                                                        {"AVX512", KernelForm::AVX512},
                                                        {"IFMA", KernelForm::IFMA}};
    const KernelForm widest = currentForm();
    for (const NamedKernel& kernel : kernels)
        for (const auto& [name, form] : forms)
            if (form <= widest) registerForm(kernel, name, form);
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
