#include "arithmetic/kernels/RowLoop.hpp"
#include "ring/RingSwitcher.hpp"

#include <Torvo/Context.hpp>

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

/// The moves between rings, with teams of one and of two threads, each beside `memcpy` of as many bytes by
/// the same team: `ofMemcpy` is the time of that copy over the time of the move. Names are
/// move/shape/threads.
namespace Torvo {
namespace {

using Clock = std::chrono::steady_clock;

Polynomial filled(const Context& context, u64 level) {
    Polynomial polynomial(context, false, false);
    polynomial.setLevel(level);
    std::fill(polynomial.getData().begin(), polynomial.getData().end(), 1);
    return polynomial;
}

template <class T>
std::vector<T*> pointersTo(std::vector<std::remove_const_t<T>>& objects) {
    std::vector<T*> pointers;
    for (auto& object : objects) pointers.push_back(&object);
    return pointers;
}

/// `parts` polynomials of the small ring, which together fill one of the large ring.
struct Rings {
    Rings(u64 logSmall, u64 logLarge, u64 level)
        : small(makeContext(logSmall, level + 1, 55, 50, 55, 1)),
          large(makeContext(logLarge, level + 1, 55, 50, 55, 1)), whole(filled(large, level)),
          pieces(u64{1} << (logLarge - logSmall), filled(small, level)),
          parts(pointersTo<const Polynomial>(pieces)), out(pointersTo<Polynomial>(pieces)) {}

    RingSwitcher switcher;
    Context small, large;
    Polynomial whole;
    std::vector<Polynomial> pieces;
    std::vector<const Polynomial*> parts;
    std::vector<Polynomial*> out;
};

/// As many vectors as the degree of the polynomials, and as many polynomials as the dimension of the vectors.
struct Batch {
    Batch(u64 log_degree, u64 dimension, u64 level)
        : context(makeContext(log_degree, level + 1, 55, 50, 55, 1)),
          vectors(u64{1} << log_degree, LevelledVector(dimension, level)),
          polynomials(dimension, filled(context, level)), parts(pointersTo<const LevelledVector>(vectors)),
          out(pointersTo<Polynomial>(polynomials)) {
        for (auto& vector : vectors) std::fill(vector.getData().begin(), vector.getData().end(), 1);
    }

    RingSwitcher switcher;
    Context context;
    std::vector<LevelledVector> vectors;
    std::vector<Polynomial> polynomials;
    std::vector<const LevelledVector*> parts;
    std::vector<Polynomial*> out;
};

/// Seconds of the fastest of several calls of each, made in turn, so that other work of the machine affects
/// neither.
struct Fastest {
    double move = infinite, copy = infinite;

    template <class Move, class Copy>
    Fastest(Move&& runMove, Copy&& runCopy) {
        for (int round = 0; round < 25; ++round) {
            move = std::min(move, secondsOf(runMove));
            copy = std::min(copy, secondsOf(runCopy));
        }
    }

private:
    static constexpr double infinite = std::numeric_limits<double>::infinity();

    template <class Run>
    static double secondsOf(Run&& run) {
        const auto begin = Clock::now();
        run();
        return std::chrono::duration<double>(Clock::now() - begin).count();
    }
};

/// Times `move`, which writes `words` words.
void time(benchmark::State& state, int threads, u64 words, const std::function<void()>& move) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    for ([[maybe_unused]] auto _ : state) move();
    std::vector<u64> from(words, 1), to(words, 2);
    const Fastest fastest(move, [&] {
        forEachShare(words, [&](u64 begin, u64 end) {
            std::memcpy(&to[begin], &from[begin], (end - begin) * sizeof(u64));
        });
        benchmark::ClobberMemory();
    });
    state.counters["ofMemcpy"] = fastest.copy / fastest.move;
    state.SetBytesProcessed(static_cast<int64_t>(words * sizeof(u64)) * state.iterations());
    omp_set_num_threads(before);
}

struct RingShape {
    const char* name;
    u64 logSmall, logLarge, level;
};

constexpr RingShape ringShapes[] = {
    {"16of4096", 12, 16, 0}, {"2of32768x8", 15, 16, 7}, {"16of4096x8", 12, 16, 7}, {"64of64", 6, 12, 0}};

struct NamedMove {
    const char* name;
    std::function<void(Rings&)> run;
    bool fillsWhole; ///< or a polynomial of the small ring
};

const NamedMove moves[] = {
    {"combine", [](Rings& r) { r.switcher.combine(r.parts, r.whole); }, true},
    {"split", [](Rings& r) { r.switcher.split(r.whole, r.out); }, true},
    {"embed", [](Rings& r) { r.switcher.embed(r.pieces[0], r.whole); }, true},
    {"extract", [](Rings& r) { r.switcher.extract(r.whole, r.pieces[0]); }, false},
};

void runMove(benchmark::State& state, const NamedMove& move, const RingShape& shape, int threads) {
    Rings rings(shape.logSmall, shape.logLarge, shape.level);
    const auto& target = move.fillsWhole ? rings.whole : rings.pieces[0];
    time(state, threads, target.getData().size(), [&] { move.run(rings); });
}

void runBatch(benchmark::State& state, u64 log_degree, u64 dimension, u64 level, int threads) {
    Batch batch(log_degree, dimension, level);
    time(state, threads, (level + 1) * dimension << log_degree,
         [&] { batch.switcher.combineBatch(batch.parts, batch.out); });
}

template <class Run>
void add(const std::string& name, Run&& run) {
    for (const int threads : {1, 2})
        benchmark::RegisterBenchmark((name + "/" + std::to_string(threads)).c_str(),
                                     [run, threads](benchmark::State& state) { run(state, threads); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
}

[[maybe_unused]] const bool registered = [] {
    for (const RingShape& shape : ringShapes)
        for (const NamedMove& move : moves)
            add(std::string(move.name) + "/" + shape.name,
                [&](benchmark::State& state, int threads) { runMove(state, move, shape, threads); });
    add("combineBatch/4096by4096",
        [](benchmark::State& state, int threads) { runBatch(state, 12, 4096, 0, threads); });
    add("combineBatch/1024by1024x8",
        [](benchmark::State& state, int threads) { runBatch(state, 10, 1024, 7, threads); });
    return true;
}();

} // namespace
} // namespace Torvo

BENCHMARK_MAIN();
