#include "FlightFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>

namespace veltrane::sceneutils::tool {

namespace {

enum Opcode : unsigned int {
    headerOpcode = 1,
    pushLevelOpcode = 10,
    popLevelOpcode = 11,
    colorPaletteOpcode = 32,
    externalReferenceOpcode = 63,
    texturePaletteOpcode = 64,
    oldMaterialPaletteOpcode = 66,
    vertexPaletteOpcode = 67,
    lightSourcePaletteOpcode = 102,
    materialPaletteOpcode = 113,
    lightPointAppearancePaletteOpcode = 128,
    shaderPaletteOpcode = 133,
    // Some modelling tools wrote the last record with its bytes in the wrong order; OpenSceneGraph knows it too.
    littleEndianPopLevelOpcode = 0x0b00
};

// Offsets from the start of a record, whose first four bytes are its opcode and its length.
constexpr std::size_t recordHeaderSize = 4;
constexpr std::size_t formatRevisionOffset = 12;
constexpr std::size_t vertexPaletteSizeOffset = 4;
constexpr std::size_t vertexPaletteRecordSize = 8;
constexpr std::size_t nameOffset = 4;
constexpr std::size_t nameSize = 200;
constexpr std::size_t referenceFlagsOffset = 208;

constexpr std::uint32_t allPalettesOwn = 0xffffffffu;
// Files of this revision were written with flags that mean nothing; OpenSceneGraph ignores them too.
constexpr std::uint32_t revisionWithBadFlags = 1541;

/** How a reference's flags speak of one palette: a clear bit means the parent's, in files from that revision on. */
struct PaletteFlag {
    std::uint32_t ownBit;
    std::uint32_t sinceRevision;
};
constexpr PerPalette<PaletteFlag> paletteFlags = {{
    {0x80000000u >> 0, 1420},  // Color
    {0x80000000u >> 1, 1420},  // Material
    {0x80000000u >> 2, 1420},  // Texture
    {0x80000000u >> 5, 1510},  // LightSource
    {0x80000000u >> 6, 1580},  // LightPointAppearance
    {0x80000000u >> 7, 1600},  // Shader
}};

std::optional<Palette> paletteOf(unsigned int opcode) {
    switch (opcode) {
        case colorPaletteOpcode:
            return Palette::Color;
        case materialPaletteOpcode:
        case oldMaterialPaletteOpcode:
            return Palette::Material;
        case texturePaletteOpcode:
            return Palette::Texture;
        case lightSourcePaletteOpcode:
            return Palette::LightSource;
        case lightPointAppearancePaletteOpcode:
            return Palette::LightPointAppearance;
        case shaderPaletteOpcode:
            return Palette::Shader;
        default:
            return std::nullopt;
    }
}

/** A stretch of the file's bytes; big-endian numbers are read from it, nothing beyond its end. */
class Bytes {
public:
    Bytes(const char* data, std::size_t size) : _data(data), _size(size) {}

    std::size_t size() const { return _size; }
    Bytes from(std::size_t offset) const { return {_data + offset, _size - offset}; }
    Bytes first(std::size_t count) const { return {_data, std::min(count, _size)}; }

    std::uint32_t number(std::size_t offset, std::size_t width, std::uint32_t ifAbsent = 0) const {
        if (offset + width > _size) return ifAbsent;
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < width; ++i) value = (value << 8) | static_cast<unsigned char>(_data[offset + i]);
        return value;
    }

    std::string asString() const { return {_data, _size}; }

    std::string text(std::size_t offset, std::size_t maximum) const {
        if (offset >= _size) return {};
        const char* begin = _data + offset;
        const char* end = begin + std::min(maximum, _size - offset);
        return {begin, std::find(begin, end, '\0')};
    }

    bool areZeros() const {
        return std::all_of(_data, _data + _size, [](char byte) { return byte == 0; });
    }

    /** FNV-1a, continued from `hash`. */
    std::uint64_t hash(std::uint64_t hash) const {
        for (std::size_t i = 0; i < _size; ++i) hash = (hash ^ static_cast<unsigned char>(_data[i])) * 0x100000001b3u;
        return hash;
    }
    static constexpr std::uint64_t emptyHash = 0xcbf29ce484222325u;

private:
    const char* _data;
    std::size_t _size;
};

constexpr char pushLevelRecord[] = "\0\012\0\4";
constexpr char popLevelRecord[] = "\0\013\0\4";

class Scan {
public:
    /** Called with every record, once the scan has looked at it. */
    std::function<void(unsigned int opcode, const Bytes& record)> onRecord;

    FlightFile run(const Bytes& file) {
        _result.bytes = file.size();
        if (file.number(0, 2) != headerOpcode) throw FlightFileError("not an OpenFlight file");

        std::size_t position = 0;
        while (!_done) position += record(file.from(position), position);
        return _result;
    }

private:
    /** Looks at the record at the beginning of `rest` and returns its length. */
    std::size_t record(const Bytes& rest, std::size_t position) {
        const unsigned int opcode = rest.number(0, 2);
        const std::size_t length = rest.number(2, 2);
        if (length == 0) {
            endWithoutPop(rest.first(recordHeaderSize), position);
            return 0;
        }
        if (length < recordHeaderSize) throwImpossibleLength(position);
        const std::size_t wholeLength = lengthAsRead(opcode, length, rest);
        if (wholeLength > rest.size()) throwEndsInside(position);
        look(opcode, rest.first(length));
        if (onRecord) onRecord(opcode, rest.first(length));
        return wholeLength;
    }

    // The last record closes the last level; after it a file may go on with anything. A file that has no levels ends
    // with its last byte, or with padding.
    void endWithoutPop(const Bytes& rest, std::size_t position) {
        if (_level > 0) throw FlightFileError("truncated: ends after " + std::to_string(position) + " bytes");
        if (rest.size() < recordHeaderSize && !rest.areZeros()) throwEndsInside(position);
        if (position == 0) throwImpossibleLength(position);
        _done = true;
    }

    // How far OpenSceneGraph goes on: over a vertex palette by the palette's size alone.
    static std::size_t lengthAsRead(unsigned int opcode, std::size_t length, const Bytes& rest) {
        if (opcode == vertexPaletteOpcode) {
            return std::max<std::size_t>(vertexPaletteRecordSize, rest.number(vertexPaletteSizeOffset, 4));
        }
        if (opcode == littleEndianPopLevelOpcode) return std::min(length, rest.size());
        return length;
    }

    [[noreturn]] static void throwEndsInside(std::size_t position) {
        throw FlightFileError("truncated: ends inside the record at byte " + std::to_string(position));
    }
    [[noreturn]] static void throwImpossibleLength(std::size_t position) {
        throw FlightFileError("damaged: impossible record length at byte " + std::to_string(position));
    }

    void look(unsigned int opcode, const Bytes& record) {
        if (opcode == headerOpcode) _revision = record.number(formatRevisionOffset, 4);
        if (opcode == pushLevelOpcode) ++_level;
        if ((opcode == popLevelOpcode || opcode == littleEndianPopLevelOpcode) && --_level <= 0) _done = true;
        if (opcode == externalReferenceOpcode) _result.references.push_back(reference(record));
        if (opcode == texturePaletteOpcode) _result.textures.push_back(record.text(nameOffset, nameSize));
        if (const auto palette = paletteOf(opcode)) {
            std::uint64_t& hash = _result.paletteHashes[static_cast<std::size_t>(*palette)];
            hash = record.hash(hash == 0 ? Bytes::emptyHash : hash);
        }
    }

    FlightReference reference(const Bytes& record) const {
        FlightReference result;
        result.name = record.text(nameOffset, nameSize);
        const std::uint32_t flags = flagsOf(record);
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            result.takesParents[i] =
                _revision >= paletteFlags[i].sinceRevision && (flags & paletteFlags[i].ownBit) == 0;
        }
        return result;
    }

    std::uint32_t flagsOf(const Bytes& record) const {
        if (_revision == revisionWithBadFlags || record.size() < referenceFlagsOffset) return allPalettesOwn;
        // OpenSceneGraph's reader sees zeros behind a record's end.
        return record.number(referenceFlagsOffset, 4, 0);
    }

    FlightFile _result;
    std::uint32_t _revision = 0;
    int _level = 0;
    bool _done = false;
};

/** Keeps the records that hand palettes on to one reference. */
class PaletteKeeper {
public:
    PaletteKeeper(std::size_t reference, const PerPalette<bool>& kinds) : _reference(reference), _kinds(kinds) {
        // A light point appearance takes its color from the palette of colors.
        if (isWanted(Palette::LightPointAppearance)) _kinds[static_cast<std::size_t>(Palette::Color)] = true;
    }

    void take(unsigned int opcode, const Bytes& record) {
        if (opcode == externalReferenceOpcode && _references++ == _reference) {
            kept += std::string(pushLevelRecord, recordHeaderSize) + withoutName(record.asString());
            return;
        }
        const auto palette = paletteOf(opcode);
        if (opcode == headerOpcode || (palette && isWanted(*palette))) kept += record.asString();
    }

    std::string kept;

private:
    // Whatever the reference is called, what it hands on is the same.
    static std::string withoutName(std::string record) {
        if (record.size() <= nameOffset) return record;
        const std::size_t end = std::min(record.size(), nameOffset + nameSize);
        std::fill(record.begin() + nameOffset, record.begin() + static_cast<std::ptrdiff_t>(end), '\0');
        record[nameOffset] = 'x';
        return record;
    }

    bool isWanted(Palette palette) const { return _kinds[static_cast<std::size_t>(palette)]; }

    std::size_t _reference;
    PerPalette<bool> _kinds;
    std::size_t _references = 0;
};

std::string readWhole(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) throw FlightFileError("no such file");
    if (error) throw FlightFileError(error.message());
    if (std::filesystem::is_directory(status)) throw FlightFileError("is a folder");
    if (!std::filesystem::is_regular_file(status)) throw FlightFileError("is not a regular file");

    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) throw FlightFileError(error.message());

    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    std::string bytes(size, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream) {
        throw FlightFileError(errno != 0 ? std::strerror(errno) : "cannot be read");
    }
    if (bytes.empty()) throw FlightFileError("empty file");
    return bytes;
}

}  // namespace

std::string palettesHandedOn(const std::filesystem::path& path, std::size_t reference, const PerPalette<bool>& kinds) {
    const std::string bytes = readWhole(path);
    PaletteKeeper keeper(reference, kinds);
    Scan scan;
    scan.onRecord = [&](unsigned int opcode, const Bytes& record) { keeper.take(opcode, record); };
    scan.run({bytes.data(), bytes.size()});
    return keeper.kept + std::string(popLevelRecord, recordHeaderSize);
}

FlightFile scanFlightFile(const std::filesystem::path& path) {
    const std::string bytes = readWhole(path);
    return Scan().run({bytes.data(), bytes.size()});
}

}  // namespace veltrane::sceneutils::tool
