# What `cmake --install` puts in place. The components "library" and "headers" are what programs
# need that use the library; "twigctl" is the tool.
include(CMakePackageConfigHelpers)

install(TARGETS twigctl
  RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT twigctl)

install(TARGETS zelto EXPORT zeltoTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)

install(CODE "
  set(source_directory \"${PROJECT_SOURCE_DIR}\")
  set(staging_directory \"${PROJECT_BINARY_DIR}/installed-headers\")
  set(include_directory \"${CMAKE_INSTALL_INCLUDEDIR}\")
  include(\"${PROJECT_SOURCE_DIR}/cmake/InstallHeaders.cmake\")"
  COMPONENT headers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/zelto)
configure_package_config_file(cmake/zeltoConfig.cmake.in zeltoConfig.cmake
  INSTALL_DESTINATION ${package_directory} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(zeltoConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/zeltoConfig.cmake ${PROJECT_BINARY_DIR}/zeltoConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT library)
install(EXPORT zeltoTargets NAMESPACE zelto::
  DESTINATION ${package_directory} COMPONENT library)

# Like the CMake package, it finds the rest from where it lies.
set(pkgconfig_directory ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig ${pkgconfig_directory} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH include_from_pkgconfig ${pkgconfig_directory} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/zelto.pc.in zelto.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelto.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT library)
