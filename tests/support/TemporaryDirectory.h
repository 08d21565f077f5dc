#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace testing_support {

/** A new empty folder that is removed with everything in it at the end of the scope. */
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "sceneutils-test-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("cannot make a temporary directory");
        _path = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return _path; }
    std::string operator/(const std::string& name) const { return (_path / name).string(); }

private:
    std::filesystem::path _path;
};

/** Makes a folder the working directory for the length of a scope. */
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::filesystem::path& path) : _own(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    ~WorkingDirectory() { std::filesystem::current_path(_own); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    std::filesystem::path _own;
};

}  // namespace testing_support
