# Makes the Debian package in DEB_DIR, checks it and unpacks it to UNPACKED_DIR.
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(read_field name result)
    execute_process(COMMAND "${DPKG_DEB}" --field "${package}" ${name}
        OUTPUT_VARIABLE value OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(${result} "${value}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${DEB_DIR}")
run("${CPACK}" -G DEB -C "${CONFIG}" --config "${BUILD_DIR}/CPackConfig.cmake" -B "${DEB_DIR}")
file(GLOB package "${DEB_DIR}/*.deb")
if(NOT package MATCHES "/orvane-demo_${VERSION}_[^/;]+\\.deb$" OR package MATCHES ";")
    message(FATAL_ERROR "Not one package orvane-demo of version ${VERSION}: ${package}")
endif()

read_field(Version version)
if(NOT version STREQUAL VERSION)
    message(FATAL_ERROR "The package has version ${version} instead of ${VERSION}")
endif()
read_field(Depends depends)
if(NOT depends MATCHES "(^|, )libqt${QT_MAJOR}widgets")
    message(FATAL_ERROR "The package does not depend on the widgets of Qt ${QT_MAJOR}: ${depends}")
endif()

run("${DPKG_DEB}" --extract "${package}" "${UNPACKED_DIR}")
file(GLOB_RECURSE development_files RELATIVE "${UNPACKED_DIR}"
    "${UNPACKED_DIR}/*.h" "${UNPACKED_DIR}/*.a" "${UNPACKED_DIR}/*.so" "${UNPACKED_DIR}/*.cmake")
if(development_files)
    message(FATAL_ERROR "The package holds what only developers need: ${development_files}")
endif()
