# What C and C++ users expect: header, library, command, pkg-config file and CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS tolvenra EXPORT tolvenra-targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/tolvenra/tolvenra.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tolvenra)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET tolvenra_cli)
  install(TARGETS tolvenra_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tolvenra)
install(EXPORT tolvenra-targets NAMESPACE tolvenra:: FILE tolvenra-config.cmake
        DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tolvenra-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tolvenra-config-version.cmake
        DESTINATION ${package_folder})

# The prefix follows from where the file lies, so that an installation may be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/tolvenra.pc.in tolvenra.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tolvenra.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
