#pragma once

#include "core/Integers.hpp"
#include "support/Expect.hpp"

#include <Torvo/RuntimeException.hpp>

#include <cereal/details/helpers.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace Torvo::test {

inline const std::string notVerified = "[Verifier::load] Validation failed during deserializing objects.";

/// Every strict prefix of `file` must end `load(stream)` in a short read.
template <class Load>
void expectShortReads(const std::string& file, Load&& load) {
    for (u64 length = 0; length < file.size(); ++length) {
        std::istringstream stream(file.substr(0, length));
        try {
            load(static_cast<std::istream&>(stream));
            ADD_FAILURE() << "loaded from " << length << " of " << file.size() << " bytes";
        } catch (const cereal::Exception& failure) {
            ASSERT_EQ(std::string(failure.what()).rfind("Failed to read ", 0), 0U) << length;
        }
    }
}

/// `load` may accept a damaged file, or refuse it in one of the documented ways.
template <class Load>
void expectTakenOrRefused(const std::string& file, Load&& load, const std::set<std::string>& refusals) {
    std::istringstream stream(file);
    try {
        load(static_cast<std::istream&>(stream));
    } catch (const RuntimeException& failure) {
        EXPECT_TRUE(refusals.contains(failure.what())) << failure.what();
    } catch (const cereal::Exception& failure) {
        EXPECT_EQ(std::string(failure.what()).rfind("Failed to read ", 0), 0U) << failure.what();
    } catch (const std::exception& failure) {
        ADD_FAILURE() << failure.what();
    }
}

/// Flips every bit of the first `headLength` bytes, and puts numbers that a forger would choose at every
/// place of them.
template <class Load>
void expectNoHarmFromDamage(const std::string& file, u64 headLength, Load&& load,
                            const std::set<std::string>& refusals = {notVerified}) {
    headLength = std::min<u64>(headLength, file.size());
    for (u64 i = 0; i < headLength; ++i) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = file;
            damaged[i] = static_cast<char>(damaged[i] ^ (1 << bit));
            SCOPED_TRACE("bit " + std::to_string(bit) + " of byte " + std::to_string(i));
            expectTakenOrRefused(damaged, load, refusals);
        }
    }
    const std::vector<u64> forged{0,
                                  1,
                                  2,
                                  u64{1} << 20,
                                  u64{1} << 32,
                                  ~u64{0},
                                  u64{1} << 63,
                                  u64{1} << 61,
                                  (u64{1} << 61) + 1,
                                  ~u64{0} / 24};
    for (u64 i = 0; i + 8 <= headLength; ++i) {
        for (const u64 value : forged) {
            std::string damaged = file;
            std::memcpy(damaged.data() + i, &value, sizeof value);
            SCOPED_TRACE(std::to_string(value) + " at byte " + std::to_string(i));
            expectTakenOrRefused(damaged, load, refusals);
        }
    }
}

} // namespace Torvo::test
