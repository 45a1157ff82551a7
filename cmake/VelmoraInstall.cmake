include(CMakePackageConfigHelpers)

set(VELMORA_INSTALLED_TARGETS velmora_platform velmora)
if(VELMORA_BUILD_APP)
  list(APPEND VELMORA_INSTALLED_TARGETS velmora_app)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/app/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velmora
    FILES_MATCHING PATTERN "*.h")
endif()
install(TARGETS ${VELMORA_INSTALLED_TARGETS}
  EXPORT velmoraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velmora)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_SOURCE_DIR}/platform/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velmora
  FILES_MATCHING PATTERN "*.h")
install(EXPORT velmoraTargets
  NAMESPACE velmora::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/velmora)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/velmoraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velmoraConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/velmora)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velmoraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velmoraConfig.cmake
  ${PROJECT_BINARY_DIR}/velmoraConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/velmora)
