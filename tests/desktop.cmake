# The demo as others get it: its menu entry and description, the installed program, and the Debian package,
# which is made, unpacked and used.
if(NOT TARGET orvanedemo)
    return()
endif()

function(qtagent_find_tool name package result)
    string(MAKE_C_IDENTIFIER "QTAGENT_${name}" cache_entry)
    find_program(${cache_entry} ${name})
    mark_as_advanced(${cache_entry})
    if(NOT ${cache_entry})
        message(STATUS "${name} is missing (${package} on Debian): some tests of the demo are left out")
    endif()
    set(${result} "${${cache_entry}}" PARENT_SCOPE)
endfunction()

qtagent_find_tool(desktop-file-validate desktop-file-utils desktop_file_validate)
qtagent_find_tool(appstreamcli appstream appstreamcli)
qtagent_find_tool(dpkg-deb dpkg dpkg_deb)
qtagent_find_tool(dpkg-query dpkg dpkg_query)
qtagent_find_tool(dpkg-shlibdeps dpkg-dev dpkg_shlibdeps)
qtagent_find_tool(file file file)

# The address of a home page is the owner's to give. Later versions of AppStream warn where there is none, and
# a warning sets the exit status; any other is a failure. Regular expressions here know no look-ahead.
set(appstream_verdict
    PASS_REGULAR_EXPRESSION "Validation (was successful|failed: warnings: 1[^0-9])"
    FAIL_REGULAR_EXPRESSION "E: |W: [^ ]+ ([^u]|u[^r]|ur[^l]|url[^-]|url-[^h])")

# Further arguments begin the names of the tests.
function(qtagent_check_desktop_entry folder id)
    set(desktop_dir "${PROJECT_BINARY_DIR}/${folder}/desktop")
    if(desktop_file_validate)
        add_test(NAME ${ARGN}desktop_file_is_valid
            COMMAND "${desktop_file_validate}" "${desktop_dir}/${id}.desktop")
        # Warnings and hints leave the exit status at 0.
        set_tests_properties(${ARGN}desktop_file_is_valid PROPERTIES FAIL_REGULAR_EXPRESSION ".")
    endif()
    if(appstreamcli)
        add_test(NAME ${ARGN}metainfo_is_valid
            COMMAND "${appstreamcli}" validate --no-net "${desktop_dir}/${id}.metainfo.xml")
        set_tests_properties(${ARGN}metainfo_is_valid PROPERTIES ${appstream_verdict})
    endif()
endfunction()
qtagent_check_desktop_entry(demo com.mirelo.OrvaneDemo)
if(TARGET orvaneassistant)
    qtagent_check_desktop_entry(assistant com.mirelo.OrvaneAssistant assistant_)
endif()

if(NOT UNIX OR APPLE)
    return()
endif()

add_executable(tst_installeddemo tst_installeddemo.cpp)
qtagent_configure_target(tst_installeddemo PLAIN_LITERALS)
target_link_libraries(tst_installeddemo PRIVATE Qt${QTAGENT_QT_MAJOR}::Test Qt${QTAGENT_QT_MAJOR}::Gui)

# Uses the demo that a fixture has installed to a folder.
function(qtagent_test_installed_demo name fixture folder)
    add_test(NAME ${name}_puts_the_demo_into_the_menu COMMAND tst_installeddemo)
    add_test(NAME ${name}_has_the_style_sheet COMMAND tst_tour windowHasTheGroundOfTheStyleSheet)
    set_tests_properties(${name}_puts_the_demo_into_the_menu ${name}_has_the_style_sheet PROPERTIES
        FIXTURES_REQUIRED ${fixture}
        ENVIRONMENT "${test_environment};ORVANE_PREFIX=${folder};ORVANE_TOUR=${folder}/lib/orvane-demo/orvane-tour"
        FAIL_REGULAR_EXPRESSION "${unannounced_warning}")
endfunction()

qtagent_test_installed_demo(package installed_package "${prefix}")

# The dependencies of a package are those of the packages that its libraries came from.
set(qt_is_packaged FALSE)
if(dpkg_query)
    get_target_property(qt_library Qt${QTAGENT_QT_MAJOR}::Core LOCATION)
    file(REAL_PATH "${qt_library}" qt_library)
    execute_process(COMMAND "${dpkg_query}" --search "${qt_library}"
        RESULT_VARIABLE search_status OUTPUT_QUIET ERROR_QUIET)
    if(search_status EQUAL 0)
        set(qt_is_packaged TRUE)
    else()
        message(STATUS "Qt comes from no Debian package: the demo's package is not tested")
    endif()
endif()
if(NOT PROJECT_IS_TOP_LEVEL OR NOT qt_is_packaged OR NOT dpkg_deb OR NOT dpkg_shlibdeps OR NOT file)
    return()
endif()

set(deb_dir "${CMAKE_CURRENT_BINARY_DIR}/deb")
set(unpacked_dir "${deb_dir}/unpacked")

add_test(NAME deb_unpacks
    COMMAND "${CMAKE_COMMAND}"
        -D "CPACK=${CMAKE_CPACK_COMMAND}" -D "DPKG_DEB=${dpkg_deb}"
        -D "BUILD_DIR=${PROJECT_BINARY_DIR}" -D "CONFIG=$<CONFIG>"
        -D "DEB_DIR=${deb_dir}" -D "UNPACKED_DIR=${unpacked_dir}"
        -D "VERSION=${PROJECT_VERSION}" -D "QT_MAJOR=${QTAGENT_QT_MAJOR}"
        -P "${CMAKE_CURRENT_SOURCE_DIR}/unpackdeb.cmake")
set_tests_properties(deb_unpacks PROPERTIES
    FIXTURES_SETUP unpacked_deb
    RESOURCE_LOCK build_tree)

if(appstreamcli)
    add_test(NAME deb_describes_the_demo COMMAND "${appstreamcli}" validate-tree --no-net "${unpacked_dir}")
    set_tests_properties(deb_describes_the_demo PROPERTIES
        FIXTURES_REQUIRED unpacked_deb
        ${appstream_verdict})
endif()

qtagent_test_installed_demo(deb unpacked_deb "${unpacked_dir}/usr")
