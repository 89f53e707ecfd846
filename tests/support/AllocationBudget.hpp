#pragma once

#include "core/Integers.hpp"

namespace Torvo::test {

/// While one of these lives, all threads together may hold at most `bytes` of `operator new` more than they
/// held before: an allocation that would go beyond fails with std::bad_alloc, so that what asks for far too
/// much does no harm to the program that looks for it. There is one at a time.
class AllocationBudget {
public:
    explicit AllocationBudget(u64 bytes);
    ~AllocationBudget();
    AllocationBudget(const AllocationBudget&) = delete;
    AllocationBudget& operator=(const AllocationBudget&) = delete;

    bool isExceeded() const;
    /// The most that was held or asked for at one time.
    u64 peak() const;
};

} // namespace Torvo::test
