# Installs the build into a new prefix and uses it there as its users do: from CMake, through pkg-config, and as the
# external logging module of another build of the library. Everything lies below one folder that each run makes anew.

set(consumer_dir ${CMAKE_CURRENT_SOURCE_DIR}/consumer)
set(install_work_dir ${CMAKE_CURRENT_BINARY_DIR}/install)
set(install_prefix ${install_work_dir}/prefix)

add_test(NAME Install.RemoveFormer COMMAND ${CMAKE_COMMAND} -E rm -rf ${install_work_dir})
set_tests_properties(Install.RemoveFormer PROPERTIES FIXTURES_SETUP new_prefix)

add_test(NAME Install.Install
    COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --prefix ${install_prefix} --config $<CONFIG>)
set_tests_properties(Install.Install PROPERTIES FIXTURES_REQUIRED new_prefix FIXTURES_SETUP installation TIMEOUT 120)

# What must be as in this build for the two to fit together.
set(install_test_cxx_flags "${CMAKE_CXX_FLAGS}")
if(SCENEUTILS_SANITIZERS)
    string(APPEND install_test_cxx_flags " -fsanitize=${SCENEUTILS_SANITIZERS} -fno-sanitize-recover=all")
endif()
set(install_test_common_options
    -DCMAKE_BUILD_TYPE=$<CONFIG>
    -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
    -DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}
    -DCMAKE_PREFIX_PATH=${install_prefix}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)

add_test(NAME Install.ConsumerWithCMake
    COMMAND ${CMAKE_CTEST_COMMAND}
        --build-and-test ${consumer_dir} ${install_work_dir}/consumer
        --build-generator ${CMAKE_GENERATOR}
        --build-makeprogram ${CMAKE_MAKE_PROGRAM}
        --build-options ${install_test_common_options}
            "-DCMAKE_CXX_FLAGS=${install_test_cxx_flags}"
            "-DCMAKE_EXE_LINKER_FLAGS=${CMAKE_EXE_LINKER_FLAGS}"
        --test-command ${install_work_dir}/consumer/consumer)
set_tests_properties(Install.ConsumerWithCMake PROPERTIES FIXTURES_REQUIRED installation TIMEOUT 600)

add_test(NAME Install.ConsumerWithPkgConfig
    COMMAND ${consumer_dir}/build_with_pkg_config.sh
        ${consumer_dir}/main.cpp ${install_work_dir}/pkg-config/consumer)
set_tests_properties(Install.ConsumerWithPkgConfig PROPERTIES
    FIXTURES_REQUIRED installation
    ENVIRONMENT "CXX=${CMAKE_CXX_COMPILER};CXXFLAGS=${install_test_cxx_flags};LDFLAGS=${CMAKE_EXE_LINKER_FLAGS};PKG_CONFIG_PATH=${install_prefix}/${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    TIMEOUT 600)

add_test(NAME Install.ExternalLogging
    COMMAND ${CMAKE_CTEST_COMMAND}
        --build-and-test ${PROJECT_SOURCE_DIR} ${install_work_dir}/external_logging
        --build-generator ${CMAKE_GENERATOR}
        --build-makeprogram ${CMAKE_MAKE_PROGRAM}
        --build-options ${install_test_common_options}
            "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
            -DSCENEUTILS_SANITIZERS=${SCENEUTILS_SANITIZERS}
            -DSCENEUTILS_LOGGING=external
            -DSCENEUTILS_BUILD_TOOL=OFF
            -DSCENEUTILS_BUILD_TESTS=OFF)
set_tests_properties(Install.ExternalLogging PROPERTIES FIXTURES_REQUIRED installation TIMEOUT 600)

add_test(NAME Install.LibraryExportsItsPublicHeadersOnly
    COMMAND ${consumer_dir}/check_exports.sh ${CMAKE_NM}
        ${install_prefix}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:veltrane_sceneutils>
        ${install_prefix}/${CMAKE_INSTALL_INCLUDEDIR}/sceneutils)
set_tests_properties(Install.LibraryExportsItsPublicHeadersOnly PROPERTIES FIXTURES_REQUIRED installation TIMEOUT 60)

if(SCENEUTILS_BUILD_TOOL)
    add_test(NAME Install.ToolStarts COMMAND ${install_prefix}/${CMAKE_INSTALL_BINDIR}/sceneutils --version)
    set_tests_properties(Install.ToolStarts PROPERTIES
        FIXTURES_REQUIRED installation
        PASS_REGULAR_EXPRESSION "^sceneutils ${PROJECT_VERSION}\n"
        TIMEOUT 60)

    # md5sum fails if a file is not there.
    set(install_data_dir ${install_prefix}/${CMAKE_INSTALL_DATAROOTDIR})
    add_test(NAME Install.ManualAndCompletionsAreInPlace
        COMMAND ${CMAKE_COMMAND} -E md5sum
            ${install_prefix}/${CMAKE_INSTALL_MANDIR}/man1/sceneutils.1
            ${install_prefix}/${CMAKE_INSTALL_MANDIR}/man1/sceneutils-convert.1
            ${install_data_dir}/bash-completion/completions/sceneutils
            ${install_data_dir}/zsh/site-functions/_sceneutils)
    set_tests_properties(Install.ManualAndCompletionsAreInPlace PROPERTIES FIXTURES_REQUIRED installation TIMEOUT 60)
endif()
