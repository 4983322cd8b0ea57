# The pages keep up with the code.
qtagent_add_test(tst_manual)
target_compile_definitions(tst_manual PRIVATE
    "QTAGENT_PROJECT_DIR=\"${PROJECT_SOURCE_DIR}\""
    "QTAGENT_MINOR_VERSION=\"${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}\"")

# The reference is complete, and a gap in it would be reported.
if(NOT TARGET docs)
    return()
endif()

add_test(NAME manual_builds
    COMMAND "${CMAKE_COMMAND}" --build "${PROJECT_BINARY_DIR}" --config $<CONFIG> --target docs)
set_tests_properties(manual_builds PROPERTIES RESOURCE_LOCK build_tree)

add_test(NAME manual_reports_every_gap
    COMMAND "${CMAKE_COMMAND}"
        -D "DOXYGEN=$<TARGET_FILE:Doxygen::doxygen>"
        -D "DOXYFILE=${PROJECT_BINARY_DIR}/docs/Doxyfile"
        -D "FIND_GAPS=${PROJECT_SOURCE_DIR}/docs/findgaps.cmake"
        -D "WORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/manual"
        -P "${CMAKE_CURRENT_SOURCE_DIR}/checkmanual.cmake")
