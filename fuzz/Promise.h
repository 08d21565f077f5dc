#pragma once

#include <stdexcept>
#include <string>

namespace fuzzing {

/** Says what a tool promises and did not keep. */
class BrokenPromise : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

inline void promise(bool isKept, const std::string& what) {
    if (!isKept) throw BrokenPromise(what);
}

}  // namespace fuzzing
