# SPDX-License-Identifier: Apache-2.0
# Finds single OpenCV modules as targets opencv_<module>. Debian has CMake's own files for OpenCV only in the package
# of all its modules, which brings hundreds of others along.
find_path(OpenCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
set(OpenCV_required OpenCV_INCLUDE_DIR)
foreach(module ${OpenCV_FIND_COMPONENTS})
  find_library(OpenCV_${module}_LIBRARY opencv_${module})
  list(APPEND OpenCV_required OpenCV_${module}_LIBRARY)
  if(OpenCV_${module}_LIBRARY AND NOT TARGET opencv_${module})
    add_library(opencv_${module} UNKNOWN IMPORTED)
    set_target_properties(opencv_${module} PROPERTIES
      IMPORTED_LOCATION "${OpenCV_${module}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${OpenCV_INCLUDE_DIR}")
  endif()
endforeach()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCV REQUIRED_VARS ${OpenCV_required})
