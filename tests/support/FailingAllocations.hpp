#pragma once

#include "core/Integers.hpp"

namespace Torvo::test {

/// During the lifetime of such an object one allocation by `operator new` fails with std::bad_alloc: the one
/// after `before` others, counted over all threads or on the calling thread alone. Only one may exist at a
/// time.
class FailingAllocation {
public:
    enum class Thread { Any, Calling, Others };

    explicit FailingAllocation(u64 before, Thread thread = Thread::Any);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether that allocation was reached. If not, nothing more can fail, and a loop over `before` ends.
    bool hasFailed() const;
};

} // namespace Torvo::test
