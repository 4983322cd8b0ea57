# The demo as others get it: its menu entry and description, and the installed program.
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

set(desktop_dir "${PROJECT_BINARY_DIR}/demo/desktop")

if(desktop_file_validate)
    add_test(NAME desktop_file_is_valid
        COMMAND "${desktop_file_validate}" "${desktop_dir}/com.mirelo.OrvaneDemo.desktop")
    # Warnings and hints leave the exit status at 0.
    set_tests_properties(desktop_file_is_valid PROPERTIES FAIL_REGULAR_EXPRESSION ".")
endif()
if(appstreamcli)
    add_test(NAME metainfo_is_valid
        COMMAND "${appstreamcli}" validate --no-net "${desktop_dir}/com.mirelo.OrvaneDemo.metainfo.xml")
    set_tests_properties(metainfo_is_valid PROPERTIES FAIL_REGULAR_EXPRESSION "W: ")
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
