#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace veltrane::sceneutils::tool {

/** Keeps back what is written to std::cerr for the length of a scope: what the library has to say there. */
class CapturedErrors {
public:
    CapturedErrors() : _own(std::cerr.rdbuf(_caught.rdbuf())) {}
    ~CapturedErrors() { std::cerr.rdbuf(_own); }
    CapturedErrors(const CapturedErrors&) = delete;
    CapturedErrors& operator=(const CapturedErrors&) = delete;

    std::string text() const { return _caught.str(); }

private:
    std::ostringstream _caught;
    std::streambuf* _own;
};

}  // namespace veltrane::sceneutils::tool
