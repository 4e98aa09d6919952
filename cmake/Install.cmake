include(CMakePackageConfigHelpers)

install(TARGETS wavoryx EXPORT wavoryxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/wavoryx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

install(EXPORT wavoryxTargets NAMESPACE wavoryx::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/wavoryx)
configure_package_config_file(cmake/wavoryxConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/wavoryxConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/wavoryx)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/wavoryxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/wavoryxConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/wavoryxConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/wavoryx)

# The .pc file finds its prefix from its own place, so that the package can
# be installed with `cmake --install --prefix` anywhere.
file(RELATIVE_PATH WAVORYX_PC_PREFIX_FROM_PCDIR
  "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" WAVORYX_PC_PREFIX_FROM_PCDIR "${WAVORYX_PC_PREFIX_FROM_PCDIR}")
configure_file(cmake/wavoryx.pc.in ${CMAKE_CURRENT_BINARY_DIR}/wavoryx.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/wavoryx.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
