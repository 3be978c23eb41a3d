# cmake --install: the library, its header and a pkg-config file; on a PC the runtime and the tool too.
include(GNUInstallDirs)
install(TARGETS kelnn LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/kel_nn.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/kelnn.pc.in kelnn.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kelnn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(KEL_NN_PC)
  install(TARGETS jzdl_host LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
endif()
