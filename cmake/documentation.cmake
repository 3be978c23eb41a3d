# SPDX-License-Identifier: Apache-2.0
# kelnn_docs: the reference, where Doxygen is. With warnings as errors, what Doxygen has to say is one too.
find_program(KEL_NN_DOXYGEN doxygen)
mark_as_advanced(KEL_NN_DOXYGEN)
set(wanted OFF)
if(KEL_NN_PC AND KEL_NN_TOOLS AND kelnn_alone AND NOT kelnn_sanitized AND KEL_NN_DOXYGEN)
  set(wanted ON)
endif()
option(KEL_NN_DOCS "Build the reference (Doxygen)" ${wanted})
if(NOT KEL_NN_DOCS)
  return()
endif()
set(directory ${PROJECT_BINARY_DIR}/reference)
set(warnings_allowed --warnings-allowed)
if(KEL_NN_WERROR)
  set(warnings_allowed "")
endif()
file(GLOB sources CONFIGURE_DEPENDS include/* docs/*.md examples/*.c examples/*.cpp examples/*.py)
add_custom_command(OUTPUT ${directory}.stamp VERBATIM COMMENT "Writing the reference"
  COMMAND ${PROJECT_SOURCE_DIR}/scripts/document.sh ${warnings_allowed} ${directory}
  COMMAND ${CMAKE_COMMAND} -E touch ${directory}.stamp
  DEPENDS ${sources} docs/Doxyfile scripts/document.sh scripts/doxygen_filter.awk scripts/doxygen_page_filter.awk)
add_custom_target(kelnn_docs ALL DEPENDS ${directory}.stamp)
if(KEL_NN_INSTALL)
  include(GNUInstallDirs)
  install(DIRECTORY ${directory}/html DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libkelnn-doc COMPONENT documentation)
endif()
