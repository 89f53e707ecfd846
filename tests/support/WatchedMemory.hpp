#pragma once

#include "core/Integers.hpp"

#include <array>
#include <vector>

namespace Torvo::test {

/// While one of these lives, every block that `operator new` gives is full of `word`, as if somebody had left
/// it there. There is one at a time.
class PoisonedMemory {
public:
    explicit PoisonedMemory(u64 word);
    ~PoisonedMemory();
    PoisonedMemory(const PoisonedMemory&) = delete;
    PoisonedMemory& operator=(const PoisonedMemory&) = delete;
};

/// While one of these lives, every block that is freed is searched for secrets, of any thread. There is one
/// at a time.
class FreedMemory {
public:
    /// Some words in a row of what must not be left behind.
    using Secret = std::array<u64, 4>;

    explicit FreedMemory(std::vector<Secret> secrets);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    /// How many blocks held one of them when they were freed.
    u64 countFound() const;
};

// ---- for the operators of the test program

void onAllocation(void* block) noexcept;
void onRelease(void* block) noexcept;

} // namespace Torvo::test
