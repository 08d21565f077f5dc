#pragma once

#include <sstream>
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

/** Tells where two texts differ. */
inline void promiseSame(const std::string& before, const std::string& after, const std::string& what) {
    if (before == after) return;
    std::istringstream first(before), second(after);
    std::string line, otherLine;
    do {
        if (!std::getline(first, line)) line = "(nothing)";
        if (!std::getline(second, otherLine)) otherLine = "(nothing)";
    } while (line == otherLine && (first || second));
    throw BrokenPromise(what + ": was \"" + line + "\", is \"" + otherLine + "\"");
}

}  // namespace fuzzing
