# The compiler settings that every target of this project shares: warnings, sanitizers, ccache.

find_program(SCENEUTILS_CCACHE ccache)
if(SCENEUTILS_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${SCENEUTILS_CCACHE})
endif()

add_library(sceneutils_warnings INTERFACE)
target_compile_options(sceneutils_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(SCENEUTILS_WARNINGS_AS_ERRORS)
    target_compile_options(sceneutils_warnings INTERFACE -Werror)
endif()

if(SCENEUTILS_SANITIZERS)
    add_compile_options(-fsanitize=${SCENEUTILS_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${SCENEUTILS_SANITIZERS})
endif()

if(SCENEUTILS_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
