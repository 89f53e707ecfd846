// One table of what the library's work takes on this machine, and of what bounds it.
//
//     Report [--preset NAME,...] [--forms NAME,...] [--json FILE]
//
// For each form of the kernels that the processor has: transforms of 2^16 words, and operations of each preset on
// one thread, at the top of its chain. Times are medians, of processor time. Of a transform the bound is what the instructions of its
// butterflies take where they are issued as fast as the ports allow, at the measured clock. Of an operation it is
// the sum of its transforms and of its products of rows, each counted, at the time that they take by themselves
// (transforms of whole rows, products of rows that lie in the first cache). What the bound leaves out is memory: the
// last column is the time that the key's bytes take at the speed of a copy. A second table compares, in time on the
// clock, one multiplication on all threads with one on each.

#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/Modulus.hpp"
#include "arithmetic/kernels/NumberTheoryUtils.hpp"
#include "context/ContextContent.hpp"
#include "context/Parameter.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"

#include <Torvo/Torvo.hpp>

#include <omp.h>
#include <time.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Torvo;

/// Processor time of this thread: what else the machine does counts as little as can be.
double processorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double secondsOnce(const std::function<void()>& work) {
    const double start = processorSeconds();
    work();
    return processorSeconds() - start;
}

/// The median of `runs` runs, after one that is not counted; each run repeats the work for a millisecond at least.
double seconds(const std::function<void()>& work, int runs = 7) {
    constexpr double shortest = 1e-3;
    const double first = std::min(secondsOnce(work), secondsOnce(work));
    const int repeats = std::max(1, static_cast<int>(shortest / first));
    std::vector<double> times;
    for (int r = 0; r < runs; ++r)
        times.push_back(secondsOnce([&] {
                            for (int i = 0; i < repeats; ++i) work();
                        }) /
                        repeats);
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[static_cast<std::size_t>(runs / 2)];
}

/// Cycles a second: a chain of additions, each of which waits for the one before, takes a cycle for each. On a
/// processor that runs wide vectors at another clock, `form` makes it a chain of theirs.
double clockRate(KernelForm form) {
    constexpr int count = 2'000'000;
    const auto chain = [&](auto&& eightAdditions) {
        return 8.0 * count / seconds([&] {
                   for (int i = 0; i < count; ++i) eightAdditions();
               });
    };
    if (form >= KernelForm::AVX512)
        return chain([] { asm volatile(".rept 8\n vpaddq %%zmm0, %%zmm0, %%zmm0\n .endr" : : : "xmm0"); });
    if (form >= KernelForm::AVX2)
        return chain([] { asm volatile(".rept 8\n vpaddq %%ymm0, %%ymm0, %%ymm0\n .endr" : : : "xmm0"); });
    u64 x = 1;
    return chain([&] { asm volatile(".rept 8\n add %0, %0\n .endr" : "+r"(x)); });
}

/// Bytes a second that a copy reads, and as many that it writes.
double copyRate(std::size_t bytes) {
    const std::vector<char> from(bytes, 1);
    std::vector<char> to(bytes, 2);
    return static_cast<double>(bytes) / seconds([&] {
               std::memcpy(to.data(), from.data(), bytes);
               asm volatile("" : : "r"(to.data()) : "memory");
           });
}

// ---- one transform

/// Instructions of the butterflies that bound a transform, counted in TransformRows.hpp and FloatRows.hpp: those of
/// a vector that are issued to the ports of its kind, of which there are `ports`. Loads, stores and what rearranges
/// the words of the last stages are left out.
struct Ports {
    double instructions;
    double words;
    double ports;
};

Ports portsOf(KernelForm form, int bits) {
    const bool isFloat = bits <= 51 && form >= KernelForm::FMA;
    // A square of four butterflies reduces two vectors, one with a spare bit, or none with four.
    const double reductions = bits <= 47 ? 0 : bits <= 50 ? 0.25 : 0.5;
    switch (form) {
    case KernelForm::Scalar:
        return {3, 1, 1}; // multiplications
    case KernelForm::AVX2:
        return {26, 4, 3};
    case KernelForm::FMA:
        return isFloat ? Ports{9 + 4 * reductions, 4, 2} : Ports{26, 4, 3};
    default:
        return isFloat ? Ports{8 + 3 * reductions, 8, 2} : Ports{20, 8, 2};
    }
}

struct Line {
    std::string work;
    std::string form;
    double measured;
    double bound;
    double memory; ///< 0 where nothing but the operands is read
};

constexpr u64 transformDegree = u64{1} << 16;

std::vector<Line> transformLines(KernelForm form) {
    const double clock = clockRate(form);
    std::vector<Line> lines;
    for (const int bits : {40, 50, 51, 61}) {
        const u64 prime = utils::seekPrimes(u64{1} << bits, 2 * transformDegree, 1, true).front();
        const Modulus modulus(transformDegree, prime, true);
        std::mt19937_64 engine(1);
        DeviceSpecificArray<u64> row(transformDegree);
        for (u64& word : row) word = engine() % prime;
        const Ports ports = portsOf(form, bits);
        const double butterflies = static_cast<double>(transformDegree) / 2 * 16;
        const double bound = butterflies / ports.words * ports.instructions / ports.ports / clock;
        const std::string size = std::to_string(bits) + " bits";
        lines.push_back({"forward transform, " + size, nameOf(form),
                         seconds([&] { modulus.getNTT().computeForward<1>(row.getData()); }), bound, 0});
        lines.push_back({"backward transform, " + size, nameOf(form),
                         seconds([&] { modulus.getNTT().computeBackward<1>(row.getData()); }), bound, 0});
    }
    return lines;
}

// ---- operations

/// Seconds for a row of one prime: its transforms, and its kernels while it is in the first cache.
struct RowCosts {
    double forward, backward;
    double constMult, subAndConstMult, normalize, tensor;
    double raise;  ///< the sum over a digit's rows
    double reduce; ///< the sum over the temporary rows
    double key;    ///< both sums over the digits
};

RowCosts rowCosts(const Modulus& modulus, const Ring& ring) {
    constexpr u64 length = 512;
    const u64 most = std::max({ring.groupSize(), ring.numTemp, u64{4}});
    const Modulus brief(length, modulus.getPrime(), false);
    std::vector<Modulus> sources;
    for (u64 r = 0; r < most; ++r) sources.emplace_back(length, modulus.getPrime(), false);
    std::mt19937_64 engine(2);
    DeviceSpecificArray<u64> words(most * length), out(3 * length), row(ring.degree);
    for (u64& word : words) word = engine() % modulus.getPrime();
    for (u64& word : row) word = engine() % modulus.getPrime();
    const auto at = [&](u64 i) { return words.getData() + i * length; };
    const auto to = [&](u64 i) { return out.getData() + i * length; };
    const auto perRow = [&](const std::function<void()>& work) {
        return seconds(work) * static_cast<double>(ring.degree) / length;
    };
    const auto sumOver = [&](u64 count) {
        if (count == 1)
            return perRow([&] { brief.normalizeModVector(to(0), at(0), modulus.getPrime(), length); });
        return perRow([&] { brief.sumCentredProducts(at(0), sources.data(), at(0), 1, count, to(0)); });
    };
    const u64 digits = ring.liveDigits(ring.numBase - 1);
    const auto term = [&](u64 j) {
        return rows::ProductTerm{at(j % most), at((j + 1) % most), at((j + 2) % most)};
    };
    return {.forward = seconds([&] { modulus.getNTT().computeForward<1>(row.getData()); }),
            .backward = seconds([&] { modulus.getNTT().computeBackward<1>(row.getData()); }),
            .constMult = perRow([&] { brief.constMult<1>(at(0), at(1)[0], to(0), length); }),
            .subAndConstMult =
                perRow([&] { brief.subAndConstMult<1>(at(0), at(1), at(2)[0], to(0), length); }),
            .normalize = sumOver(1),
            .tensor = perRow([&] { brief.tensorVector(to(0), to(1), to(2), at(0), at(1), at(2), at(3)); }),
            .raise = sumOver(ring.groupSize()),
            .reduce = sumOver(ring.numTemp),
            .key = perRow([&] { brief.sumProducts(digits, term, to(0), to(1)); })};
}

/// What the operations at the top of a chain are made of.
struct Bounds {
    double rescale = 0;
    double keySwitch = 0;
    double tensor = 0;
    double divisions = 0; ///< the part of a key switch that many rotations do not share
};

Bounds boundsOf(const Context& context) {
    const Ring ring = ringOf(context);
    const u64 live = ring.numBase, digits = ring.liveDigits(live - 1);
    Bounds bounds;
    for (u64 t = 0; t < ring.total(); ++t) {
        const RowCosts c = rowCosts(ring.moduli[t], ring);
        const bool isTemporary = t >= live;
        const auto raised = static_cast<double>(isTemporary ? digits : digits - 1);
        if (!isTemporary) bounds.keySwitch += 2 * c.constMult + c.backward; // the gadget's factor, the lift
        bounds.keySwitch += raised * (c.raise + c.forward);
        bounds.divisions += c.key;
        bounds.divisions +=
            isTemporary ? 2 * (c.backward + c.constMult) : 2 * (c.reduce + c.forward + c.subAndConstMult);
        if (!isTemporary) bounds.tensor += c.tensor;
        if (t + 1 < live) bounds.rescale += 2 * (c.normalize + c.forward + c.subAndConstMult);
        if (t + 1 == live) bounds.rescale += 2 * c.backward;
    }
    bounds.keySwitch += bounds.divisions;
    return bounds;
}

/// @throws RuntimeException for a name that no preset has
ParameterPreset presetOf(const std::string& name) {
    for (const ParameterPreset preset : allPresets())
        if (Parameter(preset).name == name) return preset;
    throw RuntimeException("no preset " + name);
}

/// Keys and operands of one preset.
struct Workplace {
    explicit Workplace(const std::string& preset)
        : context(makeContext(presetOf(preset))), secretKey(context), generator(context, secretKey) {
        generator.genEncKey();
        generator.genMultKey();
        for (const u64 r : rotations) generator.genLeftRotKey(r);
        evaluator = std::make_unique<HomEvaluator>(context, generator.getKeyPack());
        for (u64 i = 0; i < message.getSize(); ++i)
            message[i] = std::polar(0.9, static_cast<double>(i * i % 1009));
        Encryptor(context).encrypt(message, generator.getKeyPack(), a);
        while (a.getLevel() + 1 < getDefaultScaleFactorList(context).size()) evaluator->inverseRescale(a);
        a.setRescaleCounter(0);
        evaluator->multWithoutRescale(a, std::complex<double>(0.3), owing);
    }

    const std::vector<u64> rotations{1, 2, 3, 4, 5, 6, 7, 8};
    Context context;
    SecretKey secretKey;
    KeyGenerator generator;
    std::unique_ptr<HomEvaluator> evaluator;
    Message message = Message(getLogFullSlots(context));
    Ciphertext a{context}, owing{context}, out{context};
    std::vector<Ciphertext> outs;
    Message decoded;
};

std::vector<Line> operationLines(Workplace& w, const std::string& preset, KernelForm form, double bandwidth) {
    const Bounds bounds = boundsOf(w.context);
    const Ring ring = ringOf(w.context);
    const double keyBytes = 16.0 * static_cast<double>(ring.degree * ring.total()) *
                            static_cast<double>(ring.liveDigits(ring.numBase - 1));
    const double key = keyBytes / bandwidth;
    const EnDecoder encoder(w.context);
    const Decryptor decryptor(w.context);
    std::vector<Line> lines;
    const auto line = [&](const char* name, double bound, double memory, const std::function<void()>& work) {
        lines.push_back({preset + " " + name, nameOf(form), seconds(work, 5), bound, memory});
    };
    line("mult", bounds.tensor + bounds.keySwitch + bounds.rescale, key,
         [&] { w.evaluator->mult(w.a, w.a, w.out); });
    line("leftRotate", bounds.keySwitch, key, [&] { w.evaluator->leftRotate(w.a, 1, w.out); });
    line("8 rotations", bounds.keySwitch + 7 * bounds.divisions, 8 * key,
         [&] { w.evaluator->getImpl()->leftRotate(w.a, w.rotations, w.outs); });
    // The ciphertext has to be made again each time: its copy is taken off.
    const double copied = seconds([&] { w.out = w.owing; }, 5);
    line("rescale", bounds.rescale, 0, [&] {
        w.out = w.owing;
        w.evaluator->rescale(w.out);
    });
    lines.back().measured -= copied;
    line("encode", 0, 0, [&] { encoder.encode(w.message, w.a.getLevel(), 0); });
    line("decrypt", 0, 0, [&] { decryptor.decrypt(w.a, w.secretKey, w.decoded); });
    return lines;
}

// ---- threads

/// Milliseconds on the clock for one multiplication: of one ciphertext on a team, and of as many at once as there are
/// threads, one on each.
struct TeamLine {
    std::string preset;
    int threads;
    double oneOnAll;
    double oneOnEach;
};

double secondsOnTheClock(const std::function<void()>& work) {
    std::vector<double> times;
    for (int r = 0; r < 6; ++r) {
        const double start = omp_get_wtime();
        work();
        if (r > 0) times.push_back(omp_get_wtime() - start); // the first makes outputs and teams
    }
    std::nth_element(times.begin(), times.begin() + 2, times.end());
    return times[2];
}

std::vector<TeamLine> teamLines(Workplace& w, const std::string& preset) {
    std::vector<TeamLine> lines;
    for (int threads = 1; threads <= omp_get_num_procs(); threads *= 2) {
        omp_set_num_threads(threads);
        const double all = secondsOnTheClock([&] { w.evaluator->mult(w.a, w.a, w.out); });
        std::vector<Ciphertext> outs(static_cast<std::size_t>(threads), Ciphertext(w.context));
        const double each = secondsOnTheClock([&] {
#pragma omp parallel for
            for (std::size_t i = 0; i < outs.size(); ++i) w.evaluator->mult(w.a, w.a, outs[i]);
        });
        lines.push_back({preset, threads, all * 1e3, each * 1e3 / threads});
    }
    omp_set_num_threads(1);
    return lines;
}

// ---- output

std::string processorName() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);)
        if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
    return "unknown";
}

struct Machine {
    std::string processor = processorName();
    double clock = clockRate(KernelForm::Scalar);
    double vectorClock = clockRate(currentForm());
    double copyInCache = copyRate(std::size_t{1} << 18);
    double copyInMemory = copyRate(std::size_t{1} << 28);
};

std::string number(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

void print(const Machine& machine, const std::vector<Line>& lines) {
    std::cout << machine.processor << ", " << number(machine.clock / 1e9, 2) << " GHz, "
              << number(machine.vectorClock / 1e9, 2) << " with the widest vectors, a copy of 256 KiB "
              << number(machine.copyInCache / 1e9, 1) << " GB/s, of 256 MiB "
              << number(machine.copyInMemory / 1e9, 1) << " GB/s\n\n"
              << "| work | form | ms | bound | ratio | the key's bytes |\n"
              << "| --- | --- | --- | --- | --- | --- |\n";
    for (const Line& line : lines) {
        const bool isBounded = line.bound > 0;
        std::cout << "| " << line.work << " | " << line.form << " | " << number(line.measured * 1e3, 3)
                  << " | " << (isBounded ? number(line.bound * 1e3, 3) : "") << " | "
                  << (isBounded ? number(line.measured / line.bound, 2) : "") << " | "
                  << (line.memory > 0 ? number(line.memory * 1e3, 3) : "") << " |\n";
    }
}

void print(const std::vector<TeamLine>& lines) {
    std::cout << "\n| mult | threads | one at a time, ms | one on each, ms |\n| --- | --- | --- | --- |\n";
    for (const TeamLine& line : lines)
        std::cout << "| " << line.preset << " | " << line.threads << " | " << number(line.oneOnAll, 2)
                  << " | " << number(line.oneOnEach, 2) << " |\n";
}

void write(const std::string& path, const Machine& machine, const std::vector<Line>& lines,
           const std::vector<TeamLine>& teams) {
    std::ofstream out(path);
    out << "{\n  \"processor\": \"" << machine.processor << "\",\n  \"clock\": " << machine.clock
        << ",\n  \"clock of vectors\": " << machine.vectorClock
        << ",\n  \"copy in cache, bytes/s\": " << machine.copyInCache
        << ",\n  \"copy in memory, bytes/s\": " << machine.copyInMemory << ",\n  \"lines\": [";
    for (std::size_t i = 0; i < lines.size(); ++i)
        out << (i == 0 ? "\n" : ",\n") << "    {\"work\": \"" << lines[i].work << "\", \"form\": \""
            << lines[i].form << "\", \"seconds\": " << lines[i].measured << ", \"bound\": " << lines[i].bound
            << ", \"memory\": " << lines[i].memory << "}";
    out << "\n  ],\n  \"mult on threads, ms\": [";
    for (std::size_t i = 0; i < teams.size(); ++i)
        out << (i == 0 ? "\n" : ",\n") << "    {\"preset\": \"" << teams[i].preset
            << "\", \"threads\": " << teams[i].threads << ", \"one at a time\": " << teams[i].oneOnAll
            << ", \"one on each\": " << teams[i].oneOnEach << "}";
    out << "\n  ]\n}\n";
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::vector<std::string> parseList(const std::string& list) {
    std::vector<std::string> items;
    std::istringstream stream(list);
    for (std::string item; std::getline(stream, item, ',');) items.push_back(item);
    return items;
}

struct Options {
    std::vector<std::string> presets{"ST11", "ST19", "FGb"};
    std::vector<std::string> forms;
    std::string json;
};

/// @throws RuntimeException for an option that it does not know, or without its value
Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        if (i + 1 == argc) throw RuntimeException(option + " wants a value");
        if (option == "--preset")
            options.presets = parseList(argv[i + 1]);
        else if (option == "--forms")
            options.forms = parseList(argv[i + 1]);
        else if (option == "--json")
            options.json = argv[i + 1];
        else
            throw RuntimeException("unknown option " + option);
    }
    return options;
}

void report(const Options& options) {
    std::vector<KernelForm> forms;
    for (const KernelForm form : test::everyForm)
        if (test::processorRuns(form) &&
            (options.forms.empty() || std::ranges::find(options.forms, nameOf(form)) != options.forms.end()))
            forms.push_back(form);
    omp_set_num_threads(1);
    const Machine machine;
    std::vector<Line> lines;
    std::vector<TeamLine> teams;
    const auto append = [&](KernelForm form, auto&& linesOfForm) {
        const test::ForcedFeature forced(form);
        for (Line& line : linesOfForm()) lines.push_back(std::move(line));
    };
    for (const KernelForm form : forms) append(form, [&] { return transformLines(form); });
    for (const std::string& preset : options.presets) {
        Workplace workplace(preset);
        for (const KernelForm form : forms)
            append(form, [&] { return operationLines(workplace, preset, form, machine.copyInMemory); });
        for (const TeamLine& line : teamLines(workplace, preset)) teams.push_back(line);
    }
    print(machine, lines);
    print(teams);
    if (!options.json.empty()) write(options.json, machine, lines, teams);
}

} // namespace

int main(int argc, char** argv) {
    try {
        report(parse(argc, argv));
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << "\n";
        return 1;
    }
    return 0;
}
