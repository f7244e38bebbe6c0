# Install rules and the package configuration that lets a client write
# find_package(zel) and link zel::zel.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS zel EXPORT zelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# A cross-built DLL travels with the compiler's runtime DLLs it needs.
if(ZEL_RUNTIME_DLLS)
  install(FILES ${ZEL_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(zel_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zel)
install(EXPORT zelTargets NAMESPACE zel:: DESTINATION ${zel_cmake_dir})
configure_package_config_file(cmake/zelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zelConfig.cmake INSTALL_DESTINATION ${zel_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zelConfig.cmake
  ${PROJECT_BINARY_DIR}/zelConfigVersion.cmake DESTINATION ${zel_cmake_dir})
