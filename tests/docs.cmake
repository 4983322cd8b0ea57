# The pages keep up with the code. The pictures' program is built because the test asks it for their names.
qtagent_add_test(tst_manual)
target_compile_definitions(tst_manual PRIVATE
    "QTAGENT_PROJECT_DIR=\"${PROJECT_SOURCE_DIR}\""
    "QTAGENT_MINOR_VERSION=\"${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}\"")
if(TARGET orvane-pictures)
    set_target_properties(orvane-pictures PROPERTIES EXCLUDE_FROM_ALL OFF)
    set_tests_properties(tst_manual PROPERTIES
        ENVIRONMENT "${test_environment};ORVANE_PICTURES=$<TARGET_FILE:orvane-pictures>")
endif()
if(TARGET docs)
    add_test(NAME manual_builds
        COMMAND "${CMAKE_COMMAND}" --build "${PROJECT_BINARY_DIR}" --config $<CONFIG> --target docs)
    set_tests_properties(manual_builds PROPERTIES RESOURCE_LOCK build_tree)
endif()
