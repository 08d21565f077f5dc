#pragma once

#include "ByteSource.h"
#include "FlightDefect.h"
#include "FlightFileError.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace veltrane::sceneutils::tool {

/** The kinds of records that somebody here looks at. */
enum FlightOpcode : unsigned int {
    headerOpcode = 1,
    pushLevelOpcode = 10,
    popLevelOpcode = 11,
    pushSubfaceOpcode = 19,
    popSubfaceOpcode = 20,
    pushExtensionOpcode = 21,
    popExtensionOpcode = 22,
    continuationOpcode = 23,
    colorPaletteOpcode = 32,
    externalReferenceOpcode = 63,
    texturePaletteOpcode = 64,
    oldMaterialPaletteOpcode = 66,
    vertexPaletteOpcode = 67,
    localVertexPoolOpcode = 85,
    meshPrimitiveOpcode = 86,
    extensionOpcode = 100,
    lightSourcePaletteOpcode = 102,
    materialPaletteOpcode = 113,
    nameTableOpcode = 114,
    pushAttributeOpcode = 122,
    popAttributeOpcode = 123,
    lightPointAppearancePaletteOpcode = 128,
    shaderPaletteOpcode = 133,
    // Some modelling tools wrote the last record with its bytes in the wrong order; OpenSceneGraph knows it too.
    littleEndianPopLevelOpcode = 0x0b00
};

/**
 * Goes through the records of an OpenFlight file as OpenSceneGraph's reader does, strictly: every length is held
 * against the file's size, and levels have to be balanced. Records that nobody looks at are passed over without being
 * read, and never more than 64 KiB of the file are in memory.
 */
class FlightRecordReader {
public:
    /** @param bytes are used as long as the reader is */
    explicit FlightRecordReader(ByteSource& bytes) : _bytes(bytes) {}

    /**
     * Goes to the first record, then to the next one each time; false at the end of the file's content.
     * @throws FlightFileError if there is no whole record where one has to be, or levels are not balanced
     */
    bool next();

    unsigned int opcode() const { return _opcode; }
    /** Where the record begins in the file. */
    std::uint64_t offset() const { return _offset; }
    /** The record with its opcode and length, no longer than it says and the file is. Valid until the next call. */
    std::string_view record() { return view(_offset, _statedLength); }

    /** What was not as it should be up to here. */
    FlightDefects& defects() { return _defects; }

private:
    std::string_view view(std::uint64_t offset, std::size_t count);
    std::size_t lengthAsRead();
    void lookAtBalance();
    void lookAtContinuation();
    void lookAtLength();
    void popLevel();
    void endWithoutRecord();
    void lookAtNesting(std::uint64_t end);
    void lookBehindTheEnd(std::uint64_t end);
    bool areZerosFrom(std::uint64_t offset);
    bool isRecordAt(std::uint64_t offset);

    ByteSource& _bytes;
    std::vector<char> _window;
    std::uint64_t _windowOffset = 0;
    std::size_t _windowSize = 0;

    unsigned int _opcode = 0;
    std::size_t _statedLength = 0;
    std::uint64_t _offset = 0;
    std::uint64_t _next = 0;
    bool _isAtEnd = false;

    std::uint64_t _level = 0;
    bool _canBeContinued = false;
    std::int64_t _extensionLevel = 0;
    std::int64_t _subfaceLevel = 0;
    std::int64_t _attributeLevel = 0;
    FlightDefects _defects;
};

/** A big-endian number in a record; `ifAbsent` if it does not end in it. */
std::uint32_t bigEndian(std::string_view record, std::size_t offset, std::size_t width, std::uint32_t ifAbsent = 0);

}  // namespace veltrane::sceneutils::tool
