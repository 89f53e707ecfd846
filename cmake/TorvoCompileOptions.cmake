set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(TorvoCompileOptions INTERFACE)
# No contraction: the same seed gives the same words in every build. The presets make warnings errors; a build by
# somebody else, with a compiler that warns of more, goes on.
target_compile_options(TorvoCompileOptions INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -ffp-contract=off>)
