#include "support/JobConversions.h"
#include "support/TexturedModels.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osg/Material>

#include <algorithm>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

constexpr std::size_t colorPaletteOpcode = 32;
constexpr std::size_t faceOpcode = 5;

/** A palette color as OpenFlight stores it: alpha, blue, green, red. */
using StoredColor = std::size_t;
constexpr StoredColor storedRed = 0xff0000ffu;
constexpr StoredColor storedBlue = 0xffff0000u;

/** Makes the first color of the file's palette that one, and all faces take it from there. */
void colorFacesByPalette(const fs::path& path, StoredColor color) {
    std::vector<std::string> records = splitRecords(readBytes(path));
    for (std::string& record : records) {
        const std::size_t opcode = bigEndian(record, 0, 2);
        if (opcode == colorPaletteOpcode) putBigEndian(record, 132, 4, color);
        if (opcode != faceOpcode) continue;
        putBigEndian(record, 44, 4, 0);    // flags: the color is no packed one
        putBigEndian(record, 48, 1, 0);    // light mode: the face's color, unlit
        putBigEndian(record, 68, 4, 127);  // color index: the first one, at its brightest
    }
    writeBytes(path, joinRecords(records));
}

/** A file with one textured, coloured square in a material; every such file uses the first entries of its palettes. */
void writePainted(const fs::path& path, int grey, float diffuse, StoredColor color,
                  const std::vector<std::string>& references = {}) {
    const std::string picture = path.stem().string() + ".png";
    writeGrey(path.parent_path() / picture, static_cast<unsigned char>(grey));
    const osg::ref_ptr<osg::Group> model = new osg::Group;
    const osg::ref_ptr<osg::Node> square = makeTextured(picture);
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(diffuse, diffuse, diffuse, 1));
    square->getOrCreateStateSet()->setAttribute(material);
    model->addChild(square);
    for (const std::string& reference : references) {
        osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
        proxy->setFileName(0, reference);
        model->addChild(proxy);
    }
    writeFlight(path, *model);
    colorFacesByPalette(path, color);
}

/** What paints the geometry of a graph, one line for each: texture, material, color. */
std::vector<std::string> paintOf(osg::Node* root) {
    std::vector<std::string> paint;
    for (const auto& geometry : findAll<osg::Geometry>(root)) {
        std::ostringstream line;
        const osg::NodePath path = geometry->getParentalNodePaths().front();
        for (osg::Node* node : path) {
            const osg::StateSet* state = node->getStateSet();
            if (!state) continue;
            const auto* texture = state->getTextureAttribute(0, osg::StateAttribute::TEXTURE);
            if (texture && texture->asTexture()->getImage(0)) {
                line << "grey " << int{*texture->asTexture()->getImage(0)->data()} << " ";
            }
            const auto* material =
                static_cast<const osg::Material*>(state->getAttribute(osg::StateAttribute::MATERIAL));
            // The reader multiplies the material's colors with the face's.
            const osg::Vec4 diffuse = material ? material->getDiffuse(osg::Material::FRONT) : osg::Vec4();
            if (material) line << "diffuse " << std::max(diffuse.r(), diffuse.b()) << " ";
        }
        const auto* colors = dynamic_cast<const osg::Vec4Array*>(geometry->getColorArray());
        if (colors && !colors->empty()) line << (colors->front().r() > colors->front().b() ? "red" : "blue");
        paint.push_back(line.str());
    }
    return paint;
}

/** The paint of a file as OSG loads it, its references included. */
std::vector<std::string> paintLoadedWhole(const fs::path& path) {
    const WorkingDirectory beside(path.parent_path());
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->setObjectCacheHint(osgDB::Options::CACHE_NONE);
    osgDB::Registry::instance()->clearObjectCache();
    return paintOf(osgDB::readRefNodeFile(path.filename().string(), options));
}

/** The paint of tile.ive in that folder after the library has converted master.flt there. */
std::vector<std::string> tilePaintByLibrary(const fs::path& folder) {
    const WorkingDirectory in(folder);
    testing::internal::CaptureStderr();
    veltrane::sceneutils::CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);
    visitor.convert("master.flt", "master.ive");
    testing::internal::GetCapturedStderr();
    return paintOf(load("tile.ive"));
}

const char* const ownPaint = "grey 150 diffuse 0.5 red";

}  // namespace

struct FlagsCase {
    const char* name;
    std::size_t flags;
    const char* paint;  ///< of the referenced file
};

void PrintTo(const FlagsCase& flagsCase, std::ostream* out) {
    *out << flagsCase.name;
}

class ReferenceFlags : public testing::TestWithParam<FlagsCase> {};

INSTANTIATE_TEST_SUITE_P(
    ConvertPalettes, ReferenceFlags,
    testing::Values(FlagsCase{"AllOwn", ownEverything, ownPaint},
                    FlagsCase{"ParentsTextures", ownEverything & ~ownTextures, "grey 100 diffuse 0.5 red"},
                    FlagsCase{"ParentsMaterials", ownEverything & ~ownMaterials, "grey 150 diffuse 0.25 red"},
                    FlagsCase{"ParentsColors", ownEverything & ~ownColors, "grey 150 diffuse 0.5 blue"},
                    FlagsCase{"AllParents", 0, "grey 100 diffuse 0.25 blue"}),
    [](const auto& information) { return information.param.name; });

TEST_P(ReferenceFlags, DecideWhosePalettesAConvertedFileUses) {
    const char* const expected = GetParam().paint;
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 100, 0.25f, storedBlue, {"tile.flt"});
    writePainted(folder / "in/tile.flt", 150, 0.5f, storedRed);
    setReferenceFlags(folder / "in/master.flt", GetParam().flags);

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"}).status, 0);

    EXPECT_THAT(paintLoadedWhole(folder / "in/master.flt"),
                UnorderedElementsAre("grey 100 diffuse 0.25 blue", expected));
    EXPECT_THAT(paintOf(load(folder / "out/master.ive")), ElementsAre("grey 100 diffuse 0.25 blue"));
    EXPECT_THAT(paintOf(load(folder / "out/tile.ive")), ElementsAre(expected));
    // The library converts each file for itself.
    EXPECT_THAT(tilePaintByLibrary(folder / "in"), ElementsAre(ownPaint));
}

TEST(ConvertPalettes, AreHandedOnOverSeveralLevels) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 100, 0.25f, storedBlue, {"a.flt"});
    writePainted(folder / "in/a.flt", 150, 0.5f, storedRed, {"b.flt"});
    writePainted(folder / "in/b.flt", 200, 0.75f, storedRed);
    setReferenceFlags(folder / "in/master.flt", ownEverything & ~ownTextures);
    setReferenceFlags(folder / "in/a.flt", ownEverything & ~ownTextures & ~ownMaterials);

    convertIn(folder.path(), {"in/master.flt", "out/master.ive", "--recurse"});

    EXPECT_THAT(paintOf(load(folder / "out/a.ive")), ElementsAre("grey 100 diffuse 0.5 red"));
    EXPECT_THAT(paintOf(load(folder / "out/b.ive")), ElementsAre("grey 100 diffuse 0.5 red"));
}

TEST(ConvertPalettes, GiveAFileWithTwoSetsOfThemTwoOutputs) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 50, 1.0f, storedRed, {"west.flt", "east.flt", "house.flt"});
    writePainted(folder / "in/west.flt", 100, 0.25f, storedBlue, {"house.flt"});
    writePainted(folder / "in/east.flt", 200, 0.75f, storedBlue, {"house.flt"});
    writePainted(folder / "in/house.flt", 150, 0.5f, storedRed);
    setReferenceFlags(folder / "in/west.flt", 0);
    setReferenceFlags(folder / "in/east.flt", 0);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_EQ(countsIn(result), "6 files read, 6 converted, 0 failed, 0 textures missing");
    EXPECT_THAT(pagedFiles(load(folder / "out/west.ive")), ElementsAre("house.ive"));
    EXPECT_THAT(pagedFiles(load(folder / "out/east.ive")), ElementsAre("house-2.ive"));
    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("west.ive", "east.ive", "house-3.ive"));
    EXPECT_THAT(paintOf(load(folder / "out/house.ive")), ElementsAre("grey 100 diffuse 0.25 blue"));
    EXPECT_THAT(paintOf(load(folder / "out/house-2.ive")), ElementsAre("grey 200 diffuse 0.75 blue"));
    EXPECT_THAT(paintOf(load(folder / "out/house-3.ive")), ElementsAre(ownPaint));
}

TEST(ConvertPalettes, AreTheSameInJobs) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 50, 1.0f, storedRed, {"west/w.flt", "east.flt", "house.flt"});
    writePainted(folder / "in/west/w.flt", 100, 0.25f, storedBlue, {"../house.flt", "../shed.flt"});
    writePainted(folder / "in/east.flt", 200, 0.75f, storedBlue, {"house.flt"});
    writePainted(folder / "in/house.flt", 150, 0.5f, storedRed, {"shed.flt"});
    writePainted(folder / "in/shed.flt", 250, 0.5f, storedRed);
    setReferenceFlags(folder / "in/west/w.flt", 0);
    setReferenceFlags(folder / "in/east.flt", ownEverything & ~ownTextures);
    setReferenceFlags(folder / "in/house.flt", ownEverything & ~ownMaterials & ~ownTextures);

    const ToolResult inOrder = convertIn(folder.path(), {"in/master.flt", "plain/m.ive", "--recurse"});
    const ToolResult inJobs = convertInJobs(folder.path());

    EXPECT_EQ(countsIn(inJobs), countsIn(inOrder));
    EXPECT_EQ(countsIn(inJobs), "10 files read, 10 converted, 0 failed, 0 textures missing");
    expectSameOutputs(outputsIn(folder / "out"), outputsIn(folder / "plain"));
}

TEST(ConvertPalettes, ThatChangeConvertTheFilesThatTakeThem) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 100, 0.25f, storedBlue, {"tile.flt"});
    writePainted(folder / "in/tile.flt", 150, 0.5f, storedRed);
    setReferenceFlags(folder / "in/master.flt", ownEverything & ~ownColors);
    convertInJobs(folder.path());

    colorFacesByPalette(folder / "in/master.flt", storedRed);
    const ToolResult result = convertInJobs(folder.path());

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(paintOf(load(folder / "out/tile.ive")), ElementsAre("grey 150 diffuse 0.5 red"));
}

TEST(ConvertPalettes, ThatAreTheSameGiveOneOutput) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 100, 0.25f, storedBlue, {"house.flt", "house.flt"});
    writePainted(folder / "in/house.flt", 150, 0.5f, storedRed);
    setReferenceFlags(folder / "in/master.flt", 0);

    convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"});

    EXPECT_THAT(pagedFiles(load(folder / "out/m.ive")), ElementsAre("house.ive", "house.ive"));
}

TEST(ConvertPalettes, AreNotLostWithoutAWord) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 100, 0.25f, storedBlue, {"tile.flt"});
    writePainted(folder / "in/tile.flt", 150, 0.5f, storedRed, {"house.flt"});
    writePainted(folder / "in/house.flt", 200, 0.75f, storedRed);
    setReferenceFlags(folder / "in/master.flt", ownEverything);
    setReferenceFlags(folder / "in/tile.flt", 0);

    const ToolResult result = convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--convert-references"});

    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.errorLines(), ElementsAre("sceneutils: house.flt: takes palettes of tile.flt, which only a "
                                                 "conversion hands on; pass --recurse"));
    EXPECT_FALSE(fs::exists(folder / "out"));
    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--recurse"}).status, 0);
}

TEST(ConvertPalettes, OfTheMasterNeedItsReferencesConverted) {
    const TemporaryDirectory folder;
    writePainted(folder / "in/master.flt", 100, 0.25f, storedBlue, {"tile.flt"});
    writePainted(folder / "in/tile.flt", 150, 0.5f, storedRed);
    setReferenceFlags(folder / "in/master.flt", 0);

    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive"}).status, 3);
    EXPECT_EQ(convertIn(folder.path(), {"in/master.flt", "out/m.ive", "--convert-references"}).status, 0);
    EXPECT_THAT(paintOf(load(folder / "out/tile.ive")), ElementsAre("grey 100 diffuse 0.25 blue"));
}
