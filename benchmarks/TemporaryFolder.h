#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include <cstdlib>

namespace veltrane::sceneutils::benchmarks {

/** A folder that is gone at the end. */
class TemporaryFolder {
public:
    TemporaryFolder(const std::filesystem::path& parent, const std::string& name) {
        std::string path = (std::filesystem::canonical(parent) / (name + "_XXXXXX")).string();
        if (!mkdtemp(path.data())) throw std::runtime_error("cannot make a folder in " + parent.string());
        _path = path;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return _path; }

private:
    std::filesystem::path _path;
};

}  // namespace veltrane::sceneutils::benchmarks
