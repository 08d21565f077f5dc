# Finds log4cpp, which brings no CMake package, and wraps it in the imported target veltrane::log4cpp, if it is there.
# Used by the build, and installed beside the logging module's package config.

find_package(Threads)
find_path(LOG4CPP_INCLUDE_DIR log4cpp/Category.hh)
find_library(LOG4CPP_LIBRARY log4cpp)

if(Threads_FOUND AND LOG4CPP_INCLUDE_DIR AND LOG4CPP_LIBRARY AND NOT TARGET veltrane::log4cpp)
    add_library(veltrane::log4cpp INTERFACE IMPORTED GLOBAL)
    target_include_directories(veltrane::log4cpp SYSTEM INTERFACE ${LOG4CPP_INCLUDE_DIR})
    target_link_libraries(veltrane::log4cpp INTERFACE ${LOG4CPP_LIBRARY} Threads::Threads)
endif()
