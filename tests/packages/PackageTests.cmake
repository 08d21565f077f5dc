# The Debian packages and the archive of the sources, as users get them. Not of builds with sanitizers: whoever links
# such a library needs the same.
find_program(DPKG_DEB dpkg-deb)
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)

if(DPKG_DEB AND DPKG_SHLIBDEPS AND CMAKE_CPACK_COMMAND AND PROJECT_IS_TOP_LEVEL AND NOT SCENEUTILS_SANITIZERS)
    if(SCENEUTILS_BUILD_TOOL)
        add_test(NAME Packages.DebianPackagesWork
            COMMAND ${PROJECT_SOURCE_DIR}/scripts/test-packages.sh ${PROJECT_BINARY_DIR})
        set_tests_properties(Packages.DebianPackagesWork PROPERTIES LABELS packages TIMEOUT 300)
    endif()
    # All is configured, and so no file is missing; little is built, and so it does not take minutes.
    add_test(NAME Packages.SourcesConfigure
        COMMAND ${PROJECT_SOURCE_DIR}/scripts/test-sources.sh ${PROJECT_BINARY_DIR} veltrane_logging)
    set_tests_properties(Packages.SourcesConfigure PROPERTIES LABELS packages TIMEOUT 300)
endif()
