# Whoever makes a package may keep new folders to himself; whoever installs it has to get into them.
file(CHMOD_RECURSE "${CPACK_TEMPORARY_DIRECTORY}" DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
