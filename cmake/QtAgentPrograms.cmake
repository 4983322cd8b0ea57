# How programs of this project are installed, and what a desktop shows of them.

# Installs the program <name> to <folder>, below the prefix, from where it finds the libraries.
function(qtagent_install_program name folder component)
    qtagent_relative_path("${folder}" "${CMAKE_INSTALL_LIBDIR}" libraries_from_program)
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "${qtagent_origin}/${libraries_from_program}")
    install(TARGETS ${name} DESTINATION "${folder}" COMPONENT ${component})
endfunction()

# Installs a link to the program <name> in <folder>, so that it is found by its name.
function(qtagent_install_link name folder component)
    if(NOT UNIX)
        return()
    endif()
    qtagent_relative_path("${CMAKE_INSTALL_BINDIR}" "${folder}/${name}" program_from_bin)
    file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/bin")
    file(CREATE_LINK "${program_from_bin}" "${CMAKE_CURRENT_BINARY_DIR}/bin/${name}" SYMBOLIC)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/bin/${name}"
        DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component})
endfunction()

# Installs the menu entry <id>.desktop, the description <id>.metainfo.xml.in and the pictures
# <icon>.svg and <icon>-<size>.png, all in desktop/. The date of the description heeds SOURCE_DATE_EPOCH.
function(qtagent_install_desktop_entry id icon component)
    string(TIMESTAMP release_date "%Y-%m-%d" UTC)
    configure_file(desktop/${id}.desktop desktop/${id}.desktop COPYONLY)
    configure_file(desktop/${id}.metainfo.xml.in desktop/${id}.metainfo.xml @ONLY)
    if(NOT UNIX OR APPLE)
        return()
    endif()
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/desktop/${id}.desktop"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/applications" COMPONENT ${component})
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/desktop/${id}.metainfo.xml"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo" COMPONENT ${component})
    install(FILES desktop/${icon}.svg
        DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps"
        RENAME ${id}.svg COMPONENT ${component})
    foreach(size IN ITEMS 48 128 256)
        install(FILES desktop/${icon}-${size}.png
            DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps"
            RENAME ${id}.png COMPONENT ${component})
    endforeach()
endfunction()
