# cmake --install: the library, the kit, their headers and a pkg-config file; on a PC the runtime and the tool too.
include(GNUInstallDirs)
install(TARGETS kelnn LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS kelnn_kit ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/kel_nn.h include/kel_nn.hpp include/kel_nn_kit.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(KEL_NN_STATIC)
  install(TARGETS kelnn_static ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
configure_file(cmake/kelnn.pc.in kelnn.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kelnn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(KEL_NN_PC)
  install(TARGETS jzdl_host LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
  set_target_properties(kelnn PROPERTIES INSTALL_RPATH "$ORIGIN")  # where the runtime lies, too
endif()
