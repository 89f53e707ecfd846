# The program of README.md as it stands there, against the output that stands below it.
set(readme ${PROJECT_SOURCE_DIR}/README.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${readme})
file(READ ${readme} text)
if(NOT text MATCHES "```cpp\n([^`]*)```[^`]*```\n([^`]*)\n```")
    message(FATAL_ERROR "README.md holds no program with its output below")
endif()
set(output "${CMAKE_MATCH_2}")
file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/readme.cpp CONTENT "${CMAKE_MATCH_1}")
string(REGEX REPLACE "([][.*+?|()^$\\])" "\\\\\\1" output "${output}")
add_executable(readme ${CMAKE_CURRENT_BINARY_DIR}/readme.cpp)
target_link_libraries(readme PRIVATE Torvo::Torvo)
add_test(NAME examples/readme COMMAND readme)
set_tests_properties(examples/readme PROPERTIES LABELS real RESOURCE_LOCK example
    PASS_REGULAR_EXPRESSION "^${output}\n$")
# And its first table, of the presets, against what the presets are.
add_test(NAME examples/readme_table
    COMMAND bash -c "diff <(sed -n '/^| preset | degree/,/^$/p' $0 | grep '^|') <($1)"
        ${readme} $<TARGET_FILE:preset_table>)
set_tests_properties(examples/readme_table PROPERTIES LABELS real)
