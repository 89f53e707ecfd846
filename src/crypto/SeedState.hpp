#pragma once

#include "crypto/UniformRandomBitGenerator.hpp"
#include "persistence/ArchiveForward.hpp"

#include <string>

namespace Torvo {

/// The generator state from which a key was sampled: a key can be saved as this alone. Wiped on destruction
/// and before it is assigned over.
class SeedState {
public:
    /// Of a key that was given, not sampled.
    SeedState() = default;
    /// Where the calling thread's generator stands.
    static SeedState ofThread();

    SeedState(const SeedState&) = default;
    /// Leaves nothing behind in `other` but the mark of a key that was given.
    SeedState(SeedState&& other) noexcept;
    SeedState& operator=(SeedState other) noexcept;
    ~SeedState();

    bool isRandom() const { return isRandom_; }
    const std::string& getState() const { return state_; }

    /// u8 isRandom, u64 length, the state.
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);
    /// u64 length, the state: of a sampled key only.
    void saveState(OutputArchive& archive) const;
    void loadState(InputArchive& archive);

private:
    void loadBytes(InputArchive& archive);

    bool isRandom_ = false;
    std::string state_;
};

/// While it lives, the calling thread draws from the stored state; then it goes on where it stood.
class BorrowedGenerator {
public:
    explicit BorrowedGenerator(const SeedState& seed);
    ~BorrowedGenerator();
    BorrowedGenerator(const BorrowedGenerator&) = delete;
    BorrowedGenerator& operator=(const BorrowedGenerator&) = delete;

private:
    UniformRandomBitGenerator& generator_;
    UniformRandomBitGenerator::Position previous_; ///< no string: giving it back allocates nothing
};

/// While it lives, the calling thread samples a random key. The key's file holds the state of the generator
/// from which it was sampled; whoever has the file could regrow what else came from that seed. So a generator
/// that was seeded by the operating system starts from a fresh seed, and forgets it at the end, also when
/// sampling failed. One with the seed of a caller goes on in its stream, for reproducible tests.
class KeySampling {
public:
    /// @throws RuntimeException as `drawSystemSeed` does
    KeySampling();
    ~KeySampling();
    KeySampling(const KeySampling&) = delete;
    KeySampling& operator=(const KeySampling&) = delete;

private:
    UniformRandomBitGenerator& generator_;
};

} // namespace Torvo
