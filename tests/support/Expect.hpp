#pragma once

#include <Torvo/RuntimeException.hpp>

#include <gtest/gtest.h>

/// Expects `statement` to throw exactly `Exception` with `what()` equal to `text`.
#define EXPECT_THROW_TEXT(statement, Exception, text)                                                        \
    do {                                                                                                     \
        try {                                                                                                \
            statement;                                                                                       \
            ADD_FAILURE() << #statement << " did not throw; expected: " << (text);                           \
        } catch (const Exception& exceptionUnderTest) {                                                      \
            EXPECT_STREQ(exceptionUnderTest.what(), std::string(text).c_str());                              \
        }                                                                                                    \
    } while (false)

/// Expects `statement` to throw the library's exception with this text, word for word.
#define EXPECT_REFUSED(statement, text) EXPECT_THROW_TEXT(statement, ::Torvo::RuntimeException, text)
