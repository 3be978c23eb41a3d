# SPDX-License-Identifier: Apache-2.0
# The Python module, where a PC has pybind11: for Debian's interpreter, whatever else is on the PATH.
set(wanted OFF)
# Not with sanitizers, which the interpreter would have to be started with.
if(KEL_NN_PC AND kelnn_alone AND NOT CMAKE_CROSSCOMPILING AND NOT CMAKE_VERSION VERSION_LESS 3.18 AND
   NOT kelnn_sanitized)
  if(NOT Python_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python_EXECUTABLE /usr/bin/python3)
  endif()
  find_package(Python COMPONENTS Interpreter Development.Module QUIET)
  if(Python_FOUND)
    find_package(pybind11 2.10 CONFIG QUIET)
    set(wanted ${pybind11_FOUND})
  endif()
endif()
option(KEL_NN_PYTHON "Build the Python module (pybind11)" ${wanted})
if(KEL_NN_PYTHON)
  find_package(Python REQUIRED COMPONENTS Interpreter Development.Module)
  find_package(pybind11 2.10 CONFIG REQUIRED)
  add_subdirectory(python)
endif()
