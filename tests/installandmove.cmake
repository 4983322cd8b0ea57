# Installs the build in BUILD_DIR, then moves what was installed to PREFIX.
file(REMOVE_RECURSE "${PREFIX}" "${PREFIX}.new")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --config "${CONFIG}" --prefix "${PREFIX}.new"
    COMMAND_ERROR_IS_FATAL ANY)
file(RENAME "${PREFIX}.new" "${PREFIX}")
