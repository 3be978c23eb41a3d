# SPDX-License-Identifier: Apache-2.0
# What another project links: kelnn::kelnn (the library), kelnn::kit (the kit too) and kelnn::cpp (the C++ objects over
# both), and kelnn::static, libkelnn.a. The same names are found by find_package(kelnn) after an installation.
add_library(kelnn_cpp INTERFACE)
target_link_libraries(kelnn_cpp INTERFACE kelnn_kit)
target_compile_features(kelnn_cpp INTERFACE cxx_std_17)

add_library(kelnn::kit ALIAS kelnn_kit)
add_library(kelnn::cpp ALIAS kelnn_cpp)
if(TARGET kelnn_kit_verify)
  add_library(kelnn::kit_verify ALIAS kelnn_kit_verify)
endif()
add_library(kelnn::static ALIAS kelnn_static)
if(TARGET kelnn)
  add_library(kelnn::kelnn ALIAS kelnn)
else()  # without a runtime there is no shared library
  add_library(kelnn::kelnn ALIAS kelnn_static)
endif()
