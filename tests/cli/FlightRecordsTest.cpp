#include "files/FlightFile.h"
#include "files/FlightRecordReader.h"
#include "support/FlightRecords.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <algorithm>

#include <sys/stat.h>

using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using veltrane::sceneutils::tool::ByteSource;
using veltrane::sceneutils::tool::FileBytes;
using veltrane::sceneutils::tool::FlightDefect;
using veltrane::sceneutils::tool::FlightDefectKind;
using veltrane::sceneutils::tool::FlightFile;
using veltrane::sceneutils::tool::FlightFileError;
using veltrane::sceneutils::tool::FlightRecordReader;
using veltrane::sceneutils::tool::MemoryBytes;
using veltrane::sceneutils::tool::scanFlightFile;
using veltrane::sceneutils::tool::Severity;

namespace {

FlightFile scanOf(const FlightRecords& records) {
    MemoryBytes bytes(records.bytes());
    return scanFlightFile(bytes);
}

/** "error 328: MESSAGE", "warning 328 x2: MESSAGE" */
std::vector<std::string> defectsOf(const FlightRecords& records) {
    std::vector<std::string> lines;
    for (const FlightDefect& defect : scanOf(records).defects) {
        lines.push_back((defect.severity == Severity::Error ? "error " : "warning ") + std::to_string(defect.offset) +
                        (defect.count > 1 ? " x" + std::to_string(defect.count) : "") + ": " + defect.message);
    }
    return lines;
}

/** "328: MESSAGE" of a file that is refused; empty if it is not. */
std::string damageOf(const std::string& content) {
    MemoryBytes bytes(content);
    try {
        scanFlightFile(bytes);
        return {};
    } catch (const FlightFileError& error) {
        return (error.offset() ? std::to_string(*error.offset()) : "nowhere") + ": " + error.what();
    }
}

/** Takes note of what is read, and hands out less than there should be if it was cut. */
class WatchedBytes : public ByteSource {
public:
    explicit WatchedBytes(std::string content) : _content(std::move(content)), _size(_content.size()) {}

    std::uint64_t size() const override { return _size; }
    std::size_t read(std::uint64_t offset, char* to, std::size_t count) override {
        EXPECT_LE(offset + count, _size);
        bytesRead += count;
        largestRead = std::max(largestRead, count);
        return offset < _content.size() ? _content.copy(to, count, offset) : 0;
    }
    void cutTo(std::size_t size) { _content.resize(size); }

    std::size_t bytesRead = 0;
    std::size_t largestRead = 0;

private:
    std::string _content;
    std::size_t _size;
};

/** 16 KiB: as much as is read at once when only the beginning is needed. */
constexpr std::size_t windowSize = 16384;

}  // namespace

TEST(FlightRecords, AreGoneThroughInOrderWithTheirPlaces) {
    const FlightRecords records = FlightRecords().push().reference("a.flt").vertexPalette("vertices").pop();
    MemoryBytes bytes(records.bytes());
    FlightRecordReader reader(bytes);
    std::vector<std::pair<unsigned, std::uint64_t>> seen;
    while (reader.next()) seen.emplace_back(reader.opcode(), reader.offset());

    const std::vector<std::pair<unsigned, std::uint64_t>> expected = {
        {1, 0}, {10, 324}, {63, 328}, {67, 544}, {11, 560}};
    EXPECT_EQ(seen, expected);
    EXPECT_FALSE(reader.next());
}

TEST(FlightRecords, ArePassedOverUnreadWhenNobodyLooksAtThem) {
    const std::string vertices(1 << 20, 'v');
    WatchedBytes bytes(FlightRecords().vertexPalette(vertices).push().reference("a.flt").pop().bytes());

    EXPECT_EQ(scanFlightFile(bytes).references.size(), 1u);
    EXPECT_LT(bytes.bytesRead, 3 * windowSize);
    EXPECT_LE(bytes.largestRead, windowSize);
}

TEST(FlightRecords, NeedNoMoreThan64KiBAtATime) {
    FlightRecords records;
    for (int i = 0; i < 10; ++i) records.record(FlightRecords::ColorPalette, std::string(65531, 'c'));
    WatchedBytes bytes(records.push().pop().bytes());

    EXPECT_THAT(scanFlightFile(bytes).defects, IsEmpty());
    EXPECT_EQ(bytes.largestRead, 65535u);
}

TEST(FlightRecords, EndWhereAFileIsCutWhileItIsRead) {
    const FlightRecords records =
        FlightRecords().push().vertexPalette(std::string(100000, 'v')).reference("a.flt").pop();
    for (const std::size_t size : {0u, 1u, 325u, 328u, 331u, 1000u, 100336u, 100337u}) {
        WatchedBytes bytes(records.bytes());
        bytes.cutTo(size);
        try {
            scanFlightFile(bytes);
            ADD_FAILURE() << size;
        } catch (const FlightFileError& error) {
            EXPECT_EQ(error.what(), "truncated: ends after " + std::to_string(size) + " bytes");
            EXPECT_EQ(error.offset(), size);
        }
    }
}

TEST(FlightRecords, AreDamagedAtAByte) {
    const std::string bytes = FlightRecords().push().reference("a.flt").pop().bytes();
    EXPECT_EQ(damageOf(""), "0: empty file");
    EXPECT_EQ(damageOf("Pictures"), "0: not an OpenFlight file");
    EXPECT_EQ(damageOf(bytes.substr(0, 500)), "328: truncated: ends inside the record at byte 328");
    EXPECT_EQ(damageOf(bytes.substr(0, 544)), "544: truncated: ends after 544 bytes");
    EXPECT_EQ(damageOf(FlightRecords().rawRecord(FlightRecords::Group, 3).bytes()),
              "324: damaged: impossible record length at byte 324");
}

TEST(FlightRecords, AreDamagedNowhereInAFileThatCannotBeRead) {
    const TemporaryDirectory folder;
    try {
        FileBytes bytes(folder.path());
        FAIL();
    } catch (const FlightFileError& error) {
        EXPECT_EQ(error.offset(), std::nullopt);
        EXPECT_STREQ(error.what(), "is a folder");
    }
}

TEST(FlightRecords, AreDamagedWhereALevelIsClosedThatIsNotOpen) {
    EXPECT_EQ(damageOf(FlightRecords().pop().bytes()), "324: damaged: closes a level that is not open at byte 324");
    EXPECT_EQ(damageOf(FlightRecords().append(std::string("\x0b\x00\x04\x00", 4)).bytes()),
              "324: damaged: closes a level that is not open at byte 324");
}

TEST(FlightRecords, OfASoundFileHaveNoDefects) {
    FlightRecords records;
    records.texture("a.rgb").vertexPalette("vertices").push().record(FlightRecords::Group, std::string(40, '\0'));
    records.push()
        .reference("a.flt")
        .record(FlightRecords::Extension, "long")
        .record(FlightRecords::Continuation, "er");
    records.record(FlightRecords::Continuation, "!").pop().pop();
    EXPECT_THAT(defectsOf(records), IsEmpty());
}

TEST(FlightRecords, CountADefectOnceHoweverOftenItIs) {
    FlightRecords records;
    records.push().record(999).record(998).record(999).pop();
    EXPECT_THAT(defectsOf(records),
                ElementsAre("warning 328 x3: OpenSceneGraph does not know the kind 999 of the record at byte 328"));
}

TEST(FlightRecords, MayBeFollowedByZeros) {
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().append(std::string(1, '\0'))),
                ElementsAre("warning 332: padded with 1 byte of zeros from byte 332 on"));
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().append(std::string(100000, '\0'))),
                ElementsAre("warning 332: padded with 100000 bytes of zeros from byte 332 on"));
}

TEST(FlightRecords, MayBeFollowedByWhatIsNone) {
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().append("#!/junk")),
                ElementsAre("warning 332: 7 bytes from byte 332 on, after the last level, are no records"));
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().rawRecord(FlightRecords::Group, 5)),
                ElementsAre("warning 332: 4 bytes from byte 332 on, after the last level, are no records"));
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().rawRecord(FlightRecords::Group, 3)),
                ElementsAre("warning 332: 4 bytes from byte 332 on, after the last level, are no records"));
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().append(std::string(windowSize, '\0') + "x")),
                ElementsAre("warning 332: 16385 bytes from byte 332 on, after the last level, are no records"));
}

TEST(FlightRecords, AreLostAfterTheLastLevel) {
    EXPECT_THAT(defectsOf(FlightRecords().push().pop().record(FlightRecords::Group)),
                ElementsAre("error 332: the records from byte 332 on, after the last level, are lost"));
}

TEST(FlightRecords, MayHaveNoLevels) {
    EXPECT_THAT(defectsOf(FlightRecords()),
                ElementsAre("warning 324: has no levels; it may have been cut off after 324 bytes"));
    EXPECT_THAT(defectsOf(FlightRecords().append(std::string(8, '\0'))),
                ElementsAre("warning 324: has no levels; it may have been cut off after 324 bytes",
                            "warning 324: padded with 8 bytes of zeros from byte 324 on"));
}

TEST(FlightRecords, AreLostAfterOneWithoutALength) {
    EXPECT_THAT(defectsOf(FlightRecords().append(std::string(8, '\0')).push().pop()),
                ElementsAre("warning 324: has no levels; it may have been cut off after 324 bytes",
                            "error 324: the record at byte 324 has no length; what follows it is lost"));
}

TEST(FlightRecords, BeginWithTheOnlyHeader) {
    FlightRecords records;
    records.push().record(FlightRecords::Header, std::string(320, '\0')).pop();
    EXPECT_THAT(defectsOf(records), ElementsAre("error 328: a second header at byte 328; what is before it is lost"));
}

TEST(FlightRecords, AreMisreadWithoutTheRevisionInTheHeader) {
    const std::string header = FlightRecords::number(1, 2) + FlightRecords::number(15, 2) + "12345678901";
    MemoryBytes bytes(header);
    const std::vector<FlightDefect> defects = scanFlightFile(bytes).defects;
    ASSERT_EQ(defects.size(), 2u);
    EXPECT_EQ(defects[0].message, "the header does not tell the format's revision");
    EXPECT_EQ(defects[0].severity, Severity::Error);
    EXPECT_EQ(defects[0].offset, 0u);
    EXPECT_EQ(defects[0].kind, FlightDefectKind::ShortHeader);
}

TEST(FlightRecords, AreContinuedOnlyIfTheirKindCanBe) {
    for (const unsigned opcode : {100u, 114u, 85u, 86u}) {
        FlightRecords records;
        records.push().record(opcode, "long").record(FlightRecords::Continuation, "er").pop();
        EXPECT_THAT(defectsOf(records), IsEmpty()) << opcode;
    }
    FlightRecords records;
    records.push().record(FlightRecords::ColorPalette, "long").record(FlightRecords::Continuation, "er").pop();
    EXPECT_THAT(defectsOf(records),
                ElementsAre("error 336: the continuation record at byte 336 follows no record that can be continued"));
}

TEST(FlightRecords, CloseNoExtensionThatIsNotOpen) {
    FlightRecords records;
    records.push().record(FlightRecords::PushExtension).record(FlightRecords::PopExtension);
    records.record(FlightRecords::PopExtension).pop();
    EXPECT_THAT(defectsOf(records),
                ElementsAre("error 336: the record at byte 336 closes an extension that is not open"));
}

TEST(FlightRecords, MayLeaveExtensionsSubfacesAndAttributesUnbalanced) {
    FlightRecords opened;
    opened.push().record(FlightRecords::PushExtension).record(FlightRecords::PushSubface);
    opened.record(FlightRecords::PushAttribute).pop();
    EXPECT_THAT(defectsOf(opened), ElementsAre("warning 340: extensions are opened that are not closed",
                                               "warning 340: subfaces are opened that are not closed",
                                               "warning 340: attributes are opened that are not closed"));
    const FlightRecords closed = FlightRecords().push().record(20).record(123).pop();
    EXPECT_THAT(defectsOf(closed), ElementsAre("warning 336: subfaces are closed that are not open",
                                               "warning 336: attributes are closed that are not open"));
}

TEST(FlightRecords, MayCloseTheLastLevelInTheWrongByteOrder) {
    const std::string pop("\x0b\x00\x04\x00", 4);
    EXPECT_THAT(defectsOf(FlightRecords().push().append(pop)),
                ElementsAre("warning 328: the record at byte 328 closes a level with its bytes in the wrong order"));
    EXPECT_THAT(defectsOf(FlightRecords().push().append(pop).append(std::string(4, '\0'))),
                ElementsAre("warning 328: the record at byte 328 closes a level with its bytes in the wrong order",
                            "warning 332: padded with 4 bytes of zeros from byte 332 on"));
    const FlightRecords inner = FlightRecords().push().push().append(pop).append(std::string(1020, '\0')).pop();
    EXPECT_THAT(defectsOf(inner),
                ElementsAre("error 332: the record at byte 332 closes a level with its bytes in the wrong order; what "
                            "follows it is lost"));
}

TEST(FlightRecords, OfVertexPalettesHaveEightBytes) {
    FlightRecords records;
    records.push().rawRecord(FlightRecords::VertexPalette, 12, FlightRecords::number(12, 4) + "abcd").pop();
    EXPECT_THAT(defectsOf(records),
                ElementsAre("warning 328: the vertex palette's record at byte 328 has the length 12 instead of 8"));
}

TEST(FlightRecords, OfReferencesHoldAWholeName) {
    const FlightRecords cut = FlightRecords().push().record(FlightRecords::ExternalReference, "a.flt").pop();
    EXPECT_THAT(defectsOf(cut), ElementsAre("warning 328: the reference at byte 328 has 9 bytes instead of 216"));
    const auto withBodyOf = [](std::size_t size) {
        return FlightRecords().push().record(FlightRecords::ExternalReference, std::string(size, '\0')).pop();
    };
    EXPECT_THAT(defectsOf(withBodyOf(199)),
                ElementsAre("warning 328: the reference at byte 328 has 203 bytes instead of 216"));
    EXPECT_THAT(defectsOf(withBodyOf(200)), IsEmpty());
    const FlightRecords filled = FlightRecords().push().reference(std::string(200, 'n')).pop();
    EXPECT_THAT(defectsOf(filled), ElementsAre("warning 328: the reference at byte 328 has a name that fills its 200 "
                                               "bytes and may have been cut off"));
    EXPECT_THAT(defectsOf(FlightRecords().push().reference(std::string(199, 'n')).pop()), IsEmpty());
}

TEST(FlightRecords, OfReferencesTellTheirPlaces) {
    const FlightFile file = scanOf(FlightRecords().push().reference("a.flt").push().reference("b.flt").pop().pop());
    ASSERT_EQ(file.references.size(), 2u);
    EXPECT_EQ(file.references[0].offset, 328u);
    EXPECT_EQ(file.references[1].offset, 548u);
}

TEST(FlightRecords, OfReferencesHaveNamesOf200BytesAtMost) {
    FlightRecords records;
    records.push().record(FlightRecords::ExternalReference, std::string(4096, 'n')).pop();
    EXPECT_EQ(scanOf(records).references.front().name, std::string(200, 'n'));
}
