#pragma once

#if __cplusplus < 202002L
#error "Torvo needs C++20: compile with -std=c++20, or link the CMake target Torvo::Torvo, which asks for it"
// Ends the compilation: a hundred errors would follow the one that says what to do.
#include <Torvo needs C++20>
#endif

/// Marks what the shared library exports; everything else stays hidden.
#define TORVO_API __attribute__((visibility("default")))
