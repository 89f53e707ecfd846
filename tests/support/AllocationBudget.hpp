#pragma once

#include "core/Integers.hpp"

namespace Torvo::test {

/// During the lifetime of such an object all threads together may hold at most `bytes` of `operator new` more
/// than they held before. An allocation beyond that fails with std::bad_alloc, so that a request for far too
/// much does not harm the test program. Only one may exist at a time.
class AllocationBudget {
public:
    explicit AllocationBudget(u64 bytes);
    ~AllocationBudget();
    AllocationBudget(const AllocationBudget&) = delete;
    AllocationBudget& operator=(const AllocationBudget&) = delete;

    bool isExceeded() const;
    /// The maximum that was held or requested at one time.
    u64 peak() const;
};

} // namespace Torvo::test
