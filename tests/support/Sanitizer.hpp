#pragma once

#include <gtest/gtest.h>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TORVO_TESTS_UNDER_SANITIZER
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define TORVO_TESTS_UNDER_SANITIZER
#endif

namespace Torvo::test {

/// The sanitizers end the process where `operator new` would throw std::bad_alloc.
#ifdef TORVO_TESTS_UNDER_SANITIZER
inline constexpr bool newCanThrow = false;
#else
inline constexpr bool newCanThrow = true;
#endif

} // namespace Torvo::test

/// First line of a test that asks for more memory than there is.
#define SKIP_WHERE_NEW_CANNOT_THROW()                                                                        \
    if (!::Torvo::test::newCanThrow) GTEST_SKIP() << "operator new cannot throw here"
