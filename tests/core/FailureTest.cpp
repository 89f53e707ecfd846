#include "core/Failure.hpp"

#include "support/Expect.hpp"

#include <stdexcept>
#include <type_traits>

namespace Torvo {
namespace {

TEST(Failure, RequireThrowsItsTextUnlessTheConditionHolds) {
    EXPECT_NO_THROW(require(true, "not thrown"));
    EXPECT_REFUSED(require(false, "word for word"), "word for word");
}

TEST(Failure, AFunctionWithoutBackendIsNamed) {
    EXPECT_REFUSED(throwUnsupported("forwardFFTCUDA"),
                   "Cannot support the function 'forwardFFTCUDA' in the current build configuration");
}

TEST(Failure, TheExceptionIsAStandardRuntimeError) {
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, RuntimeException>));
    EXPECT_EQ(sizeof(RuntimeException), sizeof(std::runtime_error));
}

} // namespace
} // namespace Torvo
