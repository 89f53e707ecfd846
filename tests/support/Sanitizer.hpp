#pragma once

#include <gtest/gtest.h>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TORVO_TESTS_UNDER_SANITIZER
#define TORVO_TESTS_UNDER_THREAD_SANITIZER
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define TORVO_TESTS_UNDER_SANITIZER
#endif

namespace Torvo::test {

#ifdef TORVO_TESTS_UNDER_SANITIZER
inline constexpr bool underSanitizer = true;
#else
inline constexpr bool underSanitizer = false;
#endif
#ifdef TORVO_TESTS_UNDER_THREAD_SANITIZER
inline constexpr bool underThreadSanitizer = true;
#else
inline constexpr bool underThreadSanitizer = false;
#endif

/// The sanitizers end the process where `operator new` would throw std::bad_alloc.
inline constexpr bool newCanThrow = !underSanitizer;

} // namespace Torvo::test

/// First line of a test that asks for more memory than there is.
#define SKIP_WHERE_NEW_CANNOT_THROW()                                                                        \
    if (!::Torvo::test::newCanThrow) GTEST_SKIP() << "operator new cannot throw here"

/// First line of a test whose children start threads: the thread sanitizer ends such a child of a process
/// that has threads.
#define SKIP_WHERE_CHILDREN_CANNOT_START_THREADS()                                                           \
    if (::Torvo::test::underThreadSanitizer) GTEST_SKIP() << "children cannot start threads here"

/// First line of a test that looks at stacks or memory as a whole: instrumented code needs far more of both.
#define SKIP_WHERE_CODE_IS_INSTRUMENTED()                                                                    \
    if (::Torvo::test::underSanitizer) GTEST_SKIP() << "instrumented code needs more memory"

/// First line of a test that lets allocations fail, counts them or looks at what is freed: the runtime of the
/// thread sanitizer has operators new and delete that no program can replace.
#define SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED()                                                           \
    if (::Torvo::test::underThreadSanitizer) GTEST_SKIP() << "operator new cannot be replaced here"
