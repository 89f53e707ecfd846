#pragma once

#include "context/ContextContent.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/EvaluationKey.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

/// Objects with members `save` and `load`, compared by their files.
namespace Torvo::test {

inline std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Saves, loads into `other` and saves again; through a stream and through a file.
template <class T>
void expectFile(const T& object, const std::string& file, T& other) {
    EXPECT_EQ(saved(object), file);
    loadFrom(file, other);
    EXPECT_EQ(saved(other), file);
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/object.bin";
    object.save(path);
    EXPECT_EQ(contentOf(path), file);
    other.load(path);
    EXPECT_EQ(saved(other), file);
    const std::string absent = directory.path() + "/absent/object.bin";
    EXPECT_REFUSED(object.save(absent), "Cannot open file " + absent);
    EXPECT_REFUSED(other.load(absent), "Cannot open file " + absent);
}

template <class T>
void expectRobust(const std::string& file, u64 headLength, T& object) {
    const auto load = [&](std::istream& stream) { object.load(stream); };
    expectShortReads(file, load);
    expectNoHarmFromDamage(file, headLength, load);
}

/// The fields of an evaluation key of `smallContext` after its frame: ax and bx have two polynomials each,
/// filled with numbers from `first` on.
inline std::string smallEvaluationKeyFields(char type, u64 index, u64 first = 0) {
    Bytes bytes;
    bytes.u32(1).u64s({smallContext()->context_hash}).u8(static_cast<std::uint8_t>(type)).u64s({index});
    for (const u64 start : {first, first + 5000})
        bytes.u64s({2})
            .raw(smallPolynomial(true, true, 1, start))
            .raw(smallPolynomial(true, true, 1, start + 1000));
    return bytes.str();
}

/// Fills a key of `smallContext` with the numbers of `smallEvaluationKeyFields`.
inline void fillWithNumbers(EvaluationKey& key, u64 first = 0) {
    for (u64 j = 0; j < 2; ++j) {
        fillWithNumbers(key.impl().ax.at(Device{})[j], first + 1000 * j);
        fillWithNumbers(key.impl().bx.at(Device{})[j], first + 5000 + 1000 * j);
    }
}

} // namespace Torvo::test
