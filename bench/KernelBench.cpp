#include "arithmetic/chain/PrimeLists.hpp"
#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/Modulus.hpp"

#include "support/ForcedFeature.hpp"

#include <benchmark/benchmark.h>

#include <bit>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

/// The row kernels and the transforms, in scalar and in AVX2 form, for one prime of 51 and one of 61 bits, on
/// one core; `time/word` and `time/butterfly` are seconds with their unit prefix. The rows named `copy` give
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
            row.resize(degree);
            for (u64& word : row) word = below(engine);
        }
        for (u64 r = 0; r < 10; ++r) {
            tenRows.insert(tenRows.end(), rows_[0].begin(), rows_[0].end());
            tenSources.emplace_back(degree, prime, false);
        }
    }

    u64* operator[](int i) { return rows_[static_cast<unsigned>(i)].data(); }
    u64 degree() const { return modulus.getDegree(); }

    Modulus modulus;
    std::vector<u64> tenRows;
    std::vector<Modulus> tenSources;

private:
    std::vector<u64> rows_[7];
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
         r.modulus.sumCentredProducts(r.tenRows.data(), r.tenSources.data(), r.tenRows.data(), 1, 10, r[0]);
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

void run(benchmark::State& state, const NamedKernel& kernel, u64 feature, u64 prime) {
    Rows rows(static_cast<u64>(state.range(0)), prime);
    const test::ForcedFeature forced(feature);
    for ([[maybe_unused]] auto _ : state) {
        kernel.run(rows);
        benchmark::ClobberMemory();
    }
    const u64 n = rows.degree();
    state.counters["time/word"] = timePer(n);
    if (kernel.isTransform)
        state.counters["time/butterfly"] = timePer(n / 2 * static_cast<u64>(std::countr_zero(n)));
}

void registerForm(const NamedKernel& kernel, const std::string& form, u64 feature) {
    const auto& chain = getPrimeList(ParameterPreset::FVa); // 61 bits, then 51
    for (u64 prime : {chain[1], chain[0]}) {
        const std::string name =
            std::string(kernel.name) + "/" + form + "/" + std::to_string(std::bit_width(prime)) + "bits";
        benchmark::RegisterBenchmark(name.c_str(), run, kernel, feature, prime)
            ->RangeMultiplier(2)
            ->Range(1 << 13, 1 << 17);
    }
}

void registerAll() {
    for (const NamedKernel& kernel : kernels) {
        registerForm(kernel, "scalar", 0);
        if (runsAVX2()) registerForm(kernel, "AVX2", featureAVX2);
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
