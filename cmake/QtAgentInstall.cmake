include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/MireloQtAgent")

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/MireloQtAgentConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/MireloQtAgentConfig.cmake"
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/MireloQtAgentConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)

install(EXPORT MireloQtAgentTargets NAMESPACE MireloQtLib::
    DESTINATION "${package_dir}" COMPONENT development)
install(FILES
    "${PROJECT_BINARY_DIR}/MireloQtAgentConfig.cmake"
    "${PROJECT_BINARY_DIR}/MireloQtAgentConfigVersion.cmake"
    DESTINATION "${package_dir}" COMPONENT development)
