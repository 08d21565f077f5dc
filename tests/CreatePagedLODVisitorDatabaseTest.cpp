#include <sceneutils/CreatePagedLODVisitor.h>

#include "support/FileRequests.h"
#include "support/FindNodes.h"
#include "support/FlightFiles.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <sceneutils/ShaderGenerator.h>

#include <gmock/gmock.h>

#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/Program>
#include <osgDB/ObjectCache>
#include <osgDB/Registry>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <new>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace testing_support;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using veltrane::sceneutils::CreatePagedLODVisitor;
using veltrane::sceneutils::ShaderGenerator;

using Page = std::pair<std::string, float>;

// A database in a temporary folder that is the working directory, so that files have bare names.
class PagedDatabase : public testing::Test {
protected:
    std::string convert(const std::string& input = "world.flt", const std::string& output = "world.ive") {
        const StandardError standardError;
        converted = visitor.convert(input, output);
        return standardError.text();
    }

    static osg::ref_ptr<osg::Node> load(const std::string& name) { return osgDB::readRefNodeFile(name); }

    // The PagedLODs of a written file.
    static std::vector<osg::ref_ptr<osg::PagedLOD>> pagesIn(const std::string& name) {
        const osg::ref_ptr<osg::Node> root = load(name);
        return findAll<osg::PagedLOD>(root);
    }

    // What they load, and from how far.
    static std::vector<Page> namesAndRangesIn(const std::string& name) {
        std::vector<Page> pages;
        for (const auto& page : pagesIn(name)) pages.emplace_back(page->getFileName(0), page->getMaxRange(0));
        return pages;
    }

    void save(osg::Node& node, const std::string& name = "saved.ive") {
        const StandardError silenced;
        visitor.saveIVE(&node, name);
    }

    std::string at(const std::string& name) const { return folder / name; }

    TemporaryDirectory folder;
    WorkingDirectory working{folder.path()};
    CreatePagedLODVisitor visitor{nullptr};
    osg::ref_ptr<osg::Node> converted;
};

TEST_F(PagedDatabase, TellsTheStepsOfAPlainConversion) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));

    EXPECT_EQ("Converting world.flt\nSaving world.ive\ndone convert\n", convert());
    EXPECT_FALSE(std::filesystem::exists("tile.ive"));
}

TEST_F(PagedDatabase, TellsWhereReferencedFilesAreSaved) {
    FlightFile{10, {"tile.flt", "tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setConvertExRefsToIVE(true);

    EXPECT_EQ("Converting world.flt\nSaving tile.ive\nSaving world.ive\ndone convert\n", convert());
    EXPECT_TRUE(std::filesystem::exists("tile.ive"));
}

TEST_F(PagedDatabase, TellsTheStepsOfEveryFileWhileRecursing) {
    FlightFile{10, {"a.flt", "b.flt", "a.flt"}}.write(at("world.flt"));
    FlightFile{5, {"b.flt"}}.write(at("a.flt"));
    FlightFile{2, {}}.write(at("b.flt"));
    visitor.setRecurse(true);

    EXPECT_EQ(
        "Converting world.flt\n"
        "Converting a.flt\n"
        "Converting b.flt\nSaving b.ive\ndone convert\n"
        "Saving a.ive\ndone convert\n"
        "Saving world.ive\ndone convert\n",
        convert());
}

TEST_F(PagedDatabase, ReportsAnUnreadableInputOnceAndWritesNothing) {
    const std::string reported = "Converting gone.flt\nError reading file gone.flt\ndone convert\n";

    EXPECT_EQ(reported, convert("gone.flt"));
    EXPECT_FALSE(converted);
    EXPECT_FALSE(std::filesystem::exists("world.ive"));
    EXPECT_EQ("Converting gone.flt\ndone convert\n", convert("gone.flt"));
    EXPECT_EQ("Converting other.flt\nError reading file other.flt\ndone convert\n", convert("other.flt"));
}

TEST_F(PagedDatabase, ReportsAnUnreadableReferenceForEveryProxyWhileRecursing) {
    FlightFile{10, {"gone.flt", "gone.flt"}}.write(at("world.flt"));
    visitor.setRecurse(true);
    const std::string attempt = "Converting gone.flt\nError reading file gone.flt\ndone convert\n";

    EXPECT_EQ("Converting world.flt\n" + attempt + attempt + "Saving world.ive\ndone convert\n", convert());
    EXPECT_THAT(findAll<osg::PagedLOD>(converted), IsEmpty());
    EXPECT_THAT(findAll<osg::ProxyNode>(converted), SizeIs(2));
    EXPECT_FALSE(std::filesystem::exists("gone.ive"));
}

TEST_F(PagedDatabase, PassesOverAnUnreadableReferenceInSilenceWithoutRecursion) {
    FlightFile{10, {"gone.flt"}}.write(at("world.flt"));
    visitor.setConvertExRefsToIVE(true);

    EXPECT_EQ("Converting world.flt\nSaving world.ive\ndone convert\n", convert());
    EXPECT_THAT(findAll<osg::PagedLOD>(converted), IsEmpty());
    EXPECT_THAT(findAll<osg::ProxyNode>(converted), SizeIs(1));
}

TEST_F(PagedDatabase, ReturnsTheGraphThatItWrote) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));

    convert();

    ASSERT_TRUE(converted);
    EXPECT_EQ(1, converted->referenceCount());
    const auto pages = findAll<osg::PagedLOD>(converted);
    ASSERT_THAT(pages, SizeIs(1));
    EXPECT_THAT(findAll<osg::ProxyNode>(pages[0]), SizeIs(1));
    EXPECT_EQ(converted->getBound(), load("world.ive")->getBound());
}

TEST_F(PagedDatabase, WritesPagesThatLoadTheReferencedFile) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));

    convert();

    const auto pages = pagesIn("world.ive");
    ASSERT_THAT(pages, SizeIs(1));
    EXPECT_EQ("tile.flt", pages[0]->getFileName(0));
    EXPECT_EQ(0u, pages[0]->getNumChildren());
    EXPECT_EQ(osg::LOD::USER_DEFINED_CENTER, pages[0]->getCenterMode());
    EXPECT_EQ(osg::Vec3(), pages[0]->getCenter());
    EXPECT_FLOAT_EQ(5, pages[0]->getRadius());
    EXPECT_EQ(0, pages[0]->getMinRange(0));
    EXPECT_FLOAT_EQ(10005, pages[0]->getMaxRange(0));
}

TEST_F(PagedDatabase, HasAQuarterOfTheRangeAtEveryLevelDown) {
    FlightFile{100, {"a.flt"}}.write(at("world.flt"));
    FlightFile{50, {"b.flt"}}.write(at("a.flt"));
    FlightFile{25, {"c.flt"}}.write(at("b.flt"));
    FlightFile{5, {}}.write(at("c.flt"));
    visitor.setRecurse(true);

    convert();

    EXPECT_THAT(namesAndRangesIn("world.ive"), ElementsAre(Page("a.ive", 10050)));
    EXPECT_THAT(namesAndRangesIn("a.ive"), ElementsAre(Page("b.ive", 2525)));
    EXPECT_THAT(namesAndRangesIn("b.ive"), ElementsAre(Page("c.ive", 630)));
    EXPECT_THAT(pagesIn("c.ive"), IsEmpty());
}

bool hasNormals(const std::string& name) {
    const auto geometries = findAll<osg::Geometry>(osgDB::readRefNodeFile(name));
    return !geometries.empty() && std::all_of(geometries.begin(), geometries.end(),
                                              [](const auto& geometry) { return geometry->getNormalArray(); });
}

TEST_F(PagedDatabase, IsSmoothedInTheTopFileOnlyWhileRecursing) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setRecurse(true);

    convert();

    EXPECT_TRUE(hasNormals("world.ive"));
    EXPECT_FALSE(hasNormals("tile.ive"));
}

TEST_F(PagedDatabase, IsSmoothedInEveryFileWithoutRecursion) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setConvertExRefsToIVE(true);

    convert();

    EXPECT_TRUE(hasNormals("world.ive"));
    EXPECT_TRUE(hasNormals("tile.ive"));
}

TEST_F(PagedDatabase, IsNotSmoothedWhenAskedNotTo) {
    FlightFile{10, {}}.write(at("world.flt"));
    visitor.setDoSmooth(false);

    convert();

    EXPECT_FALSE(hasNormals("world.ive"));
}

TEST_F(PagedDatabase, LeavesReferencesOfReferencesUnpagedWithoutRecursion) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {"far.flt"}}.write(at("tile.flt"));
    FlightFile{1, {}}.write(at("far.flt"));
    const ModelRequests requests;
    visitor.setConvertExRefsToIVE(true);

    convert();

    EXPECT_THAT(requests.names(), ElementsAre("world.flt", "tile.flt"));
    EXPECT_THAT(pagesIn("tile.ive"), IsEmpty());
    EXPECT_THAT(findAll<osg::ProxyNode>(load("tile.ive")), SizeIs(1));
}

TEST_F(PagedDatabase, TakesNoNoticeOfTheEmbedSettings) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setRecurse(true);
    convert();
    const std::string plainWorld = bytesOf("world.ive"), plainTile = bytesOf("tile.ive");

    CreatePagedLODVisitor embedding(nullptr);
    embedding.setRecurse(true);
    embedding.setEmbedExRefs(true);
    embedding.setEmbedExRefsOfExRefs(true);
    const StandardError silenced;
    embedding.convert("world.flt", "world.ive");

    EXPECT_EQ(plainWorld, bytesOf("world.ive"));
    EXPECT_EQ(plainTile, bytesOf("tile.ive"));
}

TEST_F(PagedDatabase, IsAskedForItsDirectoryTwiceOver) {
    const ModelRequests requests;
    FlightFile{10, {"tile.flt"}}.write(at("tile.flt"));
    std::filesystem::create_directory("db");
    std::filesystem::create_directory("db/db");
    FlightFile{10, {"tile.flt"}}.write(at("db/db/world.flt"));
    FlightFile{5, {}}.write(at("db/db/tile.flt"));

    EXPECT_EQ("Converting world.flt\nSaving world.ive\ndone convert\n", convert("db/world.flt"));

    EXPECT_THAT(requests.names(), ElementsAre("db/db/world.flt", "db/db/tile.flt"));
    EXPECT_THAT(namesAndRangesIn("world.ive"), ElementsAre(Page("tile.flt", 10005)));
}

TEST_F(PagedDatabase, IsSearchedForByOsgDbWhenTheDoubledPathLeadsNowhere) {
    std::filesystem::create_directory("db");
    FlightFile{10, {"tile.flt"}}.write(at("db/world.flt"));
    FlightFile{10, {"elsewhere.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("elsewhere.flt"));

    convert("db/world.flt", "db/world.ive");

    EXPECT_THAT(namesAndRangesIn("db/world.ive"), ElementsAre(Page("elsewhere.flt", 10005)));
}

TEST_F(PagedDatabase, SplitsPathsAtBackslashesToo) {
    const ModelRequests requests;

    EXPECT_EQ("Converting world.flt\nError reading file C:\\db\\sub/x\\world.flt\ndone convert\n",
              convert("C:\\db\\sub/x\\world.flt"));
    EXPECT_EQ("Converting b.flt\nError reading file a\\x/b.flt\ndone convert\n", convert("a\\x/b.flt"));

    EXPECT_THAT(requests.names(), ElementsAre("C:\\db\\sub/x\\C:\\db\\sub/x\\world.flt", "a\\x/a\\x/b.flt"));
}

TEST_F(PagedDatabase, ShowsTheWholeInputWithoutASeparator) {
    EXPECT_EQ("Converting \nError reading file \ndone convert\n", convert(""));
    EXPECT_EQ("Converting ..\nError reading file ..\ndone convert\n", convert(".."));
    EXPECT_EQ("Converting \nError reading file db/\ndone convert\n", convert("db/"));
}

TEST_F(PagedDatabase, MayHaveNoNameWhenTheApplicationReadsIt) {
    const ModelRequests models([](const std::string&, const osgDB::Options*) {
        return osgDB::ReaderWriter::ReadResult(makeGeode(makeRectangle(5)).get());
    });

    EXPECT_EQ("Converting \nSaving world.ive\ndone convert\n", convert(""));
}

TEST_F(PagedDatabase, FindsNestedFoldersFromItsOwnFolderWithoutRecursion) {
    std::filesystem::create_directory("sub");
    FlightFile{10, {"sub/tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("sub/tile.flt"));
    visitor.setConvertExRefsToIVE(true);

    EXPECT_EQ("Converting world.flt\nSaving sub/tile.ive\nSaving world.ive\ndone convert\n", convert());
    EXPECT_THAT(namesAndRangesIn("world.ive"), ElementsAre(Page("sub/tile.ive", 10005)));
    EXPECT_TRUE(load("sub/tile.ive"));
}

TEST_F(PagedDatabase, LosesNestedFoldersWhileRecursingWithoutHelp) {
    std::filesystem::create_directory("sub");
    FlightFile{10, {"sub/tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("sub/tile.flt"));
    const ModelRequests requests;
    visitor.setRecurse(true);

    EXPECT_EQ(
        "Converting world.flt\nConverting tile.flt\nError reading file sub/tile.flt\ndone convert\n"
        "Saving world.ive\ndone convert\n",
        convert());
    EXPECT_THAT(requests.names(), ElementsAre("world.flt", "sub/sub/tile.flt"));
}

TEST_F(PagedDatabase, FindsNestedFoldersWhileRecursingWithAnApplicationsFindFileCallback) {
    std::filesystem::create_directories("sub/deep");
    FlightFile{10, {"sub/tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {"deep/tree.flt", "../up.flt"}}.write(at("sub/tile.flt"));
    FlightFile{1, {}}.write(at("sub/deep/tree.flt"));
    FlightFile{2, {}}.write(at("up.flt"));
    const DoubledDirectoriesFound help;
    visitor.setRecurse(true);

    convert(at("world.flt"), at("world.ive"));

    EXPECT_THAT(namesAndRangesIn("sub/tile.ive"), ElementsAre(Page("deep/tree.ive", 2501), Page("../up.ive", 2502)));
    EXPECT_TRUE(std::filesystem::exists("sub/deep/tree.ive"));
    EXPECT_TRUE(std::filesystem::exists("up.ive"));
}

TEST_F(PagedDatabase, KnowsFilesByNameWhateverFolderTheyAreIn) {
    std::filesystem::create_directory("sub");
    FlightFile{10, {"sub/world.flt", "tile.flt"}}.write(at("world.flt"));
    FlightFile{9, {"tile.flt"}}.write(at("sub/world.flt"));
    FlightFile{5, {}}.write(at("sub/tile.flt"));
    FlightFile{1, {}}.write(at("tile.flt"));
    const DoubledDirectoriesFound help;
    visitor.setRecurse(true);

    convert(at("world.flt"), at("world.ive"));

    EXPECT_THAT(namesAndRangesIn("world.ive"), ElementsAre(Page("sub/world.ive", 10009), Page("tile.ive", 10005)));
    EXPECT_FALSE(std::filesystem::exists("tile.ive"));
}

TEST_F(PagedDatabase, KeepsAProxyThatIsTheRootOfTheInput) {
    const ModelRequests models([](const std::string& name, const osgDB::Options*) {
        if (name != "world.flt") return osgDB::ReaderWriter::ReadResult(makeGeode(makeRectangle(5)).get());
        return osgDB::ReaderWriter::ReadResult(makeProxy("tile.flt").get());
    });

    convert();

    ASSERT_TRUE(converted);
    EXPECT_STREQ("ProxyNode", converted->className());
    EXPECT_EQ(0u, converted->getNumParents());
    EXPECT_EQ(2u, models.names().size());
}

TEST_F(PagedDatabase, GivesAModelWithoutGeometryNoRadius) {
    FlightFile{10, {"empty.flt"}}.write(at("world.flt"));
    FlightFile{}.write(at("empty.flt"));

    convert();

    const auto pages = findAll<osg::PagedLOD>(converted);
    ASSERT_THAT(pages, SizeIs(1));
    EXPECT_EQ(-1.0f, pages[0]->getRadius());
    EXPECT_EQ(9999.0f, pages[0]->getMaxRange(0));
    EXPECT_THAT(namesAndRangesIn("world.ive"), ElementsAre(Page("empty.flt", 9999)));
}

// The files of a database that refers to itself, each with its references.
struct Circle {
    const char* name;
    std::vector<std::pair<std::string, std::vector<std::string>>> files;
};

void PrintTo(const Circle& circle, std::ostream* out) {
    *out << circle.name;
}

class CircularDatabase : public PagedDatabase, public testing::WithParamInterface<Circle> {};

TEST_P(CircularDatabase, EndsWithEveryReferencePagedAndLoads) {
    for (const auto& [name, references] : GetParam().files) {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        FlightFile{10, references}.write(at(name));
    }
    const DoubledDirectoriesFound help;
    visitor.setRecurse(true);

    convert(at("world.flt"), at("world.ive"));

    for (const auto& [name, references] : GetParam().files) {
        const std::string written = std::filesystem::path(name).replace_extension(".ive");
        const auto pages = pagesIn(written);
        ASSERT_THAT(pages, SizeIs(references.size())) << written;
        for (const auto& page : pages) {
            EXPECT_FLOAT_EQ(10, page->getRadius());
            EXPECT_TRUE(load(std::filesystem::path(written).parent_path() / page->getFileName(0)));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    , CircularDatabase,
    testing::Values(Circle{"Self", {{"world.flt", {"world.flt", "world.flt"}}}},
                    Circle{"Pair", {{"world.flt", {"a.flt"}}, {"a.flt", {"world.flt"}}}},
                    Circle{"Inner", {{"world.flt", {"a.flt"}}, {"a.flt", {"b.flt"}}, {"b.flt", {"a.flt", "b.flt"}}}},
                    Circle{"Folders", {{"world.flt", {"sub/a.flt"}}, {"sub/a.flt", {"../world.flt", "../sub/a.flt"}}}},
                    Circle{"Dots", {{"world.flt", {"./././world.flt"}}}}),
    [](const auto& circle) { return circle.param.name; });

TEST_F(PagedDatabase, EndsACircleThatLeadsThroughALinkedFolder) {
    std::filesystem::create_directory_symlink(".", at("loop"));
    FlightFile{10, {"loop/world.flt", "none/../world.flt"}}.write(at("world.flt"));
    const DoubledDirectoriesFound help;
    visitor.setRecurse(true);

    convert(at("world.flt"), at("world.ive"));

    EXPECT_THAT(pagesIn("world.ive"), testing::Not(testing::IsEmpty()));
}

TEST_F(PagedDatabase, SurvivesAWriterThatThrows) {
    class Throwing : public osgDB::WriteFileCallback {
        osgDB::ReaderWriter::WriteResult writeNode(const osg::Node&, const std::string&,
                                                   const osgDB::Options*) override {
            throw std::bad_alloc();
        }
    };
    FlightFile{10, {}}.write(at("world.flt"));
    osgDB::Registry::instance()->setWriteFileCallback(new Throwing);

    EXPECT_EQ("Converting world.flt\nSaving world.ive\ndone convert\n", convert());

    osgDB::Registry::instance()->setWriteFileCallback(nullptr);
    EXPECT_TRUE(converted);
}

TEST_F(PagedDatabase, EndsACircleWithoutRecursionToo) {
    FlightFile{10, {"world.flt", "a.flt"}}.write(at("world.flt"));
    FlightFile{5, {"world.flt"}}.write(at("a.flt"));
    visitor.setConvertExRefsToIVE(true);

    EXPECT_EQ("Converting world.flt\nSaving world.ive\nSaving a.ive\nSaving world.ive\ndone convert\n", convert());
    EXPECT_THAT(findAll<osg::PagedLOD>(converted), SizeIs(2));
}

TEST_F(PagedDatabase, NamesTexturesWithoutCopyingTheirPixels) {
    const osg::Vec4ub color(17, 34, 51, 255);
    writeTexturedFlightFile(at("world.flt"), {writePicture(folder, "brick.png", color)}, 4);
    const ModelWrites writes;

    convert();

    const std::string pixel(reinterpret_cast<const char*>(color.ptr()), 4);
    EXPECT_THAT(bytesOf("world.ive"), AllOf(HasSubstr("brick.png"), Not(HasSubstr(pixel + pixel))));
    EXPECT_EQ(";noTexturesInIVEFile", writes.lastOptions()->getOptionString());
    EXPECT_EQ(osgDB::Options::CACHE_NONE, writes.lastOptions()->getObjectCacheHint());
    const auto textures = findTextures(load("world.ive"));
    ASSERT_THAT(textures, SizeIs(1));
    ASSERT_TRUE(textures[0]->getImage());
    EXPECT_EQ(osg::Image::NO_PREFERENCE, textures[0]->getImage()->getWriteHint());
    EXPECT_EQ(8, textures[0]->getImage()->s());
}

// The colours of an image's pixels, as red-green-blue numbers.
std::multiset<unsigned int> colorsOf(const osg::Image& image) {
    std::multiset<unsigned int> colors;
    for (int t = 0; t < image.t(); ++t) {
        for (int s = 0; s < image.s(); ++s) {
            const unsigned char* pixel = image.data(s, t);
            colors.insert(static_cast<unsigned int>(pixel[0] << 16 | pixel[1] << 8 | pixel[2]));
        }
    }
    return colors;
}

TEST_F(PagedDatabase, CarriesTextureAtlasesInsideItsFiles) {
    const auto red = writePicture(folder, "red.png", osg::Vec4ub(200, 0, 0, 255));
    const auto blue = writePicture(folder, "blue.png", osg::Vec4ub(0, 0, 100, 255));
    writeTexturedFlightFile(at("world.flt"), {red, blue}, 1);

    convert();

    for (const char* name : {"red.png", "blue.png"}) std::filesystem::remove(name);
    const auto textures = findTextures(load("world.ive"));
    ASSERT_FALSE(textures.empty());
    ASSERT_TRUE(textures[0]->getImage());
    const auto colors = colorsOf(*textures[0]->getImage());
    EXPECT_EQ(colorsOf(*findTextures(converted).at(0)->getImage()), colors);
    EXPECT_GE(colors.count(200u << 16), 64u);
    EXPECT_GE(colors.count(100u), 64u);
}

TEST_F(PagedDatabase, KeepsTheWrapModeOfATextureThatTilesShare) {
    const auto brick = writePicture(folder, "brick.png", osg::Vec4ub(9, 9, 9, 255));
    const auto other = writePicture(folder, "other.png", osg::Vec4ub(1, 1, 1, 255));
    FlightFile{10, {"inside.flt", "repeating.flt"}}.write(at("world.flt"));
    writeTexturedFlightFile(at("inside.flt"), {brick, other}, 1);
    writeTexturedFlightFile(at("repeating.flt"), {brick}, 4);
    visitor.setRecurse(true);

    convert();

    const auto textures = findTextures(load("repeating.ive"));
    ASSERT_THAT(textures, SizeIs(1));
    EXPECT_EQ(osg::Texture::REPEAT, textures[0]->getWrap(osg::Texture::WRAP_S));
    EXPECT_EQ(osg::Texture::REPEAT, textures[0]->getWrap(osg::Texture::WRAP_T));
}

TEST_F(PagedDatabase, FiltersTexturesTrilinearlyWhenTheyShrink) {
    const osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeRectangle(1, osg::Vec3(), 4));
    geode->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);

    save(*geode);

    EXPECT_EQ(osg::Texture::LINEAR_MIPMAP_LINEAR, texture->getFilter(osg::Texture::MIN_FILTER));
    EXPECT_EQ(osg::Texture::NEAREST, texture->getFilter(osg::Texture::MAG_FILTER));
}

std::string programNameOf(const osg::Node& node) {
    const osg::StateSet* stateSet = node.getStateSet();
    const osg::StateAttribute* program = stateSet ? stateSet->getAttribute(osg::StateAttribute::PROGRAM) : nullptr;
    return program ? program->getName() : std::string();
}

TEST_F(PagedDatabase, IsShadedWithLightNormalMapsAndFogButNoShadow) {
    const osg::ref_ptr<osg::Group> saved = new osg::Group;
    const osg::ref_ptr<osg::Group> shaded = new osg::Group;
    ShaderGenerator::instance()->setShadowTex(5);
    ShaderGenerator::instance()->process(shaded, false, true, true, true);

    save(*saved);
    ShaderGenerator::instance()->setShadowTex(-1);

    EXPECT_NE("", programNameOf(*shaded));
    EXPECT_EQ(programNameOf(*shaded), programNameOf(*saved));
    EXPECT_FALSE(saved->getStateSet()->getUniform("ShadowMapTex"));
}

TEST_F(PagedDatabase, KeepsItsProgramsWhenItIsShadedAgainAfterLoading) {
    FlightFile{10, {}}.write(at("world.flt"));
    convert();
    const osg::ref_ptr<osg::Node> loaded = load("world.ive");
    ASSERT_TRUE(loaded && loaded->getStateSet());
    const osg::ref_ptr<osg::StateAttribute> own = loaded->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
    ASSERT_TRUE(own);
    ASSERT_NE(own, converted->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));

    ShaderGenerator::instance()->process(loaded, false, true, true, true);

    EXPECT_EQ(own, loaded->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    EXPECT_EQ(programNameOf(*converted), own->getName());
    const auto* program = static_cast<const osg::Program*>(own.get());
    ASSERT_EQ(2u, program->getNumShaders());
    EXPECT_THAT(program->getShader(0)->getShaderSource(), HasSubstr("main"));
}

TEST_F(PagedDatabase, HasItsGeometryMergedAndItsLoadedProxiesReplaced) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeGeode(makeRectangle(1)));
    root->addChild(makeGeode(makeRectangle(1, osg::Vec3(5, 0, 0))));
    const osg::ref_ptr<osg::ProxyNode> loaded = makeProxy("loaded.osg");
    loaded->addChild(makeGeode(makeRectangle(1, osg::Vec3(9, 0, 0))));
    loaded->getOrCreateStateSet();
    root->addChild(loaded);

    save(*root);

    EXPECT_THAT(findAll<osg::ProxyNode>(root), IsEmpty());
    EXPECT_THAT(findAll<osg::Geode>(root), SizeIs(2));
    EXPECT_THAT(findAll<osg::Geometry>(root), SizeIs(2));
}

TEST_F(PagedDatabase, KeepsItsTransformsAndCopiesWhatTheyShare) {
    const osg::ref_ptr<osg::Geode> tree = makeGeode(makeRectangle(1));
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    for (const double x : {10.0, 20.0}) {
        const osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform(osg::Matrix::translate(x, 0, 0));
        place->addChild(tree);
        root->addChild(place);
    }

    save(*root);

    const auto places = findAll<osg::MatrixTransform>(root);
    ASSERT_THAT(places, SizeIs(2));
    EXPECT_EQ(10, places[0]->getMatrix().getTrans().x());
    EXPECT_EQ(20, places[1]->getMatrix().getTrans().x());
    EXPECT_NE(places[0]->getChild(0), places[1]->getChild(0));
}

TEST_F(PagedDatabase, IsPostProcessedBeforeSavingIsTold) {
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(makeGeode(makeRectangle(1)));
    root->getChild(0)->getOrCreateStateSet()->addUniform(new osg::Uniform("NormalMapTex", 1.0f));
    const StandardError standardError;

    visitor.saveIVE(root, "saved.ive");

    EXPECT_THAT(standardError.text(), MatchesRegex("Unable to get the texture unit\n.*\nSaving saved.ive\n"));
}

TEST_F(PagedDatabase, SharesStateThatIsTheSameOnlyAfterPostProcessing) {
    const osg::ref_ptr<osg::Image> image = makeImage("a.png");
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    for (const auto filter : {osg::Texture::NEAREST, osg::Texture::LINEAR}) {
        const osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
        texture->setFilter(osg::Texture::MIN_FILTER, filter);
        texture->setWrap(osg::Texture::WRAP_S, osg::Texture::REPEAT);
        const osg::ref_ptr<osg::Geometry> rectangle = makeRectangle(1, osg::Vec3(), 4);
        rectangle->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
        root->addChild(makeGeode(rectangle));
    }

    save(*root);

    const auto textures = findTextures(root);
    ASSERT_THAT(textures, SizeIs(2));
    EXPECT_EQ(textures[0], textures[1]);
    const auto geometries = findAll<osg::Geometry>(root);
    ASSERT_THAT(geometries, SizeIs(2));
    EXPECT_EQ(geometries[0]->getStateSet(), geometries[1]->getStateSet());
}

TEST_F(PagedDatabase, AddsNothingButShadersWhenAskedForThemAlone) {
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeRectangle(1));
    const osg::ref_ptr<osg::Texture2D> texture = makeTexture();
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    geode->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
    const osg::ref_ptr<osg::Geode> same = makeGeode(makeRectangle(1));
    same->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);

    visitor.addShaders(geode);
    ShaderGenerator::instance()->process(same, false, true, true, true);

    EXPECT_EQ(0, geode->getStateSet()->compare(*same->getStateSet(), true));
    EXPECT_NE("", programNameOf(*geode));
    EXPECT_EQ(osg::Texture::NEAREST, texture->getFilter(osg::Texture::MIN_FILTER));
    EXPECT_FALSE(geode->getDrawable(0)->asGeometry()->getNormalArray());
}

TEST_F(PagedDatabase, IgnoresNullGraphs) {
    const StandardError standardError;

    visitor.saveIVE(nullptr, "null.ive");
    visitor.addShaders(nullptr);

    EXPECT_EQ("", standardError.text());
    EXPECT_FALSE(std::filesystem::exists("null.ive"));
}

class UnwritablePlace : public PagedDatabase, public testing::WithParamInterface<const char*> {};

TEST_P(UnwritablePlace, GoesUnnoticed) {
    std::filesystem::create_directory("folder.ive");
    std::filesystem::create_symlink("/dev/full", "full.ive");
    const std::string place = GetParam();
    FlightFile{10, {}}.write(at("world.flt"));

    EXPECT_EQ("Converting world.flt\nSaving " + place + "\ndone convert\n", convert("world.flt", place));
    EXPECT_TRUE(converted);
}

INSTANTIATE_TEST_SUITE_P(, UnwritablePlace,
                         testing::Values("missing/world.ive", "folder.ive", "", "world.unknown", "full.ive"));

class RegistryCache : public PagedDatabase {
protected:
    RegistryCache() { osgDB::Registry::instance()->setObjectCache(own.get()); }
    ~RegistryCache() override { osgDB::Registry::instance()->setObjectCache(new osgDB::ObjectCache); }

    static osgDB::ObjectCache* current() { return osgDB::Registry::instance()->getObjectCache(); }

    osg::ref_ptr<osgDB::ObjectCache> own = new osgDB::ObjectCache;
};

TEST_F(RegistryCache, IsTheSameAndAsEmptyAfterAConversion) {
    FlightFile{10, {"tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setRecurse(true);

    convert();

    EXPECT_EQ(own, current());
    EXPECT_FALSE(own->getFromObjectCache("world.flt"));
    EXPECT_FALSE(own->getFromObjectCache("tile.flt"));
    EXPECT_EQ(1, own->referenceCount() - 1);
}

TEST_F(RegistryCache, IsNotAskedForTheInput) {
    FlightFile{10, {}}.write(at("world.flt"));
    const osg::ref_ptr<osg::Group> stale = new osg::Group;
    own->addEntryToObjectCache("world.flt", stale.get());

    convert();

    ASSERT_TRUE(converted);
    EXPECT_NE(stale, converted);
    EXPECT_EQ(stale, own->getFromObjectCache("world.flt"));
}

TEST_F(RegistryCache, MayBeMissing) {
    FlightFile{10, {}}.write(at("world.flt"));
    osgDB::Registry::instance()->setObjectCache(nullptr);

    convert();

    EXPECT_TRUE(converted);
    EXPECT_FALSE(current());
}

struct Failure {
    const char* name;
    std::function<void()> fail;
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.name;
}

class ThrowingReader : public RegistryCache, public testing::WithParamInterface<Failure> {};

TEST_P(ThrowingReader, CountsAsUnreadableAndLeavesTheCacheInPlace) {
    const ModelRequests models([](const std::string&, const osgDB::Options*) {
        GetParam().fail();
        return osgDB::ReaderWriter::ReadResult::FILE_NOT_HANDLED;
    });

    EXPECT_EQ("Converting world.flt\nError reading file world.flt\ndone convert\n", convert());

    EXPECT_FALSE(converted);
    EXPECT_EQ(own, current());
}

TEST_P(ThrowingReader, LeavesTheReferenceToItsFileAsItIs) {
    FlightFile{10, {"bad.flt", "tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    const ModelRequests models([](const std::string& name, const osgDB::Options* options) {
        if (name == "bad.flt") GetParam().fail();
        return osgDB::Registry::instance()->readNodeImplementation(name, options);
    });

    convert();

    ASSERT_TRUE(converted);
    EXPECT_THAT(findAll<osg::PagedLOD>(converted), SizeIs(1));
    EXPECT_EQ(own, current());
}

INSTANTIATE_TEST_SUITE_P(, ThrowingReader,
                         testing::Values(Failure{"LengthError", [] { throw std::length_error("damaged"); }},
                                         Failure{"BadAlloc", [] { throw std::bad_alloc(); }},
                                         Failure{"NoStandardException", [] { throw 42; }}),
                         [](const auto& failure) { return failure.param.name; });

TEST_F(PagedDatabase, IsTheSameWhenAnotherVisitorConvertsItAgain) {
    FlightFile{10, {"tile.flt", "tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setRecurse(true);
    const std::string firstMessages = convert();
    const std::string firstWorld = bytesOf("world.ive"), firstTile = bytesOf("tile.ive");

    const osg::ref_ptr<osg::Node> firstGraph = converted;
    visitor = CreatePagedLODVisitor(nullptr);
    visitor.setRecurse(true);

    EXPECT_EQ(firstMessages, convert());
    EXPECT_NE(firstGraph, converted);
    EXPECT_EQ(firstWorld, bytesOf("world.ive"));
    EXPECT_EQ(firstTile, bytesOf("tile.ive"));
}

class SecondConversion : public PagedDatabase, public testing::WithParamInterface<bool> {};

TEST_P(SecondConversion, BySameVisitorKnowsTheSpheresAndLeavesTheFirstGraphAlone) {
    FlightFile{10, {"tile.flt", "tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    visitor.setRecurse(true);
    convert();
    const std::string firstWorld = bytesOf("world.ive");
    const bool keepsFirstGraph = GetParam();
    const osg::ref_ptr<osg::Node> firstGraph = keepsFirstGraph ? converted : nullptr;
    converted = nullptr;

    EXPECT_EQ("Converting world.flt\nSaving world.ive\ndone convert\n", convert());

    EXPECT_EQ(firstWorld, bytesOf("world.ive"));
    EXPECT_THAT(findAll<osg::PagedLOD>(converted), SizeIs(2));
    if (keepsFirstGraph) {
        EXPECT_THAT(findAll<osg::PagedLOD>(firstGraph), SizeIs(2));
    }
}

INSTANTIATE_TEST_SUITE_P(, SecondConversion, testing::Bool(),
                         [](const auto& kept) { return kept.param ? "FirstGraphKept" : "FirstGraphGone"; });

TEST_F(PagedDatabase, IsReadFromAFileCutShortAnywhereOrReportedAsUnreadable) {
    FlightFile{10, {"tile.flt"}}.write(at("whole.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));
    const std::string whole = bytesOf("whole.flt");
    const StandardError standardError;

    for (std::string::size_type length = 0; length < whole.size(); length += 1 + whole.size() / 150) {
        const std::string name = "cut" + std::to_string(length) + ".flt";
        writeBytes(name, whole.substr(0, length));
        std::filesystem::remove("cut.ive");
        const osg::ref_ptr<osg::Node> node = CreatePagedLODVisitor(nullptr).convert(name, "cut.ive");
        EXPECT_EQ(static_cast<bool>(node), std::filesystem::exists("cut.ive")) << length;
        const bool reported = standardError.text().find("Error reading file " + name + "\n") != std::string::npos;
        EXPECT_EQ(!node, reported) << length;
    }
}

class NoFlightFile : public PagedDatabase, public testing::WithParamInterface<const char*> {};

TEST_P(NoFlightFile, IsReportedAsUnreadable) {
    writeBytes("zero.flt", "");
    writeBytes("text.flt", "These are words, and no OpenFlight model.\n");
    std::filesystem::create_directory("folder.flt");
    const std::string name = GetParam();

    EXPECT_EQ("Converting " + name + "\nError reading file " + name + "\ndone convert\n", convert(name));
    EXPECT_FALSE(converted);
    EXPECT_FALSE(std::filesystem::exists("world.ive"));
}

TEST_P(NoFlightFile, StaysAnUnpagedReference) {
    writeBytes("zero.flt", "");
    writeBytes("text.flt", "These are words, and no OpenFlight model.\n");
    std::filesystem::create_directory("folder.flt");
    FlightFile{10, {GetParam(), "tile.flt"}}.write(at("world.flt"));
    FlightFile{5, {}}.write(at("tile.flt"));

    convert();

    ASSERT_TRUE(converted);
    const auto pages = findAll<osg::PagedLOD>(converted);
    ASSERT_THAT(pages, SizeIs(1));
    EXPECT_EQ("tile.flt", pages[0]->getFileName(0));
}

INSTANTIATE_TEST_SUITE_P(, NoFlightFile, testing::Values("zero.flt", "text.flt", "folder.flt"));

}  // namespace
