#pragma once

#include "core/Integers.hpp"

#include <array>
#include <vector>

namespace Torvo::test {

/// During the lifetime of such an object every block that `operator new` returns is filled with `word`, as if
/// an earlier owner had left it there. Only one may exist at a time.
class PoisonedMemory {
public:
    explicit PoisonedMemory(u64 word);
    ~PoisonedMemory();
    PoisonedMemory(const PoisonedMemory&) = delete;
    PoisonedMemory& operator=(const PoisonedMemory&) = delete;
};

/// During the lifetime of such an object every freed block, of any thread, is searched for secrets. Only one
/// may exist at a time.
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
