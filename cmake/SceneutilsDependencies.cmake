# Finds OpenSceneGraph and log4cpp and wraps them in the imported targets veltrane::osg and veltrane::log4cpp.
#
# Used by the build and installed beside the package config, so that a project that links the installed library finds
# its dependencies in the same way, wherever they lie on that machine.

if(NOT TARGET veltrane::osg)
    set(_sceneutils_osg_components osg osgDB osgUtil osgText osgSim OpenThreads)
    find_package(OpenSceneGraph 3.6 REQUIRED COMPONENTS ${_sceneutils_osg_components})
    add_library(veltrane::osg INTERFACE IMPORTED GLOBAL)
    target_include_directories(veltrane::osg SYSTEM INTERFACE ${OPENSCENEGRAPH_INCLUDE_DIRS})
    target_link_libraries(veltrane::osg INTERFACE ${OPENSCENEGRAPH_LIBRARIES})
    unset(_sceneutils_osg_components)
endif()

if(NOT TARGET veltrane::log4cpp)
    find_path(LOG4CPP_INCLUDE_DIR log4cpp/Category.hh REQUIRED)
    find_library(LOG4CPP_LIBRARY log4cpp REQUIRED)
    find_package(Threads REQUIRED)
    add_library(veltrane::log4cpp INTERFACE IMPORTED GLOBAL)
    target_include_directories(veltrane::log4cpp SYSTEM INTERFACE ${LOG4CPP_INCLUDE_DIR})
    target_link_libraries(veltrane::log4cpp INTERFACE ${LOG4CPP_LIBRARY} Threads::Threads)
endif()
