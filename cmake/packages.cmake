# SPDX-License-Identifier: Apache-2.0
# cpack: Debian packages (-G DEB, for a PC), or one archive of everything that is installed (-G TGZ, for a firmware's tree).
set(CPACK_PACKAGE_NAME kelnn)
set(CPACK_PACKAGE_VENDOR "the libkelnn authors")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME kelnn-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR TGZ)

# ----- Debian: the revision and who packs it have one home, debian/changelog.
set(directory ${PROJECT_SOURCE_DIR}/debian)
file(STRINGS ${directory}/changelog first_line LIMIT_COUNT 1)
string(REGEX MATCH "\\(([0-9.]+)-([0-9]+)\\)" match "${first_line}")
if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "debian/changelog begins with ${CMAKE_MATCH_1}, this is ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})
set(version ${PROJECT_VERSION}-${CMAKE_MATCH_2})
file(STRINGS ${directory}/changelog signature REGEX "^ -- " LIMIT_COUNT 1)
string(REGEX REPLACE "^ -- (.*>).*" "\\1" CPACK_DEBIAN_PACKAGE_MAINTAINER "${signature}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kelnn)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/plat/host)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian.cmake)
set(CPACK_KELNN_DEBIAN ${directory})

# kelnn_package(GROUP NAME SECTION COMPONENTS... DEPENDS packages RECOMMENDS packages DESCRIPTION text)
macro(kelnn_package group name section)
  cmake_parse_arguments(package "" "DEPENDS;RECOMMENDS;ARCHITECTURE;DESCRIPTION" "COMPONENTS" ${ARGN})
  if(package_UNPARSED_ARGUMENTS)  # a semicolon ends an argument, and a description with it
    message(FATAL_ERROR "${name}: not understood: ${package_UNPARSED_ARGUMENTS}")
  endif()
  string(TOUPPER ${group} GROUP)
  foreach(component ${package_COMPONENTS})
    list(APPEND kelnn_components ${component})
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_COMPONENT_${COMPONENT}_GROUP ${group})
  endforeach()
  set(CPACK_DEBIAN_${GROUP}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${GROUP}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${GROUP}_DESCRIPTION "${package_DESCRIPTION}")
  set(CPACK_DEBIAN_${GROUP}_PACKAGE_DEPENDS "${package_DEPENDS}")
  set(CPACK_DEBIAN_${GROUP}_PACKAGE_RECOMMENDS "${package_RECOMMENDS}")
  if(package_ARCHITECTURE)
    set(CPACK_DEBIAN_${GROUP}_PACKAGE_ARCHITECTURE ${package_ARCHITECTURE})
    set(CPACK_DEBIAN_${GROUP}_PACKAGE_SHLIBDEPS OFF)
  endif()
  list(APPEND CPACK_KELNN_PACKAGES ${group}=${name})
endmacro()

set(kelnn_components)
kelnn_package(library libkelnn1 libs COMPONENTS library DESCRIPTION
"neural-network tasks for small cameras: the library
Finds faces, landmarks, people and four kinds of things in pictures, compares
faces, hears a baby cry and notices motion. It is made for a camera's chip. On
a PC it runs ONNX networks over OpenCV.")
kelnn_package(development libkelnn-dev libdevel COMPONENTS development kit DEPENDS "libkelnn1 (= ${version})" DESCRIPTION
"neural-network tasks for small cameras: headers and static libraries
For programs in C and C++: the headers of libkelnn, of its kit, which makes a
task's input from a camera's frame, and of the C++ objects over both, and files
for pkg-config and CMake.")
if(TARGET kelnn_docs)
  kelnn_package(documentation libkelnn-doc doc COMPONENTS documentation ARCHITECTURE all DESCRIPTION
"neural-network tasks for small cameras: reference
Every function and object of libkelnn in C and C++, with examples, and pages on
installing it, its inputs, models, limits and costs.")
endif()
if(TARGET kelnn_cli)
  kelnn_package(tool kelnn science COMPONENTS tool DEPENDS "libkelnn1 (= ${version})" RECOMMENDS "kelnn-models" DESCRIPTION
"neural-network tasks for small cameras: the command line
Runs the tasks of libkelnn on pictures, videos, cameras and sounds, packs
networks as models, says what is wrong with models and measures how good
they are.")
endif()
if(TARGET kelnn_models)
  kelnn_package(models kelnn-models science COMPONENTS models ARCHITECTURE all DESCRIPTION
"neural-network tasks for small cameras: sample networks
A small network for each task of libkelnn. They show that everything works, are
trained on drawings and on a few photographs, rendered people and recordings,
and miss most of what is real. models-licences.txt says what they learnt from.")
endif()
if(TARGET kelnn_python)
  # The module is built for one minor version of Python.
  math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
  kelnn_package(python python3-kelnn python COMPONENTS python DEPENDS
    "libkelnn1 (= ${version}), python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next_minor}), python3-numpy" DESCRIPTION
"neural-network tasks for small cameras: the Python module
Runs the tasks of libkelnn on numpy arrays and gives boxes, features and
probabilities as Python objects.")
endif()
set(CPACK_COMPONENTS_ALL ${kelnn_components})

# What the library exports, for dpkg-shlibdeps.
set(control ${PROJECT_BINARY_DIR}/debian)
file(STRINGS ${PROJECT_SOURCE_DIR}/tests/exports.txt names REGEX "^[a-z]")
set(symbols "libkelnn.so.${PROJECT_VERSION_MAJOR} libkelnn1 #MINVER#\n KELNN_1.3@KELNN_1.3 1.3.19\n")
string(REPLACE " #MINVER#" "" symbols "${symbols}")
foreach(name ${names})
  string(APPEND symbols " ${name}@KELNN_1.3 1.3.19\n")
endforeach()
file(WRITE ${control}/symbols "${symbols}")
file(WRITE ${control}/shlibs "libkelnn ${PROJECT_VERSION_MAJOR} libkelnn1 (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/symbols ${control}/shlibs ${control}/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
