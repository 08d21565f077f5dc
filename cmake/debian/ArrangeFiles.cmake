# Run by cpack on the installed files before it packs them: puts them as Debian wants them.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return()
endif()

function(compress)
    if(ARGN)
        execute_process(COMMAND gzip -9n ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)

    string(TOUPPER ${component} variable)
    set(doc ${root}/share/doc/${CPACK_DEBIAN_${variable}_PACKAGE_NAME})
    file(MAKE_DIRECTORY ${doc})
    configure_file(${CPACK_SCENEUTILS_COPYRIGHT} ${doc}/copyright COPYONLY)
    configure_file(${CPACK_SCENEUTILS_CHANGES} ${doc}/changelog COPYONLY)
    configure_file(${CPACK_SCENEUTILS_DEBIAN_CHANGES} ${doc}/changelog.Debian COPYONLY)

    file(GLOB manual ${root}/share/man/man1/*.1)
    compress(${manual} ${doc}/changelog ${doc}/changelog.Debian)

    # Debian's zsh looks for what packages bring in a folder of its own.
    if(EXISTS ${root}/share/zsh/site-functions)
        file(RENAME ${root}/share/zsh/site-functions ${root}/share/zsh/vendor-completions)
    endif()
endforeach()
