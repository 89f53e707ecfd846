# Defines BLAKE3::blake3: an installed libblake3 where there is one, otherwise the official C sources that
# Debian ships inside its package librust-blake3-dev, built here as a private static library.
#
# The static library takes every x86-64 assembly form; BLAKE3 chooses among them at run time. Nothing of it
# leaves libTorvo: the C symbols are hidden, and Torvo.map keeps those of the assembly local.

include(FindPackageHandleStandardArgs)

if(TARGET BLAKE3::blake3)
    set(BLAKE3_FOUND TRUE)
    return()
endif()

find_package(blake3 CONFIG QUIET)
if(TARGET BLAKE3::blake3)
    find_package_handle_standard_args(BLAKE3 CONFIG_MODE REQUIRED_VARS blake3_DIR)
    return()
endif()

find_path(BLAKE3_INCLUDE_DIR blake3.h)
find_library(BLAKE3_LIBRARY blake3)
mark_as_advanced(BLAKE3_INCLUDE_DIR BLAKE3_LIBRARY)
if(BLAKE3_INCLUDE_DIR AND BLAKE3_LIBRARY)
    add_library(BLAKE3::blake3 UNKNOWN IMPORTED)
    set_target_properties(BLAKE3::blake3 PROPERTIES
        IMPORTED_LOCATION ${BLAKE3_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${BLAKE3_INCLUDE_DIR})
    find_package_handle_standard_args(BLAKE3 REQUIRED_VARS BLAKE3_LIBRARY BLAKE3_INCLUDE_DIR)
    return()
endif()

file(GLOB sourceDirs LIST_DIRECTORIES true /usr/share/cargo/registry/blake3-*/c)
list(SORT sourceDirs COMPARE NATURAL ORDER DESCENDING)
find_path(BLAKE3_SOURCE_DIR blake3.c PATHS ${sourceDirs} NO_DEFAULT_PATH)
mark_as_advanced(BLAKE3_SOURCE_DIR)
find_package_handle_standard_args(BLAKE3
    REQUIRED_VARS BLAKE3_SOURCE_DIR
    REASON_FAILURE_MESSAGE "install libblake3, or on Debian 12 the package librust-blake3-dev")
if(NOT BLAKE3_FOUND)
    return()
endif()

file(GLOB assembly ${BLAKE3_SOURCE_DIR}/blake3_*_x86-64_unix.S)
add_library(TorvoBlake3 STATIC
    ${BLAKE3_SOURCE_DIR}/blake3.c
    ${BLAKE3_SOURCE_DIR}/blake3_dispatch.c
    ${BLAKE3_SOURCE_DIR}/blake3_portable.c
    ${assembly})
target_include_directories(TorvoBlake3 SYSTEM INTERFACE ${BLAKE3_SOURCE_DIR})
target_compile_options(TorvoBlake3 PRIVATE -w)
set_target_properties(TorvoBlake3 PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    C_VISIBILITY_PRESET hidden
    EXCLUDE_FROM_ALL ON)
add_library(BLAKE3::blake3 ALIAS TorvoBlake3)
