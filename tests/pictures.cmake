# The pictures of the manual, by name: fonts, and with them pixels, differ between machines. The program is
# built here because the test asks it for the names.
if(TARGET orvane-pictures)
    set_target_properties(orvane-pictures PROPERTIES EXCLUDE_FROM_ALL OFF)
    get_target_property(widget_headers QtAgentWidgets QTAGENT_PUBLIC_HEADERS)
    add_test(NAME pictures_are_complete
        COMMAND "${CMAKE_COMMAND}" -D "PICTURES_PROGRAM=$<TARGET_FILE:orvane-pictures>"
            -D "WIDGET_HEADERS=${widget_headers}" -D "PICTURE_DIR=${PROJECT_SOURCE_DIR}/docs/images"
            -P "${CMAKE_CURRENT_SOURCE_DIR}/checkpictures.cmake")
    set_tests_properties(pictures_are_complete PROPERTIES ENVIRONMENT "${test_environment};${full_stacks}")
endif()
