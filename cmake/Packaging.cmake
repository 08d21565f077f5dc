# What cpack makes: Debian packages, one for each component, and with CPackSourceConfig.cmake the sources. The preset
# `package` builds for the places that libraries have on a Debian system.

set(SCENEUTILS_PACKAGE_CONTACT "veltrane_sceneutils packagers <packages@veltrane-sceneutils.invalid>"
    CACHE STRING "Who answers for the Debian packages: 'NAME <ADDRESS>'")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veltrane-sceneutils)
set(CPACK_PACKAGE_CONTACT ${SCENEUTILS_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${CPACK_PACKAGE_NAME})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src/sceneutils ${PROJECT_BINARY_DIR}/logging)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/ArrangeFiles.cmake)
set(CPACK_SCENEUTILS_COPYRIGHT ${PROJECT_SOURCE_DIR}/cmake/debian/copyright)
set(CPACK_SCENEUTILS_CHANGES ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set(CPACK_SCENEUTILS_DEBIAN_CHANGES ${PROJECT_BINARY_DIR}/changelog.Debian)
string(TIMESTAMP debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH, if it is set
configure_file(cmake/debian/changelog.Debian.in ${CPACK_SCENEUTILS_DEBIAN_CHANGES} @ONLY)

# debian_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDS PACKAGE...] [RECOMMENDS PACKAGE...])
# DESCRIPTION: a line that tells what it is, and more lines.
macro(debian_package component name section description)
    cmake_parse_arguments(package "" "" "DEPENDS;RECOMMENDS" ${ARGN})
    list(JOIN package_DEPENDS ", " package_DEPENDS)
    list(JOIN package_RECOMMENDS ", " package_RECOMMENDS)
    string(TOUPPER ${component} variable)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    set(CPACK_DEBIAN_${variable}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${variable}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${variable}_PACKAGE_DEPENDS "${package_DEPENDS}")
    set(CPACK_DEBIAN_${variable}_PACKAGE_RECOMMENDS "${package_RECOMMENDS}")
    set(CPACK_COMPONENT_${variable}_DESCRIPTION "${description}")
endmacro()

set(so_version ${PROJECT_VERSION_MAJOR})
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

debian_package(library libveltrane-sceneutils${so_version} libs
"tools for OpenSceneGraph scene graphs - shared library
Converts OpenFlight databases into paged ones, generates shader programs for
fixed-function state, rebuilds static scenery to be drawn in fewer batches,
shows where levels of detail switch, and keeps precision far from the origin.
.
This package contains the shared library.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)

debian_package(development libveltrane-sceneutils-dev libdevel
"tools for OpenSceneGraph scene graphs - development files
Converts OpenFlight databases into paged ones, generates shader programs for
fixed-function state, rebuilds static scenery to be drawn in fewer batches,
shows where levels of detail switch, and keeps precision far from the origin.
.
This package contains the headers, the CMake package veltrane_sceneutils and
the file for pkg-config."
    DEPENDS "libveltrane-sceneutils${so_version} ${same_version}" libopenscenegraph-dev)

debian_package(tool sceneutils graphics
"command-line tools for OpenSceneGraph scene graphs
Converts OpenFlight databases of any size into paged databases and verifies
them, gives models generated shader programs, rebuilds scenery to be drawn in
fewer batches, draws pictures without a window system, and tells what is in a
scene graph.
.
Conversions in several processes need Ninja."
    DEPENDS "libveltrane-sceneutils${so_version} ${same_version}"
    RECOMMENDS ninja-build)

if(SCENEUTILS_LOGGING STREQUAL "bundled")
    debian_package(logging libveltrane-logging${so_version} libs
"process-wide logger on log4cpp - shared library
What the scene-graph tools of libveltrane-sceneutils${so_version} report through. Writes
warnings and worse to standard error until the application configures log4cpp.
.
This package contains the shared library.")
    set(CPACK_DEBIAN_LOGGING_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)

    debian_package(logging_development libveltrane-logging-dev libdevel
"process-wide logger on log4cpp - development files
What the scene-graph tools of libveltrane-sceneutils${so_version} report through. Writes
warnings and worse to standard error until the application configures log4cpp.
.
This package contains the header and the CMake package veltrane_logging."
        DEPENDS "libveltrane-logging${so_version} ${same_version}" liblog4cpp5-dev)

    set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libveltrane-logging${so_version} ${same_version}")
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libveltrane-logging-dev ${same_version}")
endif()
if(NOT SCENEUTILS_BUILD_TOOL)
    list(REMOVE_ITEM CPACK_COMPONENTS_ALL tool)
endif()

# The sources: what lies in the project's folder, but for what git and builds keep there.
set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION})
string(REGEX REPLACE "([][+.*()^$?|\\\\])" "\\\\\\1" source_dir ${PROJECT_SOURCE_DIR})
set(CPACK_SOURCE_IGNORE_FILES ^${source_dir}/build/ ^${source_dir}/\\.cache/ ^${source_dir}/\\.git$ ^${source_dir}/\\.git/)

include(CPack)
