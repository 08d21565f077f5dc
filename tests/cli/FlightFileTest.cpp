#include "convert/ChildProcess.h"
#include "files/FlightFile.h"
#include "support/FlightRecords.h"
#include "support/Graphs.h"
#include "support/TemporaryDirectory.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/ProxyNode>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <set>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Taken = PerPalette<bool>;
constexpr Taken none{};

/** Why the file is refused; empty if it is whole. */
std::string refusalOf(const std::filesystem::path& path) {
    try {
        scanFlightFile(path);
        return {};
    } catch (const FlightFileError& error) {
        return error.what();
    }
}

/** The same for a file of these bytes, in memory: some tests need thousands. */
std::string refusalOfBytes(const std::string& bytes) {
    const int file = memfd_create("a.flt", 0);
    const bool isWritten = write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    const std::string refusal = refusalOf("/proc/self/fd/" + std::to_string(file));
    close(file);
    return isWritten ? refusal : "the test could not write it";
}

FlightFile scanOf(const FlightRecords& records) {
    const TemporaryDirectory folder;
    records.write(folder / "a.flt");
    return scanFlightFile(folder / "a.flt");
}

std::uint64_t hashOf(const FlightRecords& records, Palette palette) {
    return scanOf(records).paletteHashes[static_cast<std::size_t>(palette)];
}

std::vector<std::string> namesOf(const FlightFile& file) {
    std::vector<std::string> names;
    for (const FlightReference& reference : file.references) names.push_back(reference.name);
    return names;
}

/** What a file of that revision takes from its parent by a reference with those flags. */
Taken takenBy(std::uint32_t revision, std::uint32_t flags) {
    return scanOf(FlightRecords(revision).push().reference("a.flt", flags).pop()).references.front().takesParents;
}

class ProxyNames : public osg::NodeVisitor {
public:
    ProxyNames() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    using osg::NodeVisitor::apply;
    void apply(osg::ProxyNode& proxy) override { names.push_back(proxy.getFileName(0)); }
    std::vector<std::string> names;
};

/** The references that OSG's reader finds in the file. */
std::vector<std::string> namesReadByOsg(const std::filesystem::path& path) {
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options("keepExternalReferences");
    const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(path.string(), options.get());
    if (!graph) return {"cannot be read"};
    ProxyNames visitor;
    graph->accept(visitor);
    return visitor.names;
}

std::vector<std::string> namesReadByOsg(const FlightRecords& records) {
    const TemporaryDirectory folder;
    records.write(folder / "a.flt");
    return namesReadByOsg(std::filesystem::path(folder / "a.flt"));
}

/** A file by OSG's own writer: a textured triangle and two references, one of them inside a group. */
std::string bytesWrittenByOsg() {
    const TemporaryDirectory folder;
    const WorkingDirectory forTemporaryFiles(folder.path());
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::Group> inner = new osg::Group;
    root->addChild(inner);
    for (const osg::ref_ptr<osg::Group>& parent : {root, inner}) {
        const osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
        proxy->setFileName(0, parent == root ? "near.flt" : "far.flt");
        parent->addChild(proxy);
    }
    const osg::ref_ptr<osg::Geometry> triangle = new osg::Geometry;
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array(3);
    triangle->setVertexArray(vertices);
    triangle->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, 3));
    inner->addChild(makeGeode(triangle));
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler writerNeverFreesItsStreams;
#endif
    osgDB::writeNodeFile(*root, folder / "a.flt");
    return loadBytes(folder / "a.flt");
}

/** The ends of the records from the beginning up to the first level: there a file cannot be told from a whole one. */
std::set<std::size_t> endsBeforeTheFirstLevel(const std::string& bytes) {
    const auto byte = [&](std::size_t i) { return static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])); };
    std::set<std::size_t> ends;
    for (std::size_t i = 0; byte(i + 1) != FlightRecords::Push;) {
        const bool isVertexPalette = byte(i + 1) == FlightRecords::VertexPalette;
        i += isVertexPalette ? byte(i + 6) * 256 + byte(i + 7) : byte(i + 2) * 256 + byte(i + 3);
        ends.insert(i);
    }
    return ends;
}

}  // namespace

TEST(FlightFile, IsRefusedWhenThereIsNone) {
    const TemporaryDirectory folder;
    saveBytes(folder / "file", "");
    EXPECT_EQ(refusalOf(folder / "none.flt"), "no such file");
    EXPECT_EQ(refusalOf(folder / "none/none.flt"), "no such file");
    EXPECT_EQ(refusalOf(folder / "file/a.flt"), "no such file");
}

TEST(FlightFile, IsRefusedWhenItIsAFolder) {
    const TemporaryDirectory folder;
    EXPECT_EQ(refusalOf(folder.path()), "is a folder");
}

TEST(FlightFile, IsRefusedWithoutWaitingWhenItIsAPipeOrADevice) {
    const TemporaryDirectory folder;
    ASSERT_EQ(mkfifo((folder / "pipe.flt").c_str(), 0600), 0);
    EXPECT_EQ(refusalOf(folder / "pipe.flt"), "is not a regular file");
    EXPECT_EQ(refusalOf("/dev/zero"), "is not a regular file");
}

TEST(FlightFile, IsRefusedWhenItIsALinkThatLeadsNowhereOrToItself) {
    const TemporaryDirectory folder;
    std::filesystem::create_symlink("none", folder / "dangling.flt");
    std::filesystem::create_symlink("loop.flt", folder / "loop.flt");
    EXPECT_EQ(refusalOf(folder / "dangling.flt"), "no such file");
    EXPECT_EQ(refusalOf(folder / "loop.flt"), "Too many levels of symbolic links");
}

TEST(FlightFile, IsRefusedWhenItMayNotBeRead) {
    const TemporaryDirectory folder;
    FlightRecords().push().pop().write(folder / "a.flt");
    std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
    std::filesystem::permissions(folder / "a.flt", std::filesystem::perms::none);
    std::string refusal;
    const auto scanAsSomebodyElse = [&](const MessageSender& parent) {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && seteuid(nobody) != 0) return;
        parent.send(refusalOf(folder / "a.flt"));
    };
    runInChild(60, scanAsSomebodyElse, [&](const std::string& message) { refusal = message; });
    EXPECT_EQ(refusal, "Permission denied");
}

TEST(FlightFile, IsRefusedWhenItIsEmpty) {
    EXPECT_EQ(refusalOfBytes(""), "empty file");
}

TEST(FlightFile, IsRefusedWhenItDoesNotBeginWithAHeader) {
    EXPECT_EQ(refusalOfBytes(std::string(1, '\0')), "not an OpenFlight file");
    EXPECT_EQ(refusalOfBytes(std::string(1000, '\0')), "not an OpenFlight file");
    EXPECT_EQ(refusalOfBytes("Pictures of the sea"), "not an OpenFlight file");
    EXPECT_EQ(refusalOfBytes(FlightRecords().push().pop().bytes().substr(FlightRecords::headerLength)),
              "not an OpenFlight file");
}

TEST(FlightFile, IsWholeWithAHeaderOnly) {
    const FlightFile file = scanOf(FlightRecords());
    EXPECT_EQ(file.bytes, FlightRecords::headerLength);
    EXPECT_THAT(file.references, IsEmpty());
    EXPECT_THAT(file.textures, IsEmpty());
    EXPECT_THAT(file.paletteHashes, Each(0u));
}

TEST(FlightFile, MayBePaddedWithZeros) {
    EXPECT_EQ(refusalOfBytes(FlightRecords().append(std::string(3, '\0')).bytes()), "");
    EXPECT_EQ(refusalOfBytes(FlightRecords().append(std::string(4096, '\0')).bytes()), "");
    EXPECT_EQ(refusalOfBytes(FlightRecords().push().pop().append(std::string(4096, '\0')).bytes()), "");
}

TEST(FlightFile, MayGoOnWithAnythingAfterItsLastLevel) {
    FlightRecords records;
    records.push().reference("a.flt").push().pop().pop().append("#!/junk").reference("b.flt");
    const FlightFile file = scanOf(records);
    EXPECT_THAT(namesOf(file), ElementsAre("a.flt"));
    EXPECT_EQ(file.bytes, records.bytes().size());
    EXPECT_THAT(namesReadByOsg(records), ElementsAre("a.flt"));
}

TEST(FlightFile, IsTruncatedWhenALevelIsLeftOpen) {
    EXPECT_EQ(refusalOfBytes(FlightRecords().push().push().pop().bytes()), "truncated: ends after 336 bytes");
    EXPECT_EQ(refusalOfBytes(FlightRecords().push().append(std::string(100, '\0')).bytes()),
              "truncated: ends after 328 bytes");
}

TEST(FlightFile, IsTruncatedWhenARecordIsCutShort) {
    const std::string bytes = FlightRecords().push().reference("a.flt").pop().bytes();
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 323)), "truncated: ends inside the record at byte 0");
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 543)), "truncated: ends inside the record at byte 328");
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 544)), "truncated: ends after 544 bytes");
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 547)), "truncated: ends after 544 bytes");
    EXPECT_EQ(refusalOfBytes(bytes), "");
}

TEST(FlightFile, IsTruncatedWhenItEndsInsideTheFirstFourBytesOfARecord) {
    const std::string bytes = FlightRecords().texture("a.rgb").push().pop().bytes();
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 2)), "truncated: ends inside the record at byte 0");
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 3)), "truncated: ends inside the record at byte 0");
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 326)), "truncated: ends inside the record at byte 324");
    EXPECT_EQ(refusalOfBytes(bytes.substr(0, 327)), "truncated: ends inside the record at byte 324");
}

TEST(FlightFile, IsWholeAtNoPlaceWhereAFileOfOsgsWriterIsCut) {
    const std::string bytes = bytesWrittenByOsg();
    std::set<std::size_t> acceptedCuts;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        if (refusalOfBytes(bytes.substr(0, size)).empty()) acceptedCuts.insert(size);
    }
    // A cut that leaves whole records and no level looks like a file without levels. The two bytes of zeros that begin
    // the next record look like padding.
    for (const std::size_t end : endsBeforeTheFirstLevel(bytes)) {
        EXPECT_EQ(acceptedCuts.erase(end), 1u);
        acceptedCuts.erase(end + 1);
    }
    EXPECT_THAT(acceptedCuts, IsEmpty());
    EXPECT_GT(bytes.size(), 1000u);
    EXPECT_EQ(refusalOfBytes(bytes), "");
}

TEST(FlightFile, IsUnderstoodAsOsgsReaderDoes) {
    const TemporaryDirectory folder;
    saveBytes(folder / "a.flt", bytesWrittenByOsg());
    const FlightFile file = scanFlightFile(folder / "a.flt");
    EXPECT_THAT(namesOf(file), ElementsAre("far.flt", "near.flt"));
    EXPECT_EQ(namesReadByOsg(std::filesystem::path(folder / "a.flt")), namesOf(file));
    EXPECT_EQ(file.bytes, std::filesystem::file_size(folder / "a.flt"));
    EXPECT_NE(file.paletteHashes[static_cast<std::size_t>(Palette::Color)], 0u);
}

TEST(FlightFile, IsDamagedWhenARecordIsShorterThanItsHead) {
    for (const std::size_t length : {1u, 2u, 3u}) {
        const FlightRecords records = FlightRecords().push().rawRecord(FlightRecords::Group, length).pop();
        EXPECT_EQ(refusalOfBytes(records.bytes()), "damaged: impossible record length at byte 328");
    }
}

TEST(FlightFile, IsDamagedWhenItsHeaderHasNoLength) {
    EXPECT_EQ(refusalOfBytes(std::string("\0\1\0\0", 4) + std::string(320, '\0')),
              "damaged: impossible record length at byte 0");
}

TEST(FlightFile, HasNoLevelsOfExtensionsSubfacesAndAttributes) {
    FlightRecords records;
    records.push().record(FlightRecords::Group, std::string(40, '\0')).push();
    records.record(FlightRecords::PushExtension, std::string(20, '\0'));
    records.record(FlightRecords::PopExtension, std::string(20, '\0'));
    records.record(FlightRecords::PushAttribute, std::string(4, '\0')).record(FlightRecords::PushSubface);
    records.reference("a.flt").pop().pop();
    EXPECT_THAT(namesOf(scanOf(records)), ElementsAre("a.flt"));
    EXPECT_THAT(namesReadByOsg(records), ElementsAre("a.flt"));
}

TEST(FlightFile, HasNoRecordsInsideContinuedOnes) {
    const std::string notAPop = FlightRecords::number(FlightRecords::Pop, 2) + FlightRecords::number(4, 2);
    FlightRecords records;
    records.push().record(FlightRecords::Extension, std::string(24, '\0') + notAPop);
    records.record(FlightRecords::Continuation, notAPop + notAPop).reference("a.flt").pop();
    EXPECT_THAT(namesOf(scanOf(records)), ElementsAre("a.flt"));
    EXPECT_THAT(namesReadByOsg(records), ElementsAre("a.flt"));
}

TEST(FlightFile, MayHaveRecordsOfAnUnknownKind) {
    const FlightRecords records = FlightRecords().push().record(999, "whatever").reference("a.flt").pop();
    EXPECT_THAT(namesOf(scanOf(records)), ElementsAre("a.flt"));
}

TEST(FlightFile, MayCloseItsLastLevelInLittleEndian) {
    FlightRecords records;
    records.push().reference("a.flt").append(std::string("\x0b\x00\x04\x00", 4));
    EXPECT_EQ(refusalOfBytes(records.bytes()), "");
    EXPECT_THAT(namesReadByOsg(records), ElementsAre("a.flt"));
}

TEST(FlightFile, IsTruncatedWhenALittleEndianPopLeavesALevelOpen) {
    FlightRecords records;
    records.push().push().append(std::string("\x0b\x00\x04\x00", 4));
    EXPECT_EQ(refusalOfBytes(records.bytes()), "truncated: ends after 336 bytes");
}

TEST(FlightFile, HasItsVerticesAfterTheirPalettesRecord) {
    const std::string looksLikeAPop("\x00\x0b\x00\x04", 4);
    const FlightRecords records = FlightRecords().push().vertexPalette(looksLikeAPop).reference("a.flt").pop();
    EXPECT_THAT(namesOf(scanOf(records)), ElementsAre("a.flt"));
    EXPECT_THAT(namesReadByOsg(records), ElementsAre("a.flt"));
}

TEST(FlightFile, IsTruncatedWhenTheVertexPaletteIsLargerThanTheFile) {
    const auto withPaletteOf = [](std::uint64_t size) {
        return FlightRecords().rawRecord(FlightRecords::VertexPalette, 8, FlightRecords::number(size, 4)).bytes();
    };
    EXPECT_EQ(refusalOfBytes(withPaletteOf(9)), "truncated: ends inside the record at byte 324");
    EXPECT_EQ(refusalOfBytes(withPaletteOf(0xffffffffu)), "truncated: ends inside the record at byte 324");
    EXPECT_EQ(refusalOfBytes(withPaletteOf(8)), "");
    EXPECT_EQ(refusalOfBytes(withPaletteOf(0)), "");
}

TEST(FlightFile, HasAVertexPaletteAsLongAsThePaletteSaysWhateverItsRecordSays) {
    for (const std::size_t length : {4u, 8u, 12u, 1000u}) {
        FlightRecords records;
        records.push().rawRecord(FlightRecords::VertexPalette, length, FlightRecords::number(12, 4) + "abcd");
        records.reference("a.flt").pop();
        EXPECT_THAT(namesOf(scanOf(records)), ElementsAre("a.flt")) << length;
        EXPECT_THAT(namesReadByOsg(records), ElementsAre("a.flt")) << length;
    }
}

TEST(FlightFile, ListsReferencesAndTexturesInFileOrder) {
    FlightRecords records;
    records.texture("z.rgb", 0).texture("textures\\a.rgb", 1).push().reference("z.flt").reference("a.flt");
    records.push().reference("tiles\\B.FLT").pop().reference("z.flt").pop();
    const FlightFile file = scanOf(records);
    EXPECT_THAT(namesOf(file), ElementsAre("z.flt", "a.flt", "tiles\\B.FLT", "z.flt"));
    EXPECT_THAT(file.textures, ElementsAre("z.rgb", "textures\\a.rgb"));
}

TEST(FlightFile, HasNamesThatFillTheirField) {
    const std::string name(FlightRecords::nameLength, 'n');
    const FlightFile file = scanOf(FlightRecords().texture(name).push().reference(name).pop());
    EXPECT_THAT(file.textures, ElementsAre(name));
    EXPECT_THAT(namesOf(file), ElementsAre(name));
}

TEST(FlightFile, HasNamesThatEndWithTheirRecord) {
    FlightRecords records;
    records.push().record(FlightRecords::ExternalReference, "a.flt").record(FlightRecords::ExternalReference);
    records.record(FlightRecords::TexturePalette, "b.rgb").pop();
    const FlightFile file = scanOf(records);
    EXPECT_THAT(namesOf(file), ElementsAre("a.flt", ""));
    EXPECT_EQ(file.references[0].takesParents, none);
    EXPECT_EQ(file.references[1].takesParents, none);
    EXPECT_THAT(file.textures, ElementsAre("b.rgb"));
    EXPECT_EQ(namesReadByOsg(records), namesOf(file));
}

TEST(FlightFile, TakesFlagsThatAreCutOffForZerosAsOsgDoes) {
    const auto takenWithRecordOf = [](std::size_t length) {
        FlightRecords records;
        const std::string body = FlightRecords::padded("a.flt", 204) + FlightRecords::number(0xffffffffu, 4);
        records.push().record(FlightRecords::ExternalReference, body.substr(0, length - 4)).pop();
        return scanOf(records).references.front().takesParents;
    };
    EXPECT_EQ(takenWithRecordOf(204), none);
    EXPECT_EQ(takenWithRecordOf(207), none);
    EXPECT_EQ(takenWithRecordOf(208), (Taken{true, true, true, true, true, true}));
    EXPECT_EQ(takenWithRecordOf(212), none);
}

TEST(FlightFile, TakesThePalettesThatItsRevisionKnows) {
    EXPECT_EQ(takenBy(0, FlightRecords::parentsPalettes), none);
    EXPECT_EQ(takenBy(14, FlightRecords::parentsPalettes), none);
    EXPECT_EQ(takenBy(1419, FlightRecords::parentsPalettes), none);
    EXPECT_EQ(takenBy(1420, FlightRecords::parentsPalettes), (Taken{true, true, true, false, false, false}));
    EXPECT_EQ(takenBy(1509, FlightRecords::parentsPalettes), (Taken{true, true, true, false, false, false}));
    EXPECT_EQ(takenBy(1510, FlightRecords::parentsPalettes), (Taken{true, true, true, true, false, false}));
    EXPECT_EQ(takenBy(1579, FlightRecords::parentsPalettes), (Taken{true, true, true, true, false, false}));
    EXPECT_EQ(takenBy(1580, FlightRecords::parentsPalettes), (Taken{true, true, true, true, true, false}));
    EXPECT_EQ(takenBy(1599, FlightRecords::parentsPalettes), (Taken{true, true, true, true, true, false}));
    EXPECT_EQ(takenBy(1600, FlightRecords::parentsPalettes), (Taken{true, true, true, true, true, true}));
    EXPECT_EQ(takenBy(1640, FlightRecords::parentsPalettes), (Taken{true, true, true, true, true, true}));
}

TEST(FlightFile, TakesNoPalettesInRevision1541) {
    EXPECT_EQ(takenBy(1540, FlightRecords::parentsPalettes), (Taken{true, true, true, true, false, false}));
    EXPECT_EQ(takenBy(1541, FlightRecords::parentsPalettes), none);
    EXPECT_EQ(takenBy(1542, FlightRecords::parentsPalettes), (Taken{true, true, true, true, false, false}));
}

TEST(FlightFile, KeepsItsOwnPaletteForEachFlagThatIsSet) {
    EXPECT_EQ(takenBy(1610, FlightRecords::ownPalettes), none);
    EXPECT_EQ(takenBy(1610, FlightRecords::ownColors), (Taken{false, true, true, true, true, true}));
    EXPECT_EQ(takenBy(1610, FlightRecords::ownMaterials), (Taken{true, false, true, true, true, true}));
    EXPECT_EQ(takenBy(1610, FlightRecords::ownTextures), (Taken{true, true, false, true, true, true}));
    EXPECT_EQ(takenBy(1610, FlightRecords::ownLightSources), (Taken{true, true, true, false, true, true}));
    EXPECT_EQ(takenBy(1610, FlightRecords::ownLightPointAppearances), (Taken{true, true, true, true, false, true}));
    EXPECT_EQ(takenBy(1610, FlightRecords::ownShaders), (Taken{true, true, true, true, true, false}));
    EXPECT_EQ(takenBy(1610, 0x18ffffffu), (Taken{true, true, true, true, true, true}));
}

TEST(FlightFile, HasAHashForEachKindOfPalette) {
    const std::vector<std::pair<unsigned, Palette>> kinds = {
        {FlightRecords::ColorPalette, Palette::Color},
        {FlightRecords::MaterialPalette, Palette::Material},
        {FlightRecords::OldMaterialPalette, Palette::Material},
        {FlightRecords::TexturePalette, Palette::Texture},
        {FlightRecords::LightSourcePalette, Palette::LightSource},
        {FlightRecords::LightPointAppearancePalette, Palette::LightPointAppearance},
        {FlightRecords::ShaderPalette, Palette::Shader}};
    for (const auto& [opcode, palette] : kinds) {
        const FlightFile file = scanOf(FlightRecords().record(opcode, "palette").push().pop());
        for (std::size_t i = 0; i < paletteKinds; ++i) {
            EXPECT_EQ(file.paletteHashes[i] != 0, i == static_cast<std::size_t>(palette)) << opcode << " " << i;
        }
    }
}

TEST(FlightFile, HasEqualHashesOfEqualPalettesOnly) {
    const auto hash = [](const std::string& first, const std::string& second) {
        const FlightRecords records = FlightRecords().texture(first, 0).texture(second, 1).push().pop();
        return hashOf(records, Palette::Texture);
    };
    EXPECT_EQ(hash("a.rgb", "b.rgb"), hash("a.rgb", "b.rgb"));
    EXPECT_NE(hash("a.rgb", "b.rgb"), hash("b.rgb", "a.rgb"));
    EXPECT_NE(hash("a.rgb", "b.rgb"), hash("a.rgb", "c.rgb"));
    EXPECT_NE(hash("a.rgb", "b.rgb"), hash("c.rgb", "b.rgb"));
    EXPECT_NE(hash("a.rgb", "b.rgb"), hashOf(FlightRecords().texture("a.rgb").push().pop(), Palette::Texture));
}

TEST(FlightFile, HasTheSamePaletteHashesWhateverElseIsInIt) {
    const FlightRecords one = FlightRecords(1420).record(FlightRecords::ColorPalette, "red").push().pop();
    FlightRecords other(1610);
    other.vertexPalette("vertices").record(FlightRecords::ColorPalette, "red").push().reference("a.flt").pop();
    EXPECT_EQ(hashOf(one, Palette::Color), hashOf(other, Palette::Color));
}

// The files below are nonsense; what counts is that none of them makes the scan crash or read out of bounds.

TEST(FlightFile, MayBeAnyBytes) {
    std::mt19937 random(1);
    for (int i = 0; i < 4000; ++i) {
        std::string bytes(random() % 300, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        // Behind the two bytes of a header and small lengths more of the nonsense is looked at.
        if (i % 2 == 0) bytes = std::string("\0\1\0\x10", 4) + std::string(12, '\0') + bytes;
        for (std::size_t j = 0; i % 4 == 0 && j < bytes.size(); j += 2) bytes[j] = '\0';
        refusalOfBytes(bytes);
    }
}

TEST(FlightFile, MayBeDamagedAnywhere) {
    std::mt19937 random(2);
    const std::string whole = bytesWrittenByOsg();
    std::size_t refused = 0;
    for (int i = 0; i < 4000; ++i) {
        std::string bytes = whole;
        for (std::size_t hits = 1 + random() % 8; hits > 0; --hits) {
            const std::size_t at = random() % bytes.size();
            if (hits % 4 == 0)
                bytes.erase(at, 1 + random() % 8);
            else
                bytes[at] = static_cast<char>(hits % 4 == 1 ? 0xff : random());
        }
        if (!refusalOfBytes(bytes).empty()) ++refused;
    }
    EXPECT_GT(refused, 300u);
    EXPECT_LT(refused, 3700u);
}

namespace {

/** What one reference of a file is handed on, seen from the small file that stands for it. */
FlightFile handedOn(const FlightRecords& records, std::size_t reference, const Taken& kinds) {
    const TemporaryDirectory folder;
    records.write(folder / "a.flt");
    saveBytes(folder / "palettes.flt", palettesHandedOn(folder / "a.flt", reference, kinds));
    return scanFlightFile(folder / "palettes.flt");
}

Taken taking(std::initializer_list<Palette> palettes) {
    Taken kinds{};
    for (const Palette palette : palettes) kinds[static_cast<std::size_t>(palette)] = true;
    return kinds;
}

FlightRecords withAllPalettes() {
    FlightRecords records;
    records.record(FlightRecords::ColorPalette, "colors").record(FlightRecords::MaterialPalette, "first");
    records.record(FlightRecords::MaterialPalette, "second").texture("a.png").vertexPalette("vertices");
    records.record(FlightRecords::LightSourcePalette, "lights");
    records.record(FlightRecords::LightPointAppearancePalette, "points")
        .record(FlightRecords::ShaderPalette, "shaders");
    records.push().reference("one.flt", ~FlightRecords::ownColors).record(FlightRecords::Group, "group");
    return records.push().reference("two.flt", FlightRecords::parentsPalettes).pop().pop();
}

}  // namespace

TEST(PalettesHandedOn, AreThoseThatAreWantedAndNoOthers) {
    const PerPalette<std::uint64_t> all = scanOf(withAllPalettes()).paletteHashes;
    for (std::size_t i = 0; i < paletteKinds; ++i) {
        Taken kinds{};
        kinds[i] = true;
        PerPalette<std::uint64_t> expected{};
        expected[i] = all[i];
        // A light point's color is looked up in the palette of colors while the file is read.
        if (i == static_cast<std::size_t>(Palette::LightPointAppearance)) expected[0] = all[0];
        EXPECT_EQ(handedOn(withAllPalettes(), 0, kinds).paletteHashes, expected) << i;
    }
}

TEST(PalettesHandedOn, KeepTheFlagsOfTheReferenceAndNotItsName) {
    const auto first = handedOn(withAllPalettes(), 0, taking({Palette::Color})).references;
    const auto second = handedOn(withAllPalettes(), 1, taking({Palette::Color})).references;

    ASSERT_EQ(first.size(), 1u);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(first[0].name, "x");
    EXPECT_EQ(first[0].takesParents, taking({Palette::Color}));
    EXPECT_EQ(second[0].takesParents, scanOf(withAllPalettes()).references[1].takesParents);
}

TEST(PalettesHandedOn, KeepTheOrderOfTheRecords) {
    FlightRecords records;
    records.record(FlightRecords::ColorPalette, "before").push().reference("a.flt", 0);
    records.record(FlightRecords::MaterialPalette, "after").pop();
    const TemporaryDirectory folder;
    records.write(folder / "a.flt");
    FlightRecords expected;
    expected.record(FlightRecords::ColorPalette, "before").push().reference("x", 0);
    expected.record(FlightRecords::MaterialPalette, "after").pop();

    EXPECT_EQ(palettesHandedOn(folder / "a.flt", 0, taking({Palette::Color, Palette::Material})), expected.bytes());
}
