# SPDX-License-Identifier: Apache-2.0
# kelnn_runtime_headers: where <jzdl.h> comes from; kelnn_runtime: what is linked. The board and the PC differ in nothing
# else.

add_library(kelnn_runtime_headers INTERFACE)
if(KEL_NN_RUNTIME_SDK)
  find_library(KEL_NN_JZDL NAMES jzdl.m jzdl PATHS "${KEL_NN_RUNTIME_SDK}/lib" NO_DEFAULT_PATH
               NO_CMAKE_FIND_ROOT_PATH)
  if(NOT KEL_NN_JZDL)
    message(FATAL_ERROR "No libjzdl.m.so below ${KEL_NN_RUNTIME_SDK}/lib")
  endif()
  target_include_directories(kelnn_runtime_headers SYSTEM INTERFACE "${KEL_NN_RUNTIME_SDK}/include")
  set(kelnn_runtime "${KEL_NN_JZDL}")
  # Whoever links an installed libkelnn.a has the SDK elsewhere.
  set(kelnn_runtime_of_static "$<BUILD_INTERFACE:${KEL_NN_JZDL}>" $<INSTALL_INTERFACE:-ljzdl.m>)
else()
  target_include_directories(kelnn_runtime_headers INTERFACE "${PROJECT_SOURCE_DIR}/plat/host/include")
  set(kelnn_runtime jzdl_host)
  set(kelnn_runtime_of_static jzdl_host)
endif()
