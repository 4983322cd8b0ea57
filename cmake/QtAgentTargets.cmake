include(GenerateExportHeader)

# What a run path begins with that holds wherever the files are installed.
if(APPLE)
    set(qtagent_origin "@loader_path")
else()
    set(qtagent_origin "$ORIGIN")
endif()

# The path that leads from an installed folder to another place in or below the prefix.
function(qtagent_relative_path from to result)
    cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
    cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
    cmake_path(RELATIVE_PATH to BASE_DIRECTORY "${from}" OUTPUT_VARIABLE path)
    set(${result} "${path}" PARENT_SCOPE)
endfunction()

# Compiler settings of every target of this project. They stay private: a program that links the
# libraries keeps its own warnings and its own Qt defines. PLAIN_LITERALS lets "text" be a QString, which
# keeps tests readable.
function(qtagent_configure_target target)
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_compile_features(${target} PUBLIC cxx_std_17)
    if(NOT "PLAIN_LITERALS" IN_LIST ARGN)
        target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII)
    endif()
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_TO_ASCII
        QT_NO_CAST_FROM_BYTEARRAY
        QT_NO_URL_CAST_FROM_STRING
        QT_NO_KEYWORDS
        QT_NO_FOREACH
        QT_NO_JAVA_STYLE_ITERATORS
        QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
    if(MireloQtAgent_IS_TOP_LEVEL)
        # A parent project may set these for all its targets, with a value of its own.
        target_compile_definitions(${target} PRIVATE QT_STRICT_ITERATORS QT_DISABLE_DEPRECATED_BEFORE=0x050F00)
    endif()
    # The public headers are UTF-8 as well.
    target_compile_options(${target} PUBLIC "$<$<CXX_COMPILER_ID:MSVC>:/utf-8>")
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4)
    else()
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    endif()
endfunction()

# The library MireloQtLib::QtAgent<component> in qtagent/<component in lower case>/, which find_package() gives
# to those who ask for the component. It is left out, with a word, where one of the Qt modules that are the
# further arguments is missing.
function(qtagent_add_component qtagent_component)
    foreach(module IN LISTS ARGN)
        find_package(Qt${QTAGENT_QT_MAJOR} QUIET COMPONENTS ${module})
        if(NOT TARGET Qt${QTAGENT_QT_MAJOR}::${module})
            message(STATUS "Qt ${QTAGENT_QT_MAJOR} ${module} is missing: QtAgent${qtagent_component} is left out")
            return()
        endif()
    endforeach()
    string(TOLOWER ${qtagent_component} folder)
    add_subdirectory(qtagent/${folder})
    set_property(DIRECTORY APPEND PROPERTY QTAGENT_COMPONENTS ${qtagent_component})
    set_property(DIRECTORY APPEND_STRING PROPERTY QTAGENT_COMPONENT_MODULES
        "set(modules_of_${qtagent_component} ${ARGN})\n")
endfunction()

# A public library MireloQtLib::<export_name>. Its public headers are the arguments after the export
# macro's prefix: they are installed to include/<folder>, and the tests compile each of them alone.
function(qtagent_configure_library target export_name export_prefix folder)
    qtagent_configure_target(${target})
    string(TOLOWER ${export_prefix} export_file_prefix)
    set(export_header "${PROJECT_BINARY_DIR}/include/${folder}/${export_file_prefix}_export.h")
    generate_export_header(${target} BASE_NAME ${export_prefix} EXPORT_FILE_NAME "${export_header}")

    get_target_property(library_type ${target} TYPE)
    if(library_type STREQUAL "STATIC_LIBRARY")
        target_compile_definitions(${target} PUBLIC ${export_prefix}_STATIC_DEFINE)
    endif()
    target_include_directories(${target} PUBLIC
        "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
        "$<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>"
        "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${export_name}
        OUTPUT_NAME Mirelo${export_name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
        INSTALL_RPATH "${qtagent_origin}")
    add_library(MireloQtLib::${export_name} ALIAS ${target})

    target_sources(${target} PRIVATE ${ARGN})
    list(TRANSFORM ARGN PREPEND "${folder}/" OUTPUT_VARIABLE public_headers)
    set_property(TARGET ${target} PROPERTY QTAGENT_PUBLIC_HEADERS ${public_headers})
    set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY QTAGENT_LIBRARIES ${target})
    install(FILES ${ARGN} "${export_header}"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${folder}" COMPONENT development)
    set(component libraries)
    if(qtagent_component)
        string(TOLOWER ${qtagent_component} component)
    endif()
    install(TARGETS ${target} EXPORT MireloQtAgent${qtagent_component}Targets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component}
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component} NAMELINK_COMPONENT development
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
endfunction()
