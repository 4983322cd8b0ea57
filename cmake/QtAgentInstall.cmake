include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/MireloQtAgent")

get_property(components DIRECTORY "${PROJECT_SOURCE_DIR}" PROPERTY QTAGENT_COMPONENTS)
get_property(component_modules DIRECTORY "${PROJECT_SOURCE_DIR}" PROPERTY QTAGENT_COMPONENT_MODULES)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/MireloQtAgentConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/MireloQtAgentConfig.cmake"
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/MireloQtAgentConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)

foreach(component IN LISTS components ITEMS "")
    install(EXPORT MireloQtAgent${component}Targets NAMESPACE MireloQtLib::
        DESTINATION "${package_dir}" COMPONENT development)
endforeach()
install(FILES
    "${PROJECT_BINARY_DIR}/MireloQtAgentConfig.cmake"
    "${PROJECT_BINARY_DIR}/MireloQtAgentConfigVersion.cmake"
    DESTINATION "${package_dir}" COMPONENT development)
