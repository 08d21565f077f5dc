#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace testing_support {

/** Makes the file and the folders that it lies in. */
inline void saveBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string loadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/** The bytes of an OpenFlight file, put together record by record. It begins with a header record. */
class FlightRecords {
public:
    enum Opcode : unsigned {
        Header = 1,
        Group = 2,
        Push = 10,
        Pop = 11,
        PushSubface = 19,
        PushExtension = 21,
        PopExtension = 22,
        Continuation = 23,
        ColorPalette = 32,
        ExternalReference = 63,
        TexturePalette = 64,
        OldMaterialPalette = 66,
        VertexPalette = 67,
        Extension = 100,
        LightSourcePalette = 102,
        MaterialPalette = 113,
        PushAttribute = 122,
        LightPointAppearancePalette = 128,
        ShaderPalette = 133
    };

    // The flags of a reference: the bits say which palettes are the referenced file's own.
    static constexpr std::uint32_t ownPalettes = 0xffffffffu;
    static constexpr std::uint32_t parentsPalettes = 0;
    static constexpr std::uint32_t ownColors = 0x80000000u;
    static constexpr std::uint32_t ownMaterials = 0x40000000u;
    static constexpr std::uint32_t ownTextures = 0x20000000u;
    static constexpr std::uint32_t ownLightSources = 0x04000000u;
    static constexpr std::uint32_t ownLightPointAppearances = 0x02000000u;
    static constexpr std::uint32_t ownShaders = 0x01000000u;

    static constexpr std::size_t headerLength = 324;
    static constexpr std::size_t referenceLength = 216;
    static constexpr std::size_t nameLength = 200;

    explicit FlightRecords(std::uint32_t revision = 1610) {
        record(Header, padded("db", 8) + number(revision, 4) + std::string(headerLength - 16, '\0'));
    }

    FlightRecords& record(unsigned opcode, const std::string& body = {}) {
        return rawRecord(opcode, body.size() + 4, body);
    }
    /** A record whose length is stated as `length`, whatever its body has. */
    FlightRecords& rawRecord(unsigned opcode, std::size_t length, const std::string& body = {}) {
        _bytes += number(opcode, 2) + number(length, 2) + body;
        return *this;
    }

    FlightRecords& push() { return record(Push); }
    FlightRecords& pop() { return record(Pop); }
    FlightRecords& reference(const std::string& name, std::uint32_t flags = ownPalettes) {
        return record(ExternalReference, padded(name, nameLength) + number(0, 4) + number(flags, 4) + number(0, 4));
    }
    FlightRecords& references(const std::vector<std::string>& names) {
        for (const std::string& name : names) reference(name);
        return *this;
    }
    FlightRecords& texture(const std::string& name, std::uint32_t index = 0) {
        return record(TexturePalette, padded(name, nameLength) + number(index, 4) + number(0, 8));
    }
    /** The palette's vertices follow its record. */
    FlightRecords& vertexPalette(const std::string& vertices) {
        return rawRecord(VertexPalette, 8, number(vertices.size() + 8, 4) + vertices);
    }
    FlightRecords& append(const std::string& bytes) {
        _bytes += bytes;
        return *this;
    }

    const std::string& bytes() const { return _bytes; }
    void write(const std::filesystem::path& path) const { saveBytes(path, _bytes); }

    /** Big-endian. */
    static std::string number(std::uint64_t value, std::size_t width) {
        std::string digits;
        for (std::size_t i = width; i-- > 0;) digits += static_cast<char>((value >> (8 * i)) & 0xffu);
        return digits;
    }
    static std::string padded(std::string text, std::size_t size) {
        text.resize(size, '\0');
        return text;
    }

private:
    std::string _bytes;
};

}  // namespace testing_support
