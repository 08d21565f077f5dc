#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace testing_support {

/** Catches what is written to std::cerr while it lives. */
class StandardError {
public:
    StandardError() : _own(std::cerr.rdbuf(_caught.rdbuf())) {}
    ~StandardError() { std::cerr.rdbuf(_own); }
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    std::string text() const { return _caught.str(); }

private:
    std::ostringstream _caught;
    std::streambuf* _own;
};

}  // namespace testing_support
