# Libraries, headers, CMake package and pkg-config files.
include(CMakePackageConfigHelpers)

# Symbols and debugging information stay in the build directory; the tool alone would be a hundred times its size.
option(PERENNA_INSTALL_STRIPPED "Strip what is installed" ON)
if(PERENNA_INSTALL_STRIPPED)
  install(CODE "set(CMAKE_INSTALL_DO_STRIP TRUE)")
endif()

install(TARGETS perenna-util perenna-localaccessmanager EXPORT perenna-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/perenna
  FILES_MATCHING PATTERN "TN_*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/perenna
  FILES_MATCHING PATTERN "PN_*.h" PATTERN "LocalAccessManager.h")
if(TARGET perenna-access)
  install(TARGETS perenna-access RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/perenna)
install(EXPORT perenna-targets NAMESPACE Perenna:: DESTINATION ${package_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/perenna-config.cmake.in
  ${PROJECT_BINARY_DIR}/perenna-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/perenna-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/perenna-config.cmake ${PROJECT_BINARY_DIR}/perenna-config-version.cmake
  DESTINATION ${package_dir})

# Relative, since an installation may move or be made under another prefix.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/perenna-localaccessmanager.pc.in
  ${PROJECT_BINARY_DIR}/perenna-localaccessmanager.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/perenna-localaccessmanager.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
