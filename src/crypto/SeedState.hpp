#pragma once

#include "core/Integers.hpp"
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
    void loadState(InputArchive& archive, bool mayBeEmpty);

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
    SeedState previous_;
};

} // namespace Torvo
