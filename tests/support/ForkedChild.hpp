#pragma once

#include "core/Integers.hpp"

#include <functional>
#include <vector>

namespace Torvo::test {

/// What body() gives in a forked child of this process. Where the child throws, dies or has not ended after a
/// minute, that is a failure of the test, and the result is empty. The child runs no destructors and no
/// handlers at its end.
std::vector<u64> inChild(const std::function<std::vector<u64>()>& body);

} // namespace Torvo::test
