#pragma once

#include "core/Integers.hpp"

#include <array>
#include <cstddef>
#include <iosfwd>
#include <limits>
#include <memory>
#include <string>

namespace Torvo {

/// The randomness of the library: a keyed BLAKE3 stream, expanded a mebibyte at a time. Buffer number
/// `counter` is the extendable output for the eight bytes of `counter`, keyed with `seed`. One instance per
/// thread (`threadGenerator`), so there is no lock; an instance is not synchronised.
///
/// The buffer is on the heap, since thread-local storage takes space from the stack of every thread of a
/// program. It is allocated at the first draw and filled piece by piece as words are drawn, so that a seed
/// for few words, such as that of a secret key, does not cost a hash of the whole buffer. Words are wiped
/// together with their seed, which would reveal them anyway.
class UniformRandomBitGenerator {
public:
    using result_type = u64;
    static constexpr std::size_t wordCount = 0x20000;
    /// Number of words that are filled at a time: 64 KiB.
    static constexpr std::size_t pieceWords = 0x2000;
    /// Length of a saved state.
    static constexpr std::size_t stateBytes = 49;

    /// The whole state of a generator, including the origin of its seed; the words follow from it.
    struct Position {
        std::array<unsigned long, 4> seed{};
        u64 counter = 0;
        u64 index = 0;
        bool isSeededBySystem = false;
        u64 forks = 0; ///< `forkCount()` when the seed was given
    };

    /// Seeds from the operating system: 128 bits, in the low halves of the four words.
    /// @throws RuntimeException as `drawSystemSeed` does
    UniformRandomBitGenerator();
    /// Wipes seed and buffer.
    ~UniformRandomBitGenerator();
    UniformRandomBitGenerator(const UniformRandomBitGenerator&) = delete;
    UniformRandomBitGenerator& operator=(const UniformRandomBitGenerator&) = delete;

    static constexpr u64 min() { return 0; }
    static constexpr u64 max() { return std::numeric_limits<u64>::max(); }

    /// The next word.
    /// @throws std::bad_alloc when there is no memory for the buffer, which the first draw allocates; nothing
    ///         is drawn then
    u64 operator()();
    /// The next `count` words.
    /// @throws std::bad_alloc as above, at the latest before the last `pieceWords` of them are drawn
    void getRandomNumbers(unsigned long* out, unsigned long count);
    /// Allocates the buffer, so that no draw throws.
    /// @throws std::bad_alloc
    void makeBuffer();

    const std::array<unsigned long, 4>& getSeed() const { return position_.seed; }
    /// Starts again from `seed`, counter 0.
    void setSeed(const std::array<unsigned long, 4>& seed) noexcept;
    u64 getCounter() const { return position_.counter; }
    u64 getIndex() const { return position_.index; }

    /// Whether the seed came from the operating system, not from a caller.
    bool isSeededBySystem() const { return position_.isSeededBySystem; }
    /// Starts again from a seed of the operating system.
    /// @throws RuntimeException as `drawSystemSeed` does; nothing changes then
    void takeFreshSeed();
    /// Wipes seed and words. `takeFreshSeed` must be called before anything else is drawn.
    void forgetSeed() noexcept;
    /// Takes a fresh seed if the seed was forgotten or is a copy of the parent process's.
    /// @throws RuntimeException as `takeFreshSeed` does
    void renewIfStale();

    const Position& getPosition() const { return position_; }
    /// Continues from `position`.
    void setPosition(const Position& position) noexcept;

    /// Rebuilds the buffer from seed and counter; the position stays.
    /// @throws std::bad_alloc as above
    void refillBuffer();

    /// The state in 49 bytes: frame, seed, counter, index.
    void save(std::ostream& stream) const;
    void load(std::istream& stream);
    std::string getState() const;
    void setState(const std::string& state);

private:
    void start(const std::array<unsigned long, 4>& seed, bool isSeededBySystem) noexcept;
    void reachWords();
    void provideWords();
    void hash(u64 begin, u64* out, u64 count) const;
    void fill(u64 begin, u64 end);
    void wipeWords() noexcept;

    Position position_;
    /// End of the filled words of the buffer; from the index on they belong to seed and counter.
    u64 filled_ = 0;
    /// End of the words of the current seed, also of earlier counters.
    u64 written_ = 0;
    std::unique_ptr<u64[]> buffer_;
};

/// The calling thread's generator, made at its first use and destroyed when the thread ends. Its seed is
/// never one that was forgotten or that the parent process has too.
/// @throws RuntimeException as `drawSystemSeed` does, if a seed is needed
UniformRandomBitGenerator& threadGenerator();

} // namespace Torvo
