#pragma once

#include <thread>
#include <utility>

namespace Torvo::test {

/// Calls body() on a thread of its own, whose random generator nobody has seeded, and whose OpenMP team is
/// new.
template <class Body>
void onNewThread(Body&& body) {
    std::thread(std::forward<Body>(body)).join();
}

} // namespace Torvo::test
