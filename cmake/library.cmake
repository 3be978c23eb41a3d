# SPDX-License-Identifier: Apache-2.0
# libkelnn.so, libkelnn.a, and kelnn_objects: the same code as objects, which the unit tests link.

set(kelnn_sources
  plat/jzt31/kel_nn_4cls_det.cpp
  plat/jzt31/kel_nn_engine.cpp
  plat/jzt31/kel_nn_grid_detector.cpp
  plat/jzt31/kel_nn_persondet.cpp
  plat/jzt31/kel_nn_pfld.cpp
  plat/jzt31/kel_nn_pir_filter.cpp
  plat/jzt31/kel_nn_ultraface.cpp
  src/kel_nn_common.cpp
  src/kel_nn_crydet.cpp
  src/kel_nn_face_classify.cpp
  src/kel_nn_facercg.cpp
  src/kel_nn_filter_bank.cpp
  src/kel_nn_frame_batch.cpp
  src/kel_nn_graph_run.cpp
  src/kel_nn_log.cpp
  src/kel_nn_log_energy.cpp
  src/kel_nn_mfcc.cpp
  src/kel_nn_person_classify.cpp
  src/kel_nn_postprocess.cpp
  src/kel_nn_resize.cpp
  src/kel_nn_resize_windows.cpp
  src/kel_nn_utils.cpp
  src/kel_nn_window_loops.cpp
)
# Where calls spend their time. A build without a PC part (KEL_NN_SMALL) optimises these for speed and all else for size;
# docs/porting.md says what that gives.
set(kelnn_hot_sources
  plat/jzt31/kel_nn_pir_filter.cpp
  plat/jzt31/kel_nn_ultraface.cpp
  src/kel_nn_common.cpp
  src/kel_nn_frame_batch.cpp
  src/kel_nn_log_energy.cpp
  src/kel_nn_resize.cpp
  src/kel_nn_resize_windows.cpp
  src/kel_nn_window_loops.cpp
)
foreach(source ${kelnn_sources})
  # What a log line shows as its file: the path from the root of the tree, wherever it is checked out.
  set_source_files_properties(${source} PROPERTIES COMPILE_DEFINITIONS KEL_NN_SOURCE_PATH="${source}")
  if(KEL_NN_SMALL)
    set(level -Os)
    if(source IN_LIST kelnn_hot_sources)
      set(level -O3)
    endif()
    set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:${level}>)
  endif()
endforeach()

function(add_kelnn_objects target)
  add_library(${target} OBJECT ${kelnn_sources})
  set_target_properties(${target} PROPERTIES CXX_STANDARD 14 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF)
  target_include_directories(${target} PUBLIC include PRIVATE src plat/jzt31)
  target_link_libraries(${target} PRIVATE kelnn_library_flags kelnn_runtime_headers)
endfunction()
add_kelnn_objects(kelnn_objects)
if(KEL_NN_TEST_WITHOUT_COPIES)
  add_kelnn_objects(kelnn_objects_without_copies)
  target_compile_definitions(kelnn_objects_without_copies PRIVATE KEL_NN_NO_TARGET_CLONES)
endif()

# libkelnn.a, for a program that is to hold only what it calls: link it with -Wl,--gc-sections. Built when asked for.
add_library(kelnn_static STATIC $<TARGET_OBJECTS:kelnn_objects>)
set_target_properties(kelnn_static PROPERTIES OUTPUT_NAME kelnn LINKER_LANGUAGE CXX)
target_include_directories(kelnn_static PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
if(NOT KEL_NN_STATIC)
  set_target_properties(kelnn_static PROPERTIES EXCLUDE_FROM_ALL ON)
endif()

if(KEL_NN_PC OR KEL_NN_RUNTIME_SDK)
  target_link_libraries(kelnn_static INTERFACE ${kelnn_runtime_of_static} m)
  add_library(kelnn SHARED $<TARGET_OBJECTS:kelnn_objects>)
  target_include_directories(kelnn PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  target_link_libraries(kelnn PRIVATE ${kelnn_runtime} m)
  # The map keeps instantiated standard templates from being exported beside the interface.
  target_link_options(kelnn PRIVATE ${kelnn_hardened_link} ${kelnn_no_undefined} -Wl,--as-needed -Wl,--gc-sections
    -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/libkelnn.map)
  if(KEL_NN_SMALL)  # The compiler's start files run constructors, and there are none.
    target_link_options(kelnn PRIVATE -nostartfiles)
  endif()
  set_target_properties(kelnn PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/libkelnn.map)
endif()
