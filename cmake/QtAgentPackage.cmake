# "cpack -G DEB" in the build tree makes one package of the demo and the assistant, with the libraries where they
# are shared.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvane-demo)
set(CPACK_PACKAGE_CONTACT "MireloQtAgent maintainers <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Demo of the ${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/openfolders.cmake")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_COMPONENTS_ALL demo libraries)
if(TARGET orvane-assistant)
    list(APPEND CPACK_COMPONENTS_ALL assistant)
    # Qt loads the driver of its database itself, where dpkg-shlibdeps does not see it.
    if(QTAGENT_QT_MAJOR EQUAL 6)
        set(CPACK_DEBIAN_PACKAGE_DEPENDS libqt6sql6-sqlite)
    else()
        set(CPACK_DEBIAN_PACKAGE_DEPENDS libqt5sql5-sqlite)
    endif()
endif()
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"The program has a page for each part of the library: streamed chat, tools
that a model may call, an agent that asks before a risky tool runs, prompt
templates, chains, answers from documents, and workflows. A mock model
answers where no other is configured. Orvane Assistant is a chat for every
day that keeps its conversations.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Its texts are Chinese, and so are those of Qt's own menus with the translations.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-wqy-microhei | fonts-noto-cjk")
if(QTAGENT_QT_MAJOR EQUAL 6)
    string(APPEND CPACK_DEBIAN_PACKAGE_RECOMMENDS ", qt6-translations-l10n")
else()
    string(APPEND CPACK_DEBIAN_PACKAGE_RECOMMENDS ", qttranslations5-l10n")
endif()

if(BUILD_SHARED_LIBS)
    # The package does not depend on the libraries that it holds, which dpkg-shlibdeps sees in the build tree.
    set(library_folders qtagent qtagent/widgets)
    if(TARGET orvane-assistant)
        list(APPEND CPACK_COMPONENTS_ALL store mcp)
        list(APPEND library_folders qtagent/store qtagent/mcp)
    endif()
    foreach(folder IN LISTS library_folders)
        list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/${folder}")
        foreach(config IN LISTS CMAKE_CONFIGURATION_TYPES)
            list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/${folder}/${config}")
        endforeach()
    endforeach()
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")
endif()

include(CPack)
