#include "FlightRecordReader.h"

#include <algorithm>
#include <bitset>
#include <string>

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::size_t recordHeadSize = 4;
constexpr std::size_t longestRecord = 0xffff;
constexpr std::size_t vertexPaletteSizeOffset = 4;
constexpr std::size_t vertexPaletteRecordSize = 8;
// Small records follow each other; large ones, which are passed over, are not worth much more than a look.
constexpr std::size_t windowSize = 16 << 10;

/** The kinds of records that OpenSceneGraph has a use for, or at least passes over without a word. */
std::bitset<256> knownKinds() {
    std::bitset<256> known;
    for (const unsigned int opcode :
         {1,   2,   3,   4,   5,   7,   8,   9,   10,  11,  14,  19,  20,  21,  22,  23,  31,  32,  33,  40,
          41,  42,  43,  44,  45,  46,  47,  48,  49,  50,  51,  52,  53,  60,  61,  62,  63,  64,  66,  67,
          68,  69,  70,  71,  72,  73,  74,  76,  78,  79,  80,  81,  82,  83,  84,  85,  86,  87,  88,  89,
          90,  92,  93,  94,  96,  97,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113,
          114, 117, 118, 119, 120, 121, 122, 123, 124, 125, 127, 128, 129, 130, 131, 132, 133})
        known.set(opcode);
    return known;
}

bool isKnown(unsigned int opcode) {
    static const std::bitset<256> known = knownKinds();
    return opcode == littleEndianPopLevelOpcode || (opcode < known.size() && known[opcode]);
}

bool canBeContinued(unsigned int opcode) {
    return opcode == extensionOpcode || opcode == nameTableOpcode || opcode == localVertexPoolOpcode ||
           opcode == meshPrimitiveOpcode;
}

std::string atByte(std::uint64_t offset) {
    return " at byte " + std::to_string(offset);
}

[[noreturn]] void throwEndsAfter(std::uint64_t size) {
    throw FlightFileError("truncated: ends after " + std::to_string(size) + " bytes", size);
}

[[noreturn]] void throwEndsInside(std::uint64_t offset) {
    throw FlightFileError("truncated: ends inside the record" + atByte(offset), offset);
}

[[noreturn]] void throwImpossibleLength(std::uint64_t offset) {
    throw FlightFileError("damaged: impossible record length" + atByte(offset), offset);
}

}  // namespace

std::uint32_t bigEndian(std::string_view record, std::size_t offset, std::size_t width, std::uint32_t ifAbsent) {
    if (offset + width > record.size()) return ifAbsent;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = (value << 8) | static_cast<unsigned char>(record[offset + i]);
    return value;
}

std::vector<FlightDefect> FlightDefects::inFileOrder() const {
    std::vector<FlightDefect> result;
    for (const auto& [kind, defect] : _defects) result.push_back(defect);
    std::stable_sort(result.begin(), result.end(),
                     [](const FlightDefect& a, const FlightDefect& b) { return a.offset < b.offset; });
    return result;
}

bool FlightRecordReader::next() {
    if (_isAtEnd) return false;
    if (_bytes.size() == 0) throw FlightFileError("empty file", 0);

    _offset = _next;
    const std::string_view head = view(_offset, recordHeadSize);
    _opcode = bigEndian(head, 0, 2);
    _statedLength = bigEndian(head, 2, 2);
    if (_offset == 0 && _opcode != headerOpcode) throw FlightFileError("not an OpenFlight file", 0);
    if (_statedLength == 0) {
        endWithoutRecord();
        return false;
    }
    if (_statedLength < recordHeadSize) throwImpossibleLength(_offset);
    const std::size_t length = lengthAsRead();
    if (length > _bytes.size() - _offset) throwEndsInside(_offset);

    _next = _offset + length;
    lookAtContinuation();
    lookAtLength();
    lookAtBalance();
    return true;
}

std::string_view FlightRecordReader::view(std::uint64_t offset, std::size_t count) {
    if (offset >= _bytes.size()) return {};
    const auto remaining = static_cast<std::size_t>(std::min<std::uint64_t>(_bytes.size() - offset, longestRecord));
    count = std::min(count, remaining);
    const bool isInWindow = offset >= _windowOffset && offset + count <= _windowOffset + _windowSize;
    if (!isInWindow) {
        const std::size_t wanted = std::min(std::max(count, windowSize), remaining);
        if (_window.size() < wanted) _window.resize(wanted);
        _windowOffset = offset;
        _windowSize = _bytes.read(offset, _window.data(), wanted);
        // It was longer when it was opened.
        if (_windowSize < wanted) throwEndsAfter(offset + _windowSize);
    }
    const auto begin = static_cast<std::size_t>(offset - _windowOffset);
    return {_window.data() + begin, count};
}

// How far OpenSceneGraph goes on: over a vertex palette by the palette's size alone.
std::size_t FlightRecordReader::lengthAsRead() {
    if (_opcode == vertexPaletteOpcode) {
        const std::string_view palette = view(_offset, vertexPaletteRecordSize);
        return std::max<std::size_t>(vertexPaletteRecordSize, bigEndian(palette, vertexPaletteSizeOffset, 4));
    }
    if (_opcode == littleEndianPopLevelOpcode) {
        return static_cast<std::size_t>(std::min<std::uint64_t>(_statedLength, _bytes.size() - _offset));
    }
    return _statedLength;
}

void FlightRecordReader::lookAtContinuation() {
    if (_opcode != continuationOpcode) {
        _canBeContinued = canBeContinued(_opcode);
    } else if (!_canBeContinued) {
        _defects.add(FlightDefectKind::StrayContinuation, Severity::Error, _offset,
                     "the continuation record" + atByte(_offset) + " follows no record that can be continued");
    }
}

void FlightRecordReader::lookAtLength() {
    if (_opcode == headerOpcode && _offset != 0) {
        _defects.add(FlightDefectKind::SecondHeader, Severity::Error, _offset,
                     "a second header" + atByte(_offset) + "; what is before it is lost");
    }
    if (_opcode == vertexPaletteOpcode && _statedLength != vertexPaletteRecordSize) {
        _defects.add(FlightDefectKind::VertexPaletteLength, Severity::Warning, _offset,
                     "the vertex palette's record" + atByte(_offset) + " has the length " +
                         std::to_string(_statedLength) + " instead of 8");
    }
    if (!isKnown(_opcode)) {
        _defects.add(
            FlightDefectKind::UnknownRecord, Severity::Warning, _offset,
            "OpenSceneGraph does not know the kind " + std::to_string(_opcode) + " of the record" + atByte(_offset));
    }
}

void FlightRecordReader::lookAtBalance() {
    switch (_opcode) {
        case pushLevelOpcode:
            ++_level;
            break;
        case popLevelOpcode:
        case littleEndianPopLevelOpcode:
            popLevel();
            break;
        case pushExtensionOpcode:
            ++_extensionLevel;
            break;
        case popExtensionOpcode:
            if (--_extensionLevel >= 0) break;
            _extensionLevel = 0;
            _defects.add(FlightDefectKind::UnbalancedExtension, Severity::Error, _offset,
                         "the record" + atByte(_offset) + " closes an extension that is not open");
            break;
        case pushSubfaceOpcode:
            ++_subfaceLevel;
            break;
        case popSubfaceOpcode:
            --_subfaceLevel;
            break;
        case pushAttributeOpcode:
            ++_attributeLevel;
            break;
        case popAttributeOpcode:
            --_attributeLevel;
            break;
        default:
            break;
    }
}

// The last pop closes the last level; OpenSceneGraph looks at nothing after it.
void FlightRecordReader::popLevel() {
    const bool isSwapped = _opcode == littleEndianPopLevelOpcode;
    if (_level == 0) throw FlightFileError("damaged: closes a level that is not open" + atByte(_offset), _offset);
    _isAtEnd = --_level == 0;
    if (isSwapped) {
        _defects.add(FlightDefectKind::WrongByteOrder, _isAtEnd ? Severity::Warning : Severity::Error, _offset,
                     "the record" + atByte(_offset) + " closes a level with its bytes in the wrong order" +
                         (_isAtEnd ? "" : "; what follows it is lost"));
    }
    if (!_isAtEnd) return;
    const std::uint64_t end = isSwapped ? std::min(_next, _offset + recordHeadSize) : _next;
    lookAtNesting(_offset);
    lookBehindTheEnd(end);
}

// A file that has no levels ends with its last byte, or with padding. OpenSceneGraph ends where a length is 0.
void FlightRecordReader::endWithoutRecord() {
    if (_level > 0) throwEndsAfter(_offset);
    if (_bytes.size() - _offset < recordHeadSize && !areZerosFrom(_offset)) throwEndsInside(_offset);
    if (_offset == 0) throwImpossibleLength(_offset);
    _isAtEnd = true;
    lookAtNesting(_offset);
    _defects.add(FlightDefectKind::NoLevels, Severity::Warning, _offset,
                 "has no levels; it may have been cut off after " + std::to_string(_offset) + " bytes");
    if (areZerosFrom(_offset)) return lookBehindTheEnd(_offset);
    _defects.add(FlightDefectKind::StopsEarly, Severity::Error, _offset,
                 "the record" + atByte(_offset) + " has no length; what follows it is lost");
}

void FlightRecordReader::lookAtNesting(std::uint64_t end) {
    const auto tell = [&](FlightDefectKind kind, std::int64_t level, const std::string& what) {
        if (level == 0) return;
        const std::string more = level > 0 ? " are opened that are not closed" : " are closed that are not open";
        _defects.add(kind, Severity::Warning, end, what + more);
    };
    tell(FlightDefectKind::UnbalancedExtension, _extensionLevel, "extensions");
    tell(FlightDefectKind::UnbalancedSubface, _subfaceLevel, "subfaces");
    tell(FlightDefectKind::UnbalancedAttribute, _attributeLevel, "attributes");
}

void FlightRecordReader::lookBehindTheEnd(std::uint64_t end) {
    const std::uint64_t rest = _bytes.size() - end;
    if (rest == 0) return;
    const std::string bytes = std::to_string(rest) + (rest == 1 ? " byte" : " bytes");
    const std::string from = " from byte " + std::to_string(end) + " on";
    if (areZerosFrom(end)) {
        _defects.add(FlightDefectKind::Padding, Severity::Warning, end, "padded with " + bytes + " of zeros" + from);
    } else if (isRecordAt(end)) {
        _defects.add(FlightDefectKind::RecordsAfterEnd, Severity::Error, end,
                     "the records" + from + ", after the last level, are lost");
    } else {
        _defects.add(FlightDefectKind::BytesAfterEnd, Severity::Warning, end,
                     bytes + from + ", after the last level, are no records");
    }
}

bool FlightRecordReader::areZerosFrom(std::uint64_t offset) {
    while (offset < _bytes.size()) {
        const std::string_view part = view(offset, windowSize);
        if (part.find_first_not_of('\0') != std::string_view::npos) return false;
        offset += part.size();
    }
    return true;
}

bool FlightRecordReader::isRecordAt(std::uint64_t offset) {
    const std::string_view head = view(offset, recordHeadSize);
    const std::size_t length = bigEndian(head, 2, 2);
    return isKnown(bigEndian(head, 0, 2)) && length >= recordHeadSize && length <= _bytes.size() - offset;
}

}  // namespace veltrane::sceneutils::tool
