# Installation as firmware build systems stage it (cmake --install with
# DESTDIR): the library with its SONAME links, the headers a C or C++ caller
# needs, the schema files, the tools, a pkg-config file and a CMake package
# (find_package(linkward) gives linkward::linkward).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# linkward.h and the generated headers sit side by side, as in the build tree,
# because the generated ones include each other by bare name.
set(LINKWARD_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/linkward)
set(LINKWARD_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/linkward)

install(TARGETS linkward EXPORT linkward-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${LINKWARD_INSTALL_INCLUDEDIR})
set(message_headers ${LINKWARD_MESSAGE_SOURCES})
list(FILTER message_headers INCLUDE REGEX "\\.h$")
install(FILES src/linkward.h ${message_headers}
  DESTINATION ${LINKWARD_INSTALL_INCLUDEDIR})
file(GLOB schema_files ${CMAKE_CURRENT_SOURCE_DIR}/proto/*.proto)
install(FILES ${schema_files} DESTINATION ${CMAKE_INSTALL_DATADIR}/linkward/proto)

install(TARGETS linkward_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(EXPORT linkward-targets NAMESPACE linkward::
  DESTINATION ${LINKWARD_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/linkward-config.cmake.in
  ${CMAKE_BINARY_DIR}/linkward-config.cmake
  INSTALL_DESTINATION ${LINKWARD_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/linkward-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/linkward-config.cmake
              ${CMAKE_BINARY_DIR}/linkward-config-version.cmake
  DESTINATION ${LINKWARD_INSTALL_CMAKEDIR})

configure_file(cmake/linkward.pc.in ${CMAKE_BINARY_DIR}/linkward.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/linkward.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
