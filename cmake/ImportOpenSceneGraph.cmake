# Wraps what find_package(OpenSceneGraph) found in the imported target veltrane::osg. Used by the build, and installed
# beside the package config for the projects that link the installed library.

if(NOT TARGET veltrane::osg)
    add_library(veltrane::osg INTERFACE IMPORTED GLOBAL)
    target_include_directories(veltrane::osg SYSTEM INTERFACE ${OPENSCENEGRAPH_INCLUDE_DIRS})
    target_link_libraries(veltrane::osg INTERFACE ${OPENSCENEGRAPH_LIBRARIES})
endif()
