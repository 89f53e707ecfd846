#include <cstdio>
#include <dlfcn.h>
#include <latch>
#include <thread>
#include <vector>

namespace {

constexpr int threadCount = 8;

// A slot sums 64 coefficients, each with an encryption error below 32 (ten standard deviations of 3.2) and
// half a unit of rounding, at the scale 2^42: less than 64 * 32.5 / 2^42 < 1e-9.
constexpr double errorBound = 1e-9;

using RoundTrip = double (*)();

void* openLibrary(const char* path) {
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) std::fprintf(stderr, "%s\n", dlerror());
    return library;
}

RoundTrip findRoundTrip(const char* libraryPath, const char* pluginPath) {
    if (openLibrary(libraryPath) == nullptr) return nullptr;
    void* plugin = openLibrary(pluginPath);
    if (plugin == nullptr) return nullptr;
    return reinterpret_cast<RoundTrip>(dlsym(plugin, "torvoPluginRoundTrip"));
}

} // namespace

/// Arguments: the library, then a plugin that uses it. The threads stand before either is loaded.
int main(int argc, char** argv) {
    if (argc != 3) return 2;
    RoundTrip roundTrip = nullptr;
    std::vector<double> errors(threadCount, 1.0);
    std::latch loaded(1);
    {
        std::vector<std::jthread> threads;
        for (double& error : errors) {
            threads.emplace_back([&] {
                loaded.wait();
                if (roundTrip != nullptr) error = roundTrip();
            });
        }
        roundTrip = findRoundTrip(argv[1], argv[2]);
        loaded.count_down();
    }
    int failures = 0;
    for (const double error : errors) {
        std::printf("largest error %g\n", error);
        if (!(error < errorBound)) ++failures;
    }
    return failures == 0 ? 0 : 1;
}
