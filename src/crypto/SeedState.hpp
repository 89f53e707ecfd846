#pragma once

#include "crypto/UniformRandomBitGenerator.hpp"
#include "persistence/ArchiveForward.hpp"

#include <string>

namespace Torvo {

/// The generator state from which a key was sampled. A key can be saved as this state alone. Wiped on
/// destruction and before assignment.
class SeedState {
public:
    /// The state of a key that was given, not sampled.
    SeedState() = default;
    /// The current state of the calling thread's generator.
    static SeedState ofThread();

    SeedState(const SeedState&) = default;
    /// `other` becomes the state of a given key.
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

/// During its lifetime the calling thread draws from the stored state, or from a fresh seed; afterwards it
/// continues from its previous state.
class BorrowedGenerator {
public:
    explicit BorrowedGenerator(const SeedState& seed);
    /// For what the library draws for itself, and so must not move the words that a caller's seed gives.
    /// @throws RuntimeException as `drawSystemSeed` does
    BorrowedGenerator();
    ~BorrowedGenerator();
    BorrowedGenerator(const BorrowedGenerator&) = delete;
    BorrowedGenerator& operator=(const BorrowedGenerator&) = delete;

private:
    /// The others call this one, so that the destructor gives the generator back when they throw.
    explicit BorrowedGenerator(UniformRandomBitGenerator& generator);

    UniformRandomBitGenerator& generator_;
    UniformRandomBitGenerator::Position previous_; ///< no string: giving it back allocates nothing
};

/// The calling thread samples a random key during the lifetime of this object. The key's file holds the state
/// of the generator from which it was sampled, and whoever has the file could reproduce everything else from
/// that seed. So a generator that was seeded by the operating system starts from a fresh seed and forgets it
/// at the end, also when sampling failed. A generator with a caller's seed continues its stream, for
/// reproducible tests.
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
