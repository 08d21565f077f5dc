#include "FlightFile.h"

#include "FlightRecordReader.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace veltrane::sceneutils::tool {

namespace {

// Offsets from the start of a record, whose first four bytes are its opcode and its length.
constexpr std::size_t formatRevisionOffset = 12;
constexpr std::size_t recordHeaderSize = 4;
constexpr std::size_t nameOffset = 4;
constexpr std::size_t nameSize = 200;
constexpr std::size_t referenceFlagsOffset = 208;
constexpr std::size_t referenceSize = 216;

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

// FNV-1a, continued from `hash`.
constexpr std::uint64_t emptyHash = 0xcbf29ce484222325u;
std::uint64_t hashOf(std::string_view bytes, std::uint64_t hash) {
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3u;
    return hash;
}

/** The text in a record, up to the first zero, the end of its field, or that of the record. */
std::string textIn(std::string_view record, std::size_t offset, std::size_t maximum) {
    if (offset >= record.size()) return {};
    const std::string_view field = record.substr(offset, maximum);
    return std::string(field.substr(0, field.find('\0')));
}

class Scan {
public:
    explicit Scan(ByteSource& bytes) : _reader(bytes) { _result.bytes = bytes.size(); }

    FlightFile run() {
        while (_reader.next()) look(_reader.opcode());
        _result.defects = _reader.defects().inFileOrder();
        return std::move(_result);
    }

private:
    void look(unsigned int opcode) {
        if (opcode == headerOpcode) readHeader(_reader.record());
        if (opcode == externalReferenceOpcode) _result.references.push_back(reference(_reader.record()));
        if (opcode == texturePaletteOpcode) _result.textures.push_back(textIn(_reader.record(), nameOffset, nameSize));
        if (const auto palette = paletteOf(opcode)) {
            std::uint64_t& hash = _result.paletteHashes[static_cast<std::size_t>(*palette)];
            hash = hashOf(_reader.record(), hash == 0 ? emptyHash : hash);
        }
    }

    void readHeader(std::string_view record) {
        _revision = bigEndian(record, formatRevisionOffset, 4);
        if (record.size() >= formatRevisionOffset + 4) return;
        tell(FlightDefectKind::ShortHeader, Severity::Error, "the header does not tell the format's revision");
    }

    FlightReference reference(std::string_view record) {
        FlightReference result;
        result.name = textIn(record, nameOffset, nameSize);
        result.offset = _reader.offset();
        const std::uint32_t flags = flagsOf(record);
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            result.takesParents[i] =
                _revision >= paletteFlags[i].sinceRevision && (flags & paletteFlags[i].ownBit) == 0;
        }
        tellDefects(result.name, record.size());
        return result;
    }

    void tellDefects(const std::string& name, std::size_t recordSize) {
        const std::string record = "the reference at byte " + std::to_string(_reader.offset());
        if (recordSize < nameOffset + nameSize) {
            tell(FlightDefectKind::ShortReference, Severity::Warning,
                 record + " has " + std::to_string(recordSize) + " bytes instead of " + std::to_string(referenceSize));
        } else if (name.size() == nameSize) {
            tell(FlightDefectKind::LongName, Severity::Warning,
                 record + " has a name that fills its 200 bytes and may have been cut off");
        }
    }

    void tell(FlightDefectKind kind, Severity severity, const std::string& message) {
        _reader.defects().add(kind, severity, _reader.offset(), message);
    }

    std::uint32_t flagsOf(std::string_view record) const {
        if (_revision == revisionWithBadFlags || record.size() < referenceFlagsOffset) return allPalettesOwn;
        // OpenSceneGraph's reader sees zeros behind a record's end.
        return bigEndian(record, referenceFlagsOffset, 4, 0);
    }

    FlightRecordReader _reader;
    FlightFile _result;
    std::uint32_t _revision = 0;
};

constexpr char pushLevelRecord[] = "\0\012\0\4";
constexpr char popLevelRecord[] = "\0\013\0\4";

/** Keeps the records that hand palettes on to one reference. */
class PaletteKeeper {
public:
    PaletteKeeper(std::size_t reference, const PerPalette<bool>& kinds) : _reference(reference), _kinds(kinds) {
        // A light point appearance takes its color from the palette of colors.
        if (isWanted(Palette::LightPointAppearance)) _kinds[static_cast<std::size_t>(Palette::Color)] = true;
    }

    void take(unsigned int opcode, std::string_view record) {
        if (opcode == externalReferenceOpcode && _references++ == _reference) {
            kept += std::string(pushLevelRecord, recordHeaderSize) + withoutName(std::string(record));
            return;
        }
        const auto palette = paletteOf(opcode);
        if (opcode == headerOpcode || (palette && isWanted(*palette))) kept += record;
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

}  // namespace

std::string palettesHandedOn(const std::filesystem::path& path, std::size_t reference, const PerPalette<bool>& kinds) {
    FileBytes bytes(path);
    FlightRecordReader reader(bytes);
    PaletteKeeper keeper(reference, kinds);
    while (reader.next()) keeper.take(reader.opcode(), reader.record());
    return keeper.kept + std::string(popLevelRecord, recordHeaderSize);
}

FlightFile scanFlightFile(const std::filesystem::path& path) {
    FileBytes bytes(path);
    return scanFlightFile(bytes);
}

FlightFile scanFlightFile(ByteSource& bytes) {
    return Scan(bytes).run();
}

}  // namespace veltrane::sceneutils::tool
