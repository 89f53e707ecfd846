#pragma once

#include "core/Integers.hpp"
#include "support/WatchedMemory.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cstring>
#include <string>

/// Whether a saved file depends on the previous content of the object's memory.
namespace Torvo::test {

/// Runs on one thread, so that all that is random comes from its seed.
class OneSeededThread {
public:
    OneSeededThread() : threads_(omp_get_max_threads()) {
        omp_set_num_threads(1);
        setSeed({11, 12, 13, 14});
    }
    ~OneSeededThread() { omp_set_num_threads(threads_); }
    OneSeededThread(const OneSeededThread&) = delete;
    OneSeededThread& operator=(const OneSeededThread&) = delete;

private:
    int threads_;
};

/// `make` gives a file. Twice, in memory full of two different words: the files must be the same, and hold
/// neither word.
template <class Make>
void expectNothingOld(const std::string& what, Make&& make) {
    SCOPED_TRACE(what);
    constexpr std::array<u64, 2> words{0x0b5e55ed0ddba115, 0x0defaced0deca1f5};
    std::array<std::string, 2> files;
    for (u64 i = 0; i < 2; ++i) {
        const OneSeededThread seeded;
        const PoisonedMemory poisoned(words[i]);
        files[i] = make();
    }
    EXPECT_GT(files[0].size(), 8U);
    EXPECT_TRUE(files[0] == files[1]);
    for (u64 i = 0; i < 2; ++i) {
        std::string word(sizeof(u64), '\0');
        std::memcpy(word.data(), &words[i], sizeof(u64));
        EXPECT_EQ(files[i].find(word), std::string::npos);
    }
}

} // namespace Torvo::test
