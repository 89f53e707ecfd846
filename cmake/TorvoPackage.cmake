# Installs the library, its public headers, its documents and examples, the CMake package "Torvo" (target
# Torvo::Torvo) and "torvo" for pkg-config. Both find everything relative to themselves, so an installed tree may
# be moved as a whole.

include(CMakePackageConfigHelpers)

set(TORVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Torvo)
set(TORVO_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS Torvo EXPORT TorvoTargets DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/Torvo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.hpp")
install(EXPORT TorvoTargets NAMESPACE Torvo:: DESTINATION ${TORVO_CMAKE_DIR})

# The folders keep their places beside each other, so that the links between the documents hold.
set(TORVO_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/Torvo)
file(GLOB pages ${PROJECT_SOURCE_DIR}/*.md)
install(FILES ${pages} DESTINATION ${TORVO_DOC_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${TORVO_DOC_DIR} FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${TORVO_DOC_DIR})

# A static library leaves to the program that links it what a shared one has inside. BLAKE3 is in the archive
# where it was built from its sources.
set(TORVO_STATIC_DEPENDENCIES "")
set(TORVO_STATIC_LIBS "")
if(NOT BUILD_SHARED_LIBS)
    set(TORVO_STATIC_DEPENDENCIES OpenMP)
    set(TORVO_STATIC_LIBS " ${OpenMP_CXX_FLAGS}")
    if(NOT TARGET TorvoBlake3)
        string(APPEND TORVO_STATIC_DEPENDENCIES " BLAKE3")
        string(APPEND TORVO_STATIC_LIBS " -lblake3")
        install(FILES ${CMAKE_CURRENT_LIST_DIR}/FindBLAKE3.cmake DESTINATION ${TORVO_CMAKE_DIR})
    endif()
endif()

configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/TorvoConfig.cmake.in ${PROJECT_BINARY_DIR}/TorvoConfig.cmake
    INSTALL_DESTINATION ${TORVO_CMAKE_DIR})
# Before 1.0 a minor version may break.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TorvoConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TorvoConfig.cmake ${PROJECT_BINARY_DIR}/TorvoConfigVersion.cmake
    DESTINATION ${TORVO_CMAKE_DIR})

file(RELATIVE_PATH TORVO_PREFIX_FROM_PKGCONFIG
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/torvo.pc.in ${PROJECT_BINARY_DIR}/torvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/torvo.pc DESTINATION ${TORVO_PKGCONFIG_DIR})
