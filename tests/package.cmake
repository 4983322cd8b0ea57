# The library as others get it: static as a sub-directory, shared by FetchContent, and both installed. All run the CMake
# of this build, and each builds and runs the programs in stranger/, with one translation unit a library: file by file
# this build does it.
string(REPLACE ";" "\\;" prefix_path "${CMAKE_PREFIX_PATH}")
get_property(components DIRECTORY "${PROJECT_SOURCE_DIR}" PROPERTY QTAGENT_COMPONENTS)
string(REPLACE ";" "\\;" components "${components}")
set(toolchain
    "-DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}"
    "-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}"
    "-DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}"
    "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
    "-DCMAKE_PREFIX_PATH=${prefix_path}")
set(package_dir "${CMAKE_CURRENT_BINARY_DIR}/package")

# The test <name> configures, builds and tests the project in <source_dir>. Further arguments are options of
# its configuration.
function(qtagent_add_project_test name source_dir)
    add_test(NAME ${name}
        COMMAND "${CMAKE_CTEST_COMMAND}" --build-and-test "${source_dir}" "${package_dir}/${name}"
            --build-generator "${CMAKE_GENERATOR}"
            --build-options ${toolchain} ${ARGN}
            --test-command "${CMAKE_CTEST_COMMAND}" --output-on-failure --no-tests=error)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${test_environment}")
endfunction()

function(qtagent_add_stranger_test name library_from)
    qtagent_add_project_test(${name} "${CMAKE_CURRENT_SOURCE_DIR}/stranger"
        "-DLIBRARY_FROM=${library_from}"
        "-DQTAGENT_VERSION=${PROJECT_VERSION}"
        "-DQTAGENT_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
        "-DQTAGENT_QT_MAJOR=${QTAGENT_QT_MAJOR}"
        "-DQTAGENT_COMPONENTS=${components}"
        ${ARGN})
endfunction()

set(one_unit -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0)
qtagent_add_stranger_test(stranger_has_a_subdirectory subdirectory -DBUILD_SHARED_LIBS=OFF ${one_unit})
qtagent_add_stranger_test(stranger_fetches_the_content fetchcontent -DBUILD_SHARED_LIBS=ON ${one_unit})
set(static_build stranger_has_a_subdirectory)
set(shared_build stranger_fetches_the_content)
foreach(linkage IN ITEMS static shared)
    set(finds_package stranger_finds_the_package_${linkage})
    # The blank, and the move to it, show that the package depends on no place.
    set(prefix "${package_dir}/${linkage} package")

    add_test(NAME package_installs_${linkage}
        COMMAND "${CMAKE_COMMAND}" -D "BUILD_DIR=${package_dir}/${${linkage}_build}" -D "CONFIG=$<CONFIG>"
            -D "PREFIX=${prefix}" -P "${CMAKE_CURRENT_SOURCE_DIR}/installandmove.cmake")
    qtagent_add_stranger_test(${finds_package} package "-DMireloQtAgent_ROOT=${prefix}")

    set_tests_properties(${${linkage}_build} PROPERTIES FIXTURES_SETUP ${linkage}_build)
    set_tests_properties(package_installs_${linkage} PROPERTIES
        FIXTURES_REQUIRED ${linkage}_build
        FIXTURES_SETUP ${linkage}_package)
    set_tests_properties(${finds_package} PROPERTIES FIXTURES_REQUIRED ${linkage}_package)
endforeach()

# Without Qt Sql all but the store is there, which is seen before anything is built.
add_test(NAME stranger_has_no_qt_sql
    COMMAND "${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_SOURCE_DIR}/stranger" -B "${package_dir}/no-qt-sql" ${toolchain}
        -DLIBRARY_FROM=subdirectory "-DQTAGENT_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
        "-DQTAGENT_QT_MAJOR=${QTAGENT_QT_MAJOR}" "-DCMAKE_DISABLE_FIND_PACKAGE_Qt${QTAGENT_QT_MAJOR}Sql=ON")

# This build, installed whole, serves the examples.
set(prefix "${package_dir}/installed")
add_test(NAME package_installs
    COMMAND "${CMAKE_COMMAND}" --install "${PROJECT_BINARY_DIR}" --config $<CONFIG> --prefix "${prefix}")
set_tests_properties(package_installs PROPERTIES
    FIXTURES_SETUP installed_package
    RESOURCE_LOCK build_tree)
add_test(NAME package_serves_the_examples
    COMMAND "${CMAKE_CTEST_COMMAND}"
        --build-and-test "${PROJECT_SOURCE_DIR}/examples" "${package_dir}/examples"
        --build-generator "${CMAKE_GENERATOR}"
        --build-options ${toolchain} "-DMireloQtAgent_ROOT=${prefix}"
        --test-command stream_reply)
set_tests_properties(package_serves_the_examples PROPERTIES
    FIXTURES_REQUIRED installed_package
    ENVIRONMENT "OPENAI_API_KEY=;DEEPSEEK_API_KEY="
    PASS_REGULAR_EXPRESSION "模拟模型")
