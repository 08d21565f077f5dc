# The programs of examples/, built as their readers do against what the tests of the installation have installed.
add_test(NAME Install.ExamplesBuild
    COMMAND ${CMAKE_CTEST_COMMAND}
        --build-and-test ${PROJECT_SOURCE_DIR}/examples ${install_work_dir}/examples
        --build-generator ${CMAKE_GENERATOR}
        --build-makeprogram ${CMAKE_MAKE_PROGRAM}
        --build-options ${install_test_common_options}
            "-DCMAKE_CXX_FLAGS=${install_test_cxx_flags} -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror"
            "-DCMAKE_EXE_LINKER_FLAGS=${CMAKE_EXE_LINKER_FLAGS}")
set_tests_properties(Install.ExamplesBuild PROPERTIES
    FIXTURES_REQUIRED installation FIXTURES_SETUP examples TIMEOUT 600)

if(SCENEUTILS_BUILD_TOOL)
    add_test(NAME Install.ExamplesDoWhatTheySay
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/examples/run-examples.sh
            ${install_prefix}/${CMAKE_INSTALL_BINDIR}/sceneutils ${install_work_dir}/examples ${install_work_dir}/examples_run)
    # OpenSceneGraph's OpenFlight writer, which makes the sample, never frees some of what it allocates.
    set_tests_properties(Install.ExamplesDoWhatTheySay PROPERTIES
        FIXTURES_REQUIRED "installation;examples" TIMEOUT 300 ENVIRONMENT ASAN_OPTIONS=detect_leaks=0)
endif()
