# SPDX-License-Identifier: Apache-2.0
# cmake --install [--component NAME]. Everything that is installed finds everything else from where it lies, so that the
# whole may be moved.
#
#   library       libkelnn.so.1; in a directory of the library's own the recorder and, on a PC, the runtime
#   development   the C header, libkelnn.so, libkelnn.a, kelnn.pc, the CMake package
#   kit           libkelnn_kit.a, its header and the C++ header, kelnn-kit.pc
#   tool          kelnn, its modules, its man page and what completes its words in a shell (tools/CMakeLists.txt)
#   models        the sample networks, packed
#   python        the Python module
#   documentation the reference (cmake/documentation.cmake)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The way from one installed directory to another.
function(kelnn_way_between result from to)
  file(RELATIVE_PATH way /prefix/${from} /prefix/${to})
  string(REGEX REPLACE "/$" "" way "${way}")
  set(${result} ${way} PARENT_SCOPE)
endfunction()

foreach(component library development kit tool models python documentation)  # each alone, too
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT ${component})
endforeach()
set(kelnn_private_libdir ${CMAKE_INSTALL_LIBDIR}/kelnn)
set(kelnn_targets)
set(kelnn_libs_private "-lstdc++ -lm")
if(TARGET kelnn)
  list(APPEND kelnn_targets kelnn)
  if(KEL_NN_PC)
    set_target_properties(kelnn PROPERTIES INSTALL_RPATH "$ORIGIN/kelnn")
    install(TARGETS jzdl_host EXPORT kelnnTargets
      LIBRARY DESTINATION ${kelnn_private_libdir} COMPONENT library NAMELINK_SKIP)
    set(kelnn_libs_private "-L\${libdir}/kelnn -l:libjzdl_host.so.${PROJECT_VERSION_MAJOR} ${kelnn_libs_private}")
  else()
    set(kelnn_libs_private "-ljzdl.m ${kelnn_libs_private}")
  endif()
endif()
if(KEL_NN_STATIC OR NOT TARGET kelnn)
  list(APPEND kelnn_targets kelnn_static)
  set_target_properties(kelnn_static PROPERTIES EXPORT_NAME static EXCLUDE_FROM_ALL OFF)
endif()
install(TARGETS ${kelnn_targets} EXPORT kelnnTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/kel_nn.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

if(TARGET kelnn_record)
  install(TARGETS kelnn_record LIBRARY DESTINATION ${kelnn_private_libdir} COMPONENT library)
endif()

set_target_properties(kelnn_kit PROPERTIES EXPORT_NAME kit)
set_target_properties(kelnn_cpp PROPERTIES EXPORT_NAME cpp)
install(TARGETS kelnn_kit kelnn_cpp EXPORT kelnnKitTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT kit
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET kelnn_kit_verify)
  set_target_properties(kelnn_kit_verify PROPERTIES EXPORT_NAME kit_verify)
  install(TARGETS kelnn_kit_verify EXPORT kelnnKitTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT kit
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES include/kel_nn_kit_verify.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT kit)
endif()
install(FILES include/kel_nn_kit.h include/kel_nn.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT kit)

# pkg-config
kelnn_way_between(kelnn_prefix_from_pc ${CMAKE_INSTALL_LIBDIR}/pkgconfig "")
foreach(module kelnn kelnn-kit)
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/kelnn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/kelnn-kit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT kit)

# CMake
set(kelnn_package ${CMAKE_INSTALL_LIBDIR}/cmake/kelnn)
configure_package_config_file(cmake/kelnnConfig.cmake.in kelnnConfig.cmake INSTALL_DESTINATION ${kelnn_package}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(kelnnConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelnnConfig.cmake ${PROJECT_BINARY_DIR}/kelnnConfigVersion.cmake
  DESTINATION ${kelnn_package} COMPONENT development)
install(EXPORT kelnnTargets NAMESPACE kelnn:: DESTINATION ${kelnn_package} COMPONENT development)
install(EXPORT kelnnKitTargets NAMESPACE kelnn:: DESTINATION ${kelnn_package} COMPONENT kit)
