# Install rules: the shared library, the public headers (cmake/ZndvrPublicHeaders.cmake)
# under include/zndvr/<folder>/, a CMake package (find_package(zndvr) gives zndvr::zndvr,
# which asks for C++20) and a pkg-config file. Both find the prefix from where they lie,
# so an installed tree can be moved.
include(CMakePackageConfigHelpers)

install(TARGETS zndvr EXPORT zndvrTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zndvr)
foreach(header IN LISTS ZNDVR_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zndvr/${folder})
endforeach()

install(EXPORT zndvrTargets NAMESPACE zndvr:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zndvr)
configure_package_config_file(cmake/zndvrConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/zndvrConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zndvr)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zndvrConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zndvrConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/zndvrConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zndvr)

# The way from the pkg-config directory back to the prefix: "../.." for lib/pkgconfig.
file(RELATIVE_PATH ZNDVR_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ZNDVR_PC_TO_PREFIX ${ZNDVR_PC_TO_PREFIX})
configure_file(cmake/zndvr.pc.in ${CMAKE_CURRENT_BINARY_DIR}/zndvr.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zndvr.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(TARGETS zndvr_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
