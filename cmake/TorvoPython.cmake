# Finds what the Python package is built with: an interpreter that has numpy, and pybind11. The interpreter is the one
# of TORVO_PYTHON, by default Debian's. What is missing is named, with what to do.

set(TORVO_PYTHON /usr/bin/python3 CACHE FILEPATH "The interpreter that the Python package is built for")
if(NOT EXISTS ${TORVO_PYTHON})
    message(FATAL_ERROR "There is no Python interpreter ${TORVO_PYTHON}. Name one with -DTORVO_PYTHON=<path>, or "
        "install python3.")
endif()
set(Python3_EXECUTABLE ${TORVO_PYTHON})
find_package(Python3 COMPONENTS Interpreter Development.Module)
if(NOT Python3_Development.Module_FOUND)
    message(FATAL_ERROR "${TORVO_PYTHON} has no headers to build a module with. Install python3-dev, or name another "
        "interpreter with -DTORVO_PYTHON=<path>.")
endif()

execute_process(COMMAND ${TORVO_PYTHON} -c "import numpy" RESULT_VARIABLE no_numpy OUTPUT_QUIET ERROR_QUIET)
if(no_numpy)
    message(FATAL_ERROR "${TORVO_PYTHON} has no numpy, which the package computes with. Install python3-numpy (or "
        "numpy with pip), or name another interpreter with -DTORVO_PYTHON=<path>.")
endif()

# pybind11 as Debian installs it, or as pip does, where the package itself says where it is.
set(PYBIND11_FINDPYTHON ON)
find_package(pybind11 2.10 CONFIG QUIET)
if(NOT pybind11_FOUND)
    execute_process(COMMAND ${TORVO_PYTHON} -m pybind11 --cmakedir
        OUTPUT_VARIABLE pybind11_ROOT OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    find_package(pybind11 2.10 CONFIG QUIET)
endif()
if(NOT pybind11_FOUND)
    message(FATAL_ERROR "There is no pybind11 from 2.10 on. Install pybind11-dev, or pybind11 with pip for "
        "${TORVO_PYTHON}.")
endif()
