#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace testing_support {

/** Catches what is written to a file descriptor of the process, such as STDOUT_FILENO, while it lives. */
class CapturedDescriptor {
public:
    explicit CapturedDescriptor(int descriptor) : _descriptor(descriptor), _caught(std::tmpfile()) {
        std::fflush(nullptr);
        _own = dup(descriptor);
        if (!_caught || _own < 0 || dup2(fileno(_caught), descriptor) < 0) {
            throw std::runtime_error("cannot capture a descriptor");
        }
    }
    ~CapturedDescriptor() {
        std::fflush(nullptr);
        dup2(_own, _descriptor);
        close(_own);
        std::fclose(_caught);
    }
    CapturedDescriptor(const CapturedDescriptor&) = delete;
    CapturedDescriptor& operator=(const CapturedDescriptor&) = delete;

    std::string text() const {
        std::fflush(nullptr);
        std::string result(static_cast<std::size_t>(lseek(_descriptor, 0, SEEK_END)), '\0');
        const ssize_t count = pread(fileno(_caught), result.data(), result.size(), 0);
        result.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return result;
    }

private:
    int _descriptor;
    std::FILE* _caught;
    int _own;
};

}  // namespace testing_support
