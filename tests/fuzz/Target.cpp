// A fuzz target for one kind of file, TORVO_FUZZ_KIND: loads what the fuzzer makes of the files of that kind,
// and uses what was loaded. Refusals are as they should be; a crash, a report of a sanitizer, an exception of
// another kind, a hang, too much memory, or an object that does not survive being saved is a finding.

#include "Mutator.hpp"
#include "support/FileKinds.hpp"

#include <Torvo/Randomseeds.hpp>

#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Torvo::test;

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

std::string mutateBlindly(std::string bytes, std::size_t maxSize) {
    const std::size_t size = std::min(bytes.size(), maxSize);
    bytes.resize(maxSize);
    bytes.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes.data()), size, maxSize));
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    omp_set_num_threads(1); // rows of 64 words are not worth a team
    Torvo::setSeed({1, 2, 3, 4});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FileKind& kind = fileKind(TORVO_FUZZ_KIND);
    try {
        feed(kind, textOf(data, size));
    } catch (const Finding& finding) {
        std::fprintf(stderr, "finding: %s\n", finding.what.c_str());
        std::abort();
    }
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    static fuzz::Mutator mutator(TORVO_FUZZ_KIND, mutateBlindly);
    const std::string mutated = mutator.mutate(textOf(data, size), maxSize, seed);
    std::copy(mutated.begin(), mutated.end(), data);
    return mutated.size();
}
