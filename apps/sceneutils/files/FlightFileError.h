#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace veltrane::sceneutils::tool {

/** Says in a few words why a file is no whole OpenFlight file. */
class FlightFileError : public std::runtime_error {
public:
    /** A file that cannot be read. */
    explicit FlightFileError(const std::string& message) : std::runtime_error(message) {}
    /** A file that is damaged at a byte. */
    FlightFileError(const std::string& message, std::uint64_t offset) : std::runtime_error(message), _offset(offset) {}

    /** Where the file is damaged; none: it cannot be read at all. */
    std::optional<std::uint64_t> offset() const { return _offset; }

private:
    std::optional<std::uint64_t> _offset;
};

}  // namespace veltrane::sceneutils::tool
