#include "support/FileRequests.h"
#include "support/FindNodes.h"
#include "support/Graphs.h"
#include "support/LODDrawings.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <sceneutils/LODMarkup.h>
#include <sceneutils/ShaderGenerator.h>

#include <gmock/gmock.h>

#include <osg/Camera>
#include <osg/Material>
#include <osg/PositionAttitudeTransform>
#include <osg/Switch>
#include <osg/ValueObject>
#include <osgDB/ReadFile>
#include <osgText/Font>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using veltrane::sceneutils::LODMarkup;
using veltrane::sceneutils::ShaderGenerator;
using veltrane::sceneutils::SimpleGeometryGenerator;

namespace {

namespace fs = std::filesystem;

const osg::Vec4 red(1, 0, 0, 1);
const osg::Vec4 green(0, 1, 0, 1);
const osg::Vec4 blue(0, 0, 1, 1);
const osg::Vec4 orange(1, 0.5f, 0, 1);

using Path = std::vector<osg::Node*>;

/** A new folder to work in, and what comes on standard error. */
struct Workplace {
    TemporaryDirectory folder;
    WorkingDirectory entered{folder.path()};
    StandardError standardError;

    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path())) names.insert(entry.path().filename().string());
        return names;
    }
};

template <typename Node = osg::Group>
osg::ref_ptr<Node> makeNamed(const std::string& name, osg::Node* child = nullptr) {
    osg::ref_ptr<Node> node = new Node;
    node->setName(name);
    if (child) node->addChild(child);
    return node;
}

/** A geode with a square of radius sqrt(0.5) around (0.5, 0.5, 0). */
osg::ref_ptr<osg::Geode> makeRoof(const std::string& name = "roof") {
    const osg::ref_ptr<osg::Geode> geode = makeGeode(makeSquare());
    geode->setName(name);
    return geode;
}

osg::ref_ptr<osg::LOD> makeHouse(osg::Node* child) {
    const auto lod = makeLOD("house");
    lod->addChild(new osg::Node, 0.0f, 10.0f);
    lod->addChild(child, 10.5f, 50.0f);
    return lod;
}

osg::ref_ptr<osg::PagedLOD> makePaged(osg::Node* child, const std::string& name = "tile") {
    const auto lod = makeLOD<osg::PagedLOD>(name);
    lod->addChild(child, 0.0f, 100.0f, "near.ive");
    return lod;
}

osg::ref_ptr<osg::Group> markPath(Path path) {
    return LODMarkup().markupPath(path);
}

/** What standard error gets for a path but for its first line. */
std::string linesOf(const Path& path) {
    const Workplace workplace;
    markPath(path);
    const std::string text = workplace.standardError.text();
    const std::string first = "PATH-----\n";
    EXPECT_EQ(text.substr(0, first.size()), first);
    return text.substr(first.size());
}

/** The next node of a chain: the last child, which stands behind what a generator draws itself. */
osg::Group& below(osg::Group& node) {
    return *node.getChild(node.getNumChildren() - 1)->asGroup();
}

osg::StateAttribute* programOf(osg::Node& node) {
    return node.getStateSet() ? node.getStateSet()->getAttribute(osg::StateAttribute::PROGRAM) : nullptr;
}

/** Nodes of an application. */
struct DerivedCamera : osg::Camera {
    const char* className() const override { return "DerivedCamera"; }
};
struct DerivedTile : osg::PagedLOD {
    const char* className() const override { return "DerivedTile"; }
};

/** Offers a font as a file of that name while it lives. */
class OfferedFont {
public:
    explicit OfferedFont(const std::string& name) : _callback(new Callback(name)) {
        osgDB::Registry::instance()->setFindFileCallback(new Finder(name, *_callback));
        osgDB::Registry::instance()->setReadFileCallback(_callback.get());
    }
    ~OfferedFont() {
        osgDB::Registry::instance()->setFindFileCallback(nullptr);
        osgDB::Registry::instance()->setReadFileCallback(nullptr);
    }
    OfferedFont(const OfferedFont&) = delete;
    OfferedFont& operator=(const OfferedFont&) = delete;

    osgText::Font* font() const { return _callback->font; }
    int reads() const { return _callback->reads; }
    int searches() const { return _callback->searches; }
    void hide() { _callback->isHidden = true; }

private:
    struct Callback : osgDB::ReadFileCallback {
        explicit Callback(std::string offered) : name(std::move(offered)) {}
        osgDB::ReaderWriter::ReadResult readObject(const std::string& asked, const osgDB::Options* options) override {
            if (asked != name) return osgDB::ReadFileCallback::readObject(asked, options);
            ++reads;
            if (isHidden) return osgDB::ReaderWriter::ReadResult::FILE_NOT_FOUND;
            return font.get();
        }
        std::string name;
        osg::ref_ptr<osgText::Font> font = new osgText::Font;
        bool isHidden = false;
        int reads = 0;
        int searches = 0;
    };
    struct Finder : osgDB::FindFileCallback {
        Finder(std::string offered, Callback& user) : name(std::move(offered)), callback(user) {}
        std::string findDataFile(const std::string& asked, const osgDB::Options* options,
                                 osgDB::CaseSensitivity sensitivity) override {
            if (asked != name) return osgDB::FindFileCallback::findDataFile(asked, options, sensitivity);
            ++callback.searches;
            return name;
        }
        std::string name;
        Callback& callback;
    };
    osg::ref_ptr<Callback> _callback;
};

}  // namespace

TEST(LODMarkupPath, DescribesEachKindOfNodeInALine) {
    const auto roof = makeRoof();
    const auto house = makeHouse(roof);
    const auto tile = makePaged(house);
    const osg::ref_ptr<osg::MatrixTransform> moved = makeNamed<osg::MatrixTransform>("moved", tile);
    const auto root = makeNamed<osg::Switch>("world", moved);
    Workplace workplace;

    markPath({root, moved, tile, house, roof, roof->getDrawable(0)});

    EXPECT_EQ(workplace.standardError.text(),
              "PATH-----\n"
              "Switch world, 1 children, bound radius=2, parents 0\n"
              "Transform moved, 1 children, bound radius=2, parents 1\n"
              "PagedLOD tile near.ive 0...100, 1 children, bound radius=2, parents 1\n"
              "LOD house  10.5...50, 2 children, bound radius=2, parents 1\n"
              "Geode  roof, 1 drawables , parents 1\n"
              "Geometry , parents 1\n");
}

TEST(LODMarkupPath, DescribesNodesWithoutNames) {
    const auto geode = makeGeode(makeSquare());
    const auto tile = makePaged(geode, "");
    const osg::ref_ptr<osg::PositionAttitudeTransform> placed = new osg::PositionAttitudeTransform;
    placed->addChild(tile);

    EXPECT_EQ(linesOf({placed, tile, geode}),
              "Transform , 1 children, bound radius=2, parents 0\n"
              "PagedLOD  near.ive 0...100, 1 children, bound radius=2, parents 1\n"
              "Geode  , 1 drawables , parents 1\n");
}

TEST(LODMarkupPath, WritesNumbersAsStreamsDo) {
    const auto group = makeNamed("group", makeRoof());
    const osg::ref_ptr<osg::Group> empty = new osg::Group;

    EXPECT_EQ(linesOf({group}), "Group group, 1 children, bound radius=0.707107, parents 0\n");
    EXPECT_EQ(linesOf({empty}), "Group , 0 children, bound radius=-1, parents 0\n");
}

TEST(LODMarkupPath, SkipsCamerasAndNullPointers) {
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    const osg::ref_ptr<osg::Node> leaf = new osg::Node;
    Workplace workplace;

    const auto chain = markPath({camera, nullptr, leaf});

    EXPECT_EQ(workplace.standardError.text(), "PATH-----\nNode , parents 0\n");
    EXPECT_EQ(chain->getNumChildren(), 0u);
}

TEST(LODMarkupPath, TakesDerivedClassesForWhatTheyAre) {
    const osg::ref_ptr<osg::Node> leaf = new osg::Node;
    const auto tile = makeLOD<DerivedTile>("tile");
    tile->addChild(leaf, 0.0f, 100.0f, "near.ive");
    const osg::ref_ptr<osg::Camera> camera = new DerivedCamera;
    camera->addChild(tile);

    EXPECT_EQ(linesOf({camera, tile, leaf}),
              "DerivedTile tile near.ive 0...100, 1 children, bound radius=2, parents 1\n"
              "Node , parents 1\n");
}

TEST(LODMarkupPath, MakesAGroupThatDrawsItsBackFaces) {
    Workplace workplace;

    const auto chain = markPath({});

    EXPECT_EQ(workplace.standardError.text(), "PATH-----\n");
    EXPECT_STREQ(chain->className(), "Group");
    EXPECT_EQ(chain->referenceCount(), 1);
    EXPECT_EQ(chain->getNumChildren(), 0u);
    EXPECT_EQ(chain->getStateSet()->getModeList(),
              (osg::StateSet::ModeList{{GL_CULL_FACE, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE}}));
    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(LODMarkupPath, KeepsTransformsWithoutTheirChildren) {
    const osg::ref_ptr<osg::MatrixTransform> inner = makeNamed<osg::MatrixTransform>("");
    inner->setMatrix(osg::Matrix::scale(2.0, 2.0, 2.0));
    inner->addChild(new osg::Node);
    const osg::ref_ptr<osg::PositionAttitudeTransform> outer =
        makeNamed<osg::PositionAttitudeTransform>("outer", inner);
    outer->setPosition(osg::Vec3d(1, 2, 3));
    outer->setUpdateCallback(new osg::NodeCallback);
    Workplace workplace;

    const auto chain = markPath({outer, inner});

    auto& outerCopy = dynamic_cast<osg::PositionAttitudeTransform&>(below(*chain));
    EXPECT_NE(&outerCopy, outer);
    EXPECT_EQ(outerCopy.getName(), "outer");
    EXPECT_EQ(outerCopy.getPosition(), osg::Vec3d(1, 2, 3));
    EXPECT_EQ(outerCopy.getUpdateCallback(), outer->getUpdateCallback()) << "a shallow copy";
    ASSERT_EQ(outerCopy.getNumChildren(), 1u);
    auto& innerCopy = dynamic_cast<osg::MatrixTransform&>(below(outerCopy));
    EXPECT_EQ(innerCopy.getName(), "no name Transform");
    EXPECT_EQ(innerCopy.getMatrix(), inner->getMatrix());
    EXPECT_EQ(innerCopy.getNumChildren(), 0u);
    EXPECT_EQ(inner->getName(), "");
}

TEST(LODMarkupPath, MakesAGeneratorOfEachLOD) {
    const auto roof = makeRoof();
    const auto house = makeHouse(roof);
    const auto tile = makePaged(house, "");
    Workplace workplace;

    const auto chain = markPath({tile, house, roof});

    auto& tileMarks = dynamic_cast<SimpleGeometryGenerator&>(below(*chain));
    EXPECT_EQ(tileMarks.getName(), "no name LOD");
    EXPECT_EQ(tileMarks.getDescriptions(), std::vector<std::string>{"near.ive"});
    EXPECT_THAT(wordsOf(tileMarks), ElementsAre("LOD , rad=2\n", "LOD , rad=100\n"));
    auto& houseMarks = dynamic_cast<SimpleGeometryGenerator&>(below(tileMarks));
    EXPECT_EQ(houseMarks.getName(), "house");
    EXPECT_EQ(houseMarks.getNumDescriptions(), 0u);
    EXPECT_EQ(linesIn(houseMarks), spokes(osg::Vec3(), 2, blue) + square(osg::Vec3(), 2, red) +
                                       square(osg::Vec3(), 50, green) + spokes(osg::Vec3(), 50, blue));
    EXPECT_EQ(below(houseMarks).getName(), "roof");
}

TEST(LODMarkupPath, MakesAnOrangeBoxOfEachGeode) {
    const auto roof = makeGeode(makeSquare());
    roof->setInitialBound(osg::BoundingSphere(osg::Vec3(10, 20, 30), 4.0f));
    roof->dirtyBound();
    roof->setName("roof");
    const float half = roof->getBound().radius() - 0.5f;
    Workplace workplace;

    const auto chain = markPath({roof});

    ASSERT_EQ(chain->getNumChildren(), 1u);
    auto& marks = dynamic_cast<SimpleGeometryGenerator&>(*chain->getChild(0));
    EXPECT_EQ(marks.getName(), "roof");
    EXPECT_EQ(linesIn(marks), cube(roof->getBound().center(), half, orange));
    EXPECT_EQ(marks.getNumChildren(), 1u);
    EXPECT_EQ(below(*markPath({makeRoof("")})).getName(), "");
}

TEST(LODMarkupPath, TurnsTheBoxOfASmallGeodeInsideOut) {
    const auto roof = makeRoof();
    const osg::ref_ptr<osg::Geode> empty = new osg::Geode;
    Workplace workplace;

    EXPECT_EQ(linesIn(below(*markPath({roof}))),
              cube(osg::Vec3(0.5f, 0.5f, 0), static_cast<float>(double(roof->getBound().radius()) - 0.5), orange));
    EXPECT_EQ(linesIn(below(*markPath({empty}))), cube(osg::Vec3(), -1.5f, orange));
}

TEST(LODMarkupPath, HangsWhatFollowsBelowWhatWasMadeBefore) {
    const auto roof = makeRoof();
    const auto house = makeHouse(roof);
    const osg::ref_ptr<osg::MatrixTransform> moved = makeNamed<osg::MatrixTransform>("moved", house);
    const auto group = makeNamed("group", moved);
    Workplace workplace;

    const auto chain = markPath({group, moved, house, roof, roof->getDrawable(0)});

    ASSERT_EQ(chain->getNumChildren(), 1u) << "no node for a plain group";
    EXPECT_EQ(below(*chain).getName(), "moved");
    EXPECT_EQ(below(below(*chain)).getName(), "house");
    EXPECT_EQ(below(below(below(*chain))).getName(), "roof");
    EXPECT_EQ(below(below(below(*chain))).getNumChildren(), 1u) << "nothing for the drawable";
}

TEST(LODMarkupPath, TellsTheUserObjectsOfAGeode) {
    const auto roof = makeRoof();
    osg::UserDataContainer& data = *roof->getOrCreateUserDataContainer();
    data.addUserObject(new osg::ShortValueObject("short", -3));
    data.addUserObject(new osg::IntValueObject("int", 123456));
    data.addUserObject(new osg::FloatValueObject("float", 0.25f));
    data.addUserObject(new osg::BoolValueObject("bool", true));
    data.addUserObject(new osg::BoolValueObject("", false));

    EXPECT_EQ(linesOf({roof}),
              "Geode  roof, 1 drawables , parents 0\n"
              "   short (ShortValueObject) = -3\n"
              "   int (IntValueObject) = 123456\n"
              "   float (FloatValueObject) = 0.25\n"
              "   bool (BoolValueObject) = 1\n"
              "    (BoolValueObject) = 0\n");
}

TEST(LODMarkupPath, TellsNoValuesOfOtherUserObjects) {
    const auto roof = makeRoof();
    osg::UserDataContainer& data = *roof->getOrCreateUserDataContainer();
    data.addUserObject(new osg::StringValueObject("string", "text"));
    data.addUserObject(new osg::DoubleValueObject("double", 0.5));
    data.addUserObject(new osg::UIntValueObject("uint", 7u));
    data.addUserObject(nullptr);
    data.addUserObject(new osg::Material);
    const osg::ref_ptr<osg::Node> leaf = new osg::Node;

    EXPECT_EQ(linesOf({roof, leaf}),
              "Geode  roof, 1 drawables , parents 0\n"
              "   string (StringValueObject) =    double (DoubleValueObject) =    uint (UIntValueObject) = "
              "    (Material) = Node , parents 0\n");
}

TEST(LODMarkupPath, TellsUserObjectsOfGeodesOnly) {
    const auto group = makeNamed("group");
    group->getOrCreateUserDataContainer()->addUserObject(new osg::IntValueObject("int", 1));

    EXPECT_EQ(linesOf({group}), "Group group, 0 children, bound radius=-1, parents 0\n");
}

TEST(LODMarkupPath, TakesAnLODThatThePathDoesNotGoThroughForAGroup) {
    const auto roof = makeRoof();
    const auto tile = makePaged(roof);
    const auto stranger = makeNamed("stranger");
    Workplace workplace;

    const auto last = markPath({tile});
    const auto torn = markPath({tile, stranger});

    EXPECT_EQ(workplace.standardError.text(),
              "PATH-----\nPagedLOD tile, 1 children, bound radius=2, parents 0\n"
              "PATH-----\nPagedLOD tile, 1 children, bound radius=2, parents 0\n"
              "Group stranger, 0 children, bound radius=-1, parents 0\n");
    EXPECT_EQ(last->getNumChildren(), 0u);
    EXPECT_EQ(torn->getNumChildren(), 0u);
    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(LODMarkupPath, TellsNoFileForAChildThatHasNone) {
    const osg::ref_ptr<osg::Node> first = new osg::Node, second = new osg::Node;
    const auto tile = makePaged(first);
    tile->osg::LOD::addChild(second, 7.0f, 8.0f);
    const auto unnamed = makeLOD<osg::PagedLOD>("no files");
    unnamed->osg::LOD::addChild(second, 1.0f, 2.0f);
    Workplace workplace;

    const auto tileChain = markPath({tile, second});
    const auto unnamedChain = markPath({unnamed, second});

    EXPECT_THAT(workplace.standardError.text(), HasSubstr("PagedLOD tile  7...8, 2 children"));
    EXPECT_THAT(workplace.standardError.text(), HasSubstr("PagedLOD no files  1...2, 1 children"));
    EXPECT_EQ(below(*tileChain).getDescription(0), "near.ive") << "the first file, whichever child the path has";
    EXPECT_EQ(below(*unnamedChain).getDescriptions(), std::vector<std::string>{""});
}

TEST(LODMarkupPath, TellsTheFileAndTheRangeOfTheChildThatIsNext) {
    const osg::ref_ptr<osg::Node> far = new osg::Node;
    const auto tile = makePaged(new osg::Node);
    tile->addChild(far, 100.0f, 6000.0f, "far.ive");

    EXPECT_EQ(linesOf({tile, far}),
              "PagedLOD tile far.ive 100...6000, 2 children, bound radius=2, parents 0\nNode , parents 1\n");
}

TEST(LODMarkupPath, ToleratesAnLODWithFewerRangesThanChildren) {
    const osg::ref_ptr<osg::Node> next = new osg::Node;
    const auto lod = makeHouse(next);
    lod->setRangeList({});

    EXPECT_EQ(linesOf({lod, next}), "LOD house  0...0, 2 children, bound radius=2, parents 0\nNode , parents 1\n");
}

TEST(LODMarkupPath, WritesTheChildOfAPagedLODAndTheGeode) {
    const auto roof = makeRoof();
    const auto group = makeNamed("in the tile", roof);
    const auto tile = makePaged(group);
    Workplace workplace;

    markPath({tile, group, roof});

    EXPECT_THAT(workplace.files(), ElementsAre("geode.osg", "pagedlod.osg"));
    EXPECT_EQ(osgDB::readRefNodeFile("pagedlod.osg")->getName(), "in the tile");
    const osg::ref_ptr<osg::Node> geode = osgDB::readRefNodeFile("geode.osg");
    EXPECT_EQ(geode->getName(), "roof");
    EXPECT_EQ(geode->getBound().radius(), roof->getBound().radius());
    EXPECT_EQ(findAll<osg::Drawable>(geode).size(), 1u);
}

TEST(LODMarkupPath, WritesTheGeodeWithItsNewProgramAndTheTileWithoutIt) {
    const auto roof = makeRoof();
    roof->getOrCreateStateSet()->setMode(GL_BLEND, osg::StateAttribute::ON);
    const auto tile = makePaged(roof);
    Workplace workplace;

    markPath({tile, roof});

    const auto hasProgram = [](const std::string& file) {
        for (const auto& state : findStateSets(osgDB::readRefNodeFile(file)))
            if (state->getAttribute(osg::StateAttribute::PROGRAM)) return true;
        return false;
    };
    EXPECT_TRUE(hasProgram("geode.osg"));
    EXPECT_FALSE(hasProgram("pagedlod.osg")) << "it is written before";
}

TEST(LODMarkupPath, WritesNoFileForAPlainLOD) {
    const auto group = makeNamed("group");
    Workplace workplace;

    markPath({makeHouse(group), group});

    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(LODMarkupPath, LeavesTheLastOfSeveralTilesAndGeodesInTheFiles) {
    const auto second = makeRoof("second");
    const auto inner = makePaged(second, "inner");
    const auto first = makeRoof("first");
    const auto outer = makePaged(inner, "outer");
    Workplace workplace;

    markPath({first, outer, inner, second});

    EXPECT_EQ(osgDB::readRefNodeFile("pagedlod.osg")->getName(), "second");
    EXPECT_EQ(osgDB::readRefNodeFile("geode.osg")->getName(), "second");
}

TEST(LODMarkupPath, DoesItsWorkEvenIfNoFileCanBeWritten) {
    const auto roof = makeRoof();
    const auto tile = makePaged(roof);
    Workplace workplace;
    const OsgMessages messages;
    for (const char* name : {"geode.osg", "pagedlod.osg", "lodmarkup.osg"}) fs::create_directory(name);

    const auto chains = LODMarkup().markupPath(roof.get());

    ASSERT_EQ(chains->getNumChildren(), 1u);
    EXPECT_EQ(below(below(*chains->getChild(0)->asGroup())).getName(), "roof");
    EXPECT_EQ(workplace.standardError.text(),
              "num paths = 1\nPATH-----\nPagedLOD tile near.ive 0...100, 1 children, bound radius=2, parents 0\n"
              "Geode  roof, 1 drawables , parents 1\n");
    for (const char* name : {"geode.osg", "pagedlod.osg", "lodmarkup.osg"}) EXPECT_TRUE(fs::is_empty(name));
}

TEST(LODMarkupPath, WritesWithTheRegistrysOptions) {
    const osg::ref_ptr<osgDB::Options> own = osgDB::Registry::instance()->getOptions();
    const auto roof = makeRoof();
    Workplace workplace;
    osgDB::Registry::instance()->setOptions(new osgDB::Options("the registry's"));
    const ModelWrites writes;

    LODMarkup().markupPath(roof.get());
    osgDB::Registry::instance()->setOptions(own);

    ASSERT_TRUE(writes.lastOptions());
    EXPECT_EQ(writes.lastOptions()->getOptionString(), "the registry's");
}

TEST(LODMarkupPath, GivesTheGeodeAndTheChainProgramsForNormalMapsAndFogOnly) {
    constexpr int shadowUnit = 3;
    ShaderGenerator& shaders = *ShaderGenerator::instance();
    const auto makeShaded = [] {
        const auto geode = makeRoof();
        osg::StateSet& state = *geode->getOrCreateStateSet();
        state.setTextureAttributeAndModes(0, makeTexture("wall.png"));
        state.setTextureAttributeAndModes(1, makeTexture("normals.png"));
        state.addUniform(new osg::Uniform("NormalMapTex", 1));
        state.setAttribute(new osg::Material);
        return geode;
    };
    const auto marked = makeShaded();
    Workplace workplace;

    shaders.setShadowTex(shadowUnit);
    const auto chain = markPath({marked});
    for (unsigned int flags = 0; flags < 16; ++flags) {
        const auto expected = makeShaded();
        shaders.process(expected, flags & 8u, flags & 4u, flags & 2u, flags & 1u);
        EXPECT_EQ(programOf(*marked) == programOf(*expected), flags == 3u) << flags;
    }
    shaders.setShadowTex(-1);

    EXPECT_TRUE(programOf(*marked));
    EXPECT_TRUE(programOf(*chain)) << "the group above the box has a state set";
    EXPECT_TRUE(programOf(geometryOf(below(*chain))));
}

TEST(LODMarkupPath, ChangesNothingInTheSceneButThePrograms) {
    const auto roof = makeRoof();
    const auto house = makeHouse(roof);
    const osg::ref_ptr<osg::MatrixTransform> moved = makeNamed<osg::MatrixTransform>("moved", house);
    moved->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    const auto root = makeNamed("root", moved);
    root->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::ON);
    Workplace workplace;

    const auto chain = markPath({root, moved, house, roof});

    EXPECT_FALSE(programOf(*root));
    EXPECT_FALSE(programOf(*moved));
    EXPECT_EQ(below(*chain).getStateSet()->getMode(GL_LIGHTING), osg::StateAttribute::OFF);
    for (osg::Node* node : {static_cast<osg::Node*>(moved), static_cast<osg::Node*>(house),
                            static_cast<osg::Node*>(roof), house->getChild(0)})
        EXPECT_EQ(node->getNumParents(), 1u);
    EXPECT_EQ(root->getNumParents(), 0u);
    EXPECT_EQ(moved->getNumChildren(), 1u);
    EXPECT_EQ(house->getNumChildren(), 2u);
    EXPECT_EQ(house->referenceCount(), 2);
}

TEST(LODMarkupPath, GivesTheCopyOfATransformAProgramButNotTheTransform) {
    const auto roof = makeRoof();
    const osg::ref_ptr<osg::MatrixTransform> moved = makeNamed<osg::MatrixTransform>("moved", roof);
    moved->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    Workplace workplace;

    const auto chain = markPath({moved, roof});

    EXPECT_FALSE(programOf(*moved));
    EXPECT_TRUE(programOf(below(*chain)));
}

TEST(LODMarkupPath, GoesOnBelowAGeode) {
    const osg::ref_ptr<osg::MatrixTransform> moved = makeNamed<osg::MatrixTransform>("moved");
    const auto roof = makeRoof();
    roof->addChild(moved);
    Workplace workplace;

    const auto chain = markPath({roof, moved});

    EXPECT_THAT(workplace.files(), IsEmpty()) << "a geode with other children than drawables cannot be written";
    ASSERT_EQ(chain->getNumChildren(), 1u);
    EXPECT_EQ(below(below(*chain)).getName(), "moved");
}

TEST(LODMarkupPath, DoesNotWriteATileWithAGeodeThatHasOtherChildrenThanDrawables) {
    const auto roof = makeRoof();
    roof->addChild(new osg::Group);
    const auto group = makeNamed("group", makeNamed("inner", roof));
    Workplace workplace;

    markPath({makePaged(group), group});

    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(LODMarkupPath, GivesBackNodesThatNobodyHolds) {
    osg::Geode* roof = makeRoof().release();
    Workplace workplace;

    const auto chain = markPath({roof});

    EXPECT_EQ(roof->referenceCount(), 0);
    const osg::ref_ptr<osg::Geode> held = roof;
    EXPECT_EQ(roof->getNumParents(), 0u);
}

TEST(LODMarkupPaths, MakesAChainOfEachPathToANode) {
    const auto roof = makeRoof();
    const auto left = makeNamed<osg::MatrixTransform>("left", roof);
    const auto right = makeNamed<osg::MatrixTransform>("right", roof);
    const auto root = makeNamed("root", left);
    root->addChild(right);
    Workplace workplace;

    const osg::ref_ptr<osg::Group> chains = LODMarkup().markupPath(roof.get());

    EXPECT_EQ(workplace.standardError.text(),
              "num paths = 2\n"
              "PATH-----\n"
              "Group root, 2 children, bound radius=0.707107, parents 0\n"
              "Transform left, 1 children, bound radius=0.707107, parents 1\n"
              "Geode  roof, 1 drawables , parents 2\n"
              "PATH-----\n"
              "Group root, 2 children, bound radius=0.707107, parents 0\n"
              "Transform right, 1 children, bound radius=0.707107, parents 1\n"
              "Geode  roof, 1 drawables , parents 2\n");
    ASSERT_EQ(chains->getNumChildren(), 2u);
    EXPECT_EQ(chains->getStateSet(), nullptr);
    EXPECT_EQ(below(*chains->getChild(0)->asGroup()).getName(), "left");
    EXPECT_EQ(below(*chains->getChild(1)->asGroup()).getName(), "right");
    EXPECT_EQ(below(below(*chains->getChild(1)->asGroup())).getName(), "roof");
}

TEST(LODMarkupPaths, WritesTheChains) {
    const auto roof = makeRoof();
    const auto house = makeHouse(roof);
    Workplace workplace;

    LODMarkup().markupPath(roof.get());

    EXPECT_THAT(workplace.files(), ElementsAre("geode.osg", "lodmarkup.osg"));
    const osg::ref_ptr<osg::Node> file = osgDB::readRefNodeFile("lodmarkup.osg");
    osg::Group& chain = *file->asGroup()->getChild(0)->asGroup();
    EXPECT_EQ(chain.getStateSet()->getMode(GL_CULL_FACE), osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    osg::Group& houseMarks = below(chain);
    EXPECT_EQ(houseMarks.getName(), "house");
    EXPECT_EQ(linesIn(houseMarks).size(), 16u);
    EXPECT_THAT(wordsOf(houseMarks), ElementsAre("LOD house, rad=2\n", "LOD house, rad=50\n"));
    EXPECT_EQ(linesIn(below(houseMarks)).size(), 12u);
}

TEST(LODMarkupPaths, FindsOnePathToANodeWithoutParents) {
    const osg::ref_ptr<osg::Node> leaf = new osg::Node;
    Workplace workplace;

    const auto chains = LODMarkup().markupPath(leaf.get());

    EXPECT_EQ(workplace.standardError.text(), "num paths = 1\nPATH-----\nNode , parents 0\n");
    EXPECT_EQ(chains->getNumChildren(), 1u);
    EXPECT_EQ(chains->referenceCount(), 1);
}

TEST(LODMarkupPaths, MakesAnEmptyGroupOfNoNode) {
    Workplace workplace;

    const auto chains = LODMarkup().markupPath(static_cast<osg::Node*>(nullptr));

    EXPECT_EQ(chains->getNumChildren(), 0u);
    EXPECT_EQ(workplace.standardError.text(), "");
    EXPECT_THAT(workplace.files(), IsEmpty());
}

TEST(LODMarkupPaths, GoesAsDeepAsOpenSceneGraphDoes) {
    constexpr int levels = 10000;
    osg::ref_ptr<osg::Node> node = makeRoof();
    Path path{node};
    for (int i = 0; i < levels; ++i) {
        const auto lod = makeLOD("");
        lod->addChild(node, 0.0f, 6000.0f);
        node = lod;
        path.push_back(node);
    }
    path = {path.rbegin(), path.rend()};
    Workplace workplace;

    const auto chain = markPath(path);

    int length = 0;
    for (osg::Group* link = &below(*chain); link->getName() == "no name LOD"; link = &below(*link)) ++length;
    EXPECT_EQ(length, levels);
}

TEST(LODMarkupFont, IsTheOneOfTheFile) {
    const OfferedFont offered("fonts/arial.ttf");
    const auto roof = makeRoof();
    Workplace workplace;

    const auto chain = markPath({makeHouse(roof), roof});

    for (const osgText::Text* label : labelsOf(below(*chain))) EXPECT_EQ(label->getFont(), offered.font());
    EXPECT_EQ(labelsOf(below(*chain)).size(), 2u);
}

TEST(LODMarkupFont, IsOpenSceneGraphsOwnIfTheFileCannotBeRead) {
    OfferedFont offered("fonts/arial.ttf");
    offered.hide();
    const auto roof = makeRoof();
    Workplace workplace;
    const OsgMessages messages;

    const auto chain = markPath({makeHouse(roof), roof});

    for (const osgText::Text* label : labelsOf(below(*chain))) EXPECT_EQ(label->getFont(), nullptr);
    EXPECT_EQ(wordsOf(below(*chain)).size(), 2u);
}

TEST(LODMarkupFont, IsReadOnceForAllLabelsOfARun) {
    OfferedFont offered("fonts/arial.ttf");
    offered.hide();
    const auto roof = makeRoof();
    const auto root = makeNamed("root", makeHouse(makeHouse(roof)));
    root->addChild(makeHouse(roof));
    Workplace workplace;
    const OsgMessages messages;

    LODMarkup().markupPath(roof.get());

    EXPECT_EQ(offered.reads(), 1);
}

TEST(LODMarkupFont, IsNotLookedForWithoutLabels) {
    const OfferedFont offered("fonts/arial.ttf");
    const auto roof = makeRoof();
    Workplace workplace;

    LODMarkup().markupPath(roof.get());

    EXPECT_EQ(offered.searches(), 0);
}

TEST(LODMarkupFont, IsLookedForWithoutAMessage) {
    const auto roof = makeRoof();
    Workplace workplace;
    const OsgMessages messages;

    markPath({makeHouse(roof), roof});

    EXPECT_EQ(messages.text(), "");
}
