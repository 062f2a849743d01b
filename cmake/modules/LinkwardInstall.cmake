# Installation as firmware build systems stage it (cmake --install with
# DESTDIR), in three components:
#   runtime      the library and its SONAME link: all a device needs;
#   development  the link a linker looks for, linkward.h and the generated
#                headers, the schema files, a pkg-config file and a CMake
#                package (find_package(linkward) gives linkward::linkward);
#   tools        the linkward tool.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# linkward.h and the generated headers sit side by side, as in the build tree,
# because the generated ones include each other by bare name.
set(LINKWARD_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/linkward)
set(LINKWARD_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/linkward)

install(TARGETS linkward EXPORT linkward-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${LINKWARD_INSTALL_INCLUDEDIR})
set(message_headers ${LINKWARD_MESSAGE_SOURCES})
list(FILTER message_headers INCLUDE REGEX "\\.h$")
install(FILES src/linkward.h ${message_headers}
  DESTINATION ${LINKWARD_INSTALL_INCLUDEDIR} COMPONENT development)
file(GLOB schema_files ${CMAKE_CURRENT_SOURCE_DIR}/proto/*.proto)
install(FILES ${schema_files}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/linkward/proto COMPONENT development)

if(TARGET linkward_cli)
  install(TARGETS linkward_cli
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES docs/linkward.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()

install(EXPORT linkward-targets NAMESPACE linkward::
  DESTINATION ${LINKWARD_INSTALL_CMAKEDIR} COMPONENT development)
configure_package_config_file(cmake/package/linkward-config.cmake.in
  ${PROJECT_BINARY_DIR}/linkward-config.cmake
  INSTALL_DESTINATION ${LINKWARD_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/linkward-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/linkward-config.cmake
              ${PROJECT_BINARY_DIR}/linkward-config-version.cmake
              ${CMAKE_CURRENT_LIST_DIR}/linkward-protobuf-lite.cmake
  DESTINATION ${LINKWARD_INSTALL_CMAKEDIR} COMPONENT development)

# The prefix is found from where the .pc file is (${pcfiledir}), so that an
# install staged under DESTDIR or moved elsewhere reads its own files.
set(LINKWARD_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
cmake_path(RELATIVE_PATH LINKWARD_PC_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
configure_file(cmake/package/linkward.pc.in ${PROJECT_BINARY_DIR}/linkward.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/linkward.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
