# The library as others get it: installed, and as a sub-directory. Both run the CMake of this build.
set(toolchain
    "-DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}"
    "-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}"
    "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
    "-DCMAKE_PREFIX_PATH=${CMAKE_PREFIX_PATH}")
set(prefix "${CMAKE_CURRENT_BINARY_DIR}/package/installed")

add_test(NAME package_installs
    COMMAND "${CMAKE_COMMAND}" --install "${PROJECT_BINARY_DIR}" --config $<CONFIG> --prefix "${prefix}")
set_tests_properties(package_installs PROPERTIES FIXTURES_SETUP installed_package)

add_test(NAME package_serves_the_examples
    COMMAND "${CMAKE_CTEST_COMMAND}"
        --build-and-test "${PROJECT_SOURCE_DIR}/examples" "${CMAKE_CURRENT_BINARY_DIR}/package/examples"
        --build-generator "${CMAKE_GENERATOR}"
        --build-options ${toolchain} "-DMireloQtAgent_ROOT=${prefix}"
        --test-command stream_reply)
set_tests_properties(package_serves_the_examples PROPERTIES
    FIXTURES_REQUIRED installed_package
    ENVIRONMENT "OPENAI_API_KEY=;DEEPSEEK_API_KEY="
    PASS_REGULAR_EXPRESSION "模拟模型")

add_test(NAME package_fits_in_a_subdirectory
    COMMAND "${CMAKE_COMMAND}" -G "${CMAKE_GENERATOR}" -S "${CMAKE_CURRENT_SOURCE_DIR}/subdirectory"
        -B "${CMAKE_CURRENT_BINARY_DIR}/package/subdirectory" ${toolchain}
        "-DQTAGENT_SOURCE_DIR=${PROJECT_SOURCE_DIR}" -DQTAGENT_QT_MAJOR=${QTAGENT_QT_MAJOR})

# The code in README.md is the main function of the example.
add_test(NAME readme_quotes_the_example
    COMMAND "${CMAKE_COMMAND}" -D "SOURCE_DIR=${PROJECT_SOURCE_DIR}"
        -P "${CMAKE_CURRENT_SOURCE_DIR}/checkreadme.cmake")
