#pragma once

#include "core/Integers.hpp"

namespace Torvo::test {

/// While one of these lives, one allocation by `operator new` fails with std::bad_alloc: the one after
/// `before` more, counted over all threads, or on the calling thread alone. There is one at a time.
class FailingAllocation {
public:
    enum class Thread { Any, Calling, Others };

    explicit FailingAllocation(u64 before, Thread thread = Thread::Any);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether it came to that allocation. Where it did not, nothing more can fail: a loop over `before`
    /// ends.
    bool hasFailed() const;
};

} // namespace Torvo::test
