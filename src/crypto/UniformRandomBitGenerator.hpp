#pragma once

#include "core/Integers.hpp"

#include <array>
#include <cstddef>
#include <iosfwd>
#include <limits>
#include <string>

namespace Torvo {

/// The randomness of the library: a keyed BLAKE3 stream, expanded a mebibyte at a time. Buffer number
/// `counter` is the extendable output for the eight bytes of `counter`, keyed with `seed`. One instance per
/// thread (`threadGenerator`), so there is no lock; an instance is not synchronised.
class UniformRandomBitGenerator {
public:
    using result_type = u64;
    static constexpr std::size_t wordCount = 0x20000;
    /// Length of a saved state.
    static constexpr std::size_t stateBytes = 49;

    /// Seeds from the operating system: 128 bits, in the low halves of the four words.
    UniformRandomBitGenerator();
    /// Wipes seed and buffer.
    ~UniformRandomBitGenerator();
    UniformRandomBitGenerator(const UniformRandomBitGenerator&) = delete;
    UniformRandomBitGenerator& operator=(const UniformRandomBitGenerator&) = delete;

    static constexpr u64 min() { return 0; }
    static constexpr u64 max() { return std::numeric_limits<u64>::max(); }

    /// The next word.
    u64 operator()();
    /// The next `count` words.
    void getRandomNumbers(unsigned long* out, unsigned long count);

    const std::array<unsigned long, 4>& getSeed() const { return seed_; }
    /// Starts again from `seed`, counter 0.
    void setSeed(const std::array<unsigned long, 4>& seed);
    u64 getCounter() const { return counter_; }
    u64 getIndex() const { return index_; }

    /// Rebuilds the buffer from seed and counter; the position stays.
    void refillBuffer();

    /// The state in 49 bytes: frame, seed, counter, index.
    void save(std::ostream& stream) const;
    void load(std::istream& stream);
    std::string getState() const;
    void setState(const std::string& state);

private:
    void startNextBuffer();

    std::array<unsigned long, 4> seed_{};
    u64 counter_ = 0;
    u64 index_ = 0;
    std::array<u64, wordCount> buffer_;
};

/// The calling thread's generator, made at its first use and destroyed when the thread ends.
UniformRandomBitGenerator& threadGenerator();

} // namespace Torvo
