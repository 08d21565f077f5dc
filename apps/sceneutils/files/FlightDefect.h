#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** How bad something is that is wrong with a database. */
enum class Severity {
    Warning,  ///< it is not as it should be, but nothing is lost
    Error     ///< content is lost or misread
};

/** What can be wrong with a file that is read to its end all the same. */
enum class FlightDefectKind {
    ShortHeader,
    SecondHeader,
    NoLevels,
    StrayContinuation,
    UnbalancedExtension,
    UnbalancedSubface,
    UnbalancedAttribute,
    WrongByteOrder,
    VertexPaletteLength,
    UnknownRecord,
    ShortReference,
    LongName,
    StopsEarly,
    RecordsAfterEnd,
    BytesAfterEnd,
    Padding
};

/** Something that is wrong with a file, told once however often it is. */
struct FlightDefect {
    FlightDefectKind kind = FlightDefectKind::Padding;
    Severity severity = Severity::Warning;
    std::uint64_t offset = 0;  ///< of the first byte concerned; the first time
    std::uint64_t count = 1;   ///< how often
    std::string message;       ///< of the first time; tells the offset, too
};

/** Collects what is wrong with a file; takes no more memory for more of a kind. */
class FlightDefects {
public:
    void add(FlightDefectKind kind, Severity severity, std::uint64_t offset, const std::string& message) {
        const auto [known, isNew] = _defects.try_emplace(kind);
        if (isNew) {
            known->second = {kind, severity, offset, 1, message};
        } else {
            ++known->second.count;
        }
    }

    /** By their offsets. */
    std::vector<FlightDefect> inFileOrder() const;

private:
    std::map<FlightDefectKind, FlightDefect> _defects;
};

}  // namespace veltrane::sceneutils::tool
