#include <cstdio>
#include <dlfcn.h>
#include <latch>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
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

/// The library, then the plugin that uses it.
struct Loaded {
    Loaded(const char* libraryPath, const char* pluginPath)
        : library(openLibrary(libraryPath)), plugin(library != nullptr ? openLibrary(pluginPath) : nullptr) {}

    RoundTrip roundTrip() const {
        if (plugin == nullptr) return nullptr;
        return reinterpret_cast<RoundTrip>(dlsym(plugin, "torvoPluginRoundTrip"));
    }
    void close() const {
        if (plugin != nullptr) dlclose(plugin);
        if (library != nullptr) dlclose(library);
    }

    void* library;
    void* plugin;
};

bool isSmall(double error) {
    std::printf("largest error %g\n", error);
    return error < errorBound;
}

/// The round trip on eight threads that are older than the library.
int failuresOfOlderThreads(const char* const* paths, Loaded*& loaded) {
    RoundTrip roundTrip = nullptr;
    std::vector<double> errors(threadCount, 1.0);
    std::latch isLoaded(1);
    {
        std::vector<std::jthread> threads;
        for (double& error : errors) {
            threads.emplace_back([&] {
                isLoaded.wait();
                if (roundTrip != nullptr) error = roundTrip();
            });
        }
        loaded = new Loaded(paths[0], paths[1]);
        roundTrip = loaded->roundTrip();
        isLoaded.count_down();
    }
    int failures = 0;
    for (const double error : errors) failures += isSmall(error) ? 0 : 1;
    return failures;
}

/// 1 unless isWell() holds in a forked child, within a minute.
template <class Check>
int failuresOfChild(Check&& isWell) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(isWell() ? 0 : 1);
    }
    int status = 1;
    if (waitpid(child, &status, 0) != child || status != 0) {
        std::fprintf(stderr, "the child ended with status %x\n", status);
        return 1;
    }
    return 0;
}

/// The thread sanitizer ends children that start threads, and sanitizers keep libraries that were closed.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TORVO_HOST_UNDER_THREAD_SANITIZER
#endif
#endif
#ifdef TORVO_HOST_UNDER_THREAD_SANITIZER
constexpr bool childrenCanStartThreads = false, closedLibrariesGo = false;
#elif defined(__SANITIZE_ADDRESS__)
constexpr bool childrenCanStartThreads = true, closedLibrariesGo = false;
#else
constexpr bool childrenCanStartThreads = true, closedLibrariesGo = true;
#endif

} // namespace

/// Arguments: the library, then a plugin that uses it. The threads stand before either is loaded. Children
/// are forked while the library is there, by a thread that has used it, and after it is unloaded.
int main(int argc, char** argv) {
    if (argc != 3) return 2;
    Loaded* loaded = nullptr;
    int failures = failuresOfOlderThreads(argv + 1, loaded);
    if (const RoundTrip roundTrip = loaded->roundTrip(); roundTrip != nullptr && childrenCanStartThreads) {
        // A thread that ends: as long as one lives that has drawn, the library cannot go.
        std::jthread([&] {
            failures += isSmall(roundTrip()) ? 0 : 1;
            failures += failuresOfChild([&] { return isSmall(roundTrip()); });
        });
    }
    loaded->close();
    delete loaded;
    failures += failuresOfChild([] { return true; });
    if (closedLibrariesGo && dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != nullptr) {
        std::fprintf(stderr, "the library was not unloaded\n");
        ++failures;
    }
    return failures == 0 ? 0 : 1;
}
