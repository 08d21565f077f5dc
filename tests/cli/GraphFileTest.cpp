#include "files/GraphFile.h"

#include "Command.h"
#include "files/OutputFormat.h"
#include "files/PortableNames.h"
#include "support/Conversions.h"
#include "support/Graphs.h"
#include "support/StandardError.h"
#include "support/TexturedModels.h"
#include "support/UnknownNode.h"

#include <gmock/gmock.h>

#include <osg/Geometry>
#include <osg/PagedLOD>
#include <osg/PrimitiveRestartIndex>
#include <osg/ProxyNode>
#include <osg/Texture2DMultisample>
#include <osgDB/WriteFile>

#include <sys/stat.h>

namespace fs = std::filesystem;

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

/** What a call has to say when it ends with that status; "" if it does not. */
template <typename Call>
std::string errorOf(ExitStatus expected, const Call& call) {
    try {
        call();
    } catch (const CommandError& error) {
        EXPECT_EQ(error.status(), expected);
        return error.what();
    }
    return "";
}

std::string readError(const std::string& path) {
    return errorOf(ExitStatus::InputUnreadable, [&] { readGraph(path); });
}

std::string writeError(const std::string& path, ExitStatus expected = ExitStatus::OutputNotWritten) {
    return errorOf(expected, [&] { writeGraph(makeGround(1.0f), path, false); });
}

/** A group with a square of that texture. */
osg::ref_ptr<osg::Group> makeTexturedGroup(osg::Image* image) {
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(makeGeode(makeSquare()));
    group->getOrCreateStateSet()->setTextureAttributeAndModes(0, new osg::Texture2D(image));
    return group;
}

osg::ref_ptr<osg::ProxyNode> makeReference(
    const std::string& file, osg::ProxyNode::LoadingExternalReferenceMode mode = osg::ProxyNode::LOAD_IMMEDIATELY) {
    osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
    proxy->setFileName(0, file);
    proxy->setLoadingExternalReferenceMode(mode);
    return proxy;
}

osg::ref_ptr<osg::Image> makePictureFile(const std::string& path) {
    writeGrey(path, 100);
    return osgDB::readRefImageFile(path);
}

osg::ref_ptr<osg::Image> imageOf(osg::Node& node) {
    return dynamic_cast<osg::Texture2D&>(*node.getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE))
        .getImage();
}

}  // namespace

TEST(GraphFile, ReadsWhatItWroteInEveryNativeFormat) {
    const TemporaryDirectory folder;
    for (const char* name : {"a.ive", "a.osgb", "a.osgt", "a.osgx", "a.osg"}) {
        writeGraph(makeGround(10.0f), folder / name, false);

        EXPECT_EQ(readGraph(folder / name)->getBound().radius(), makeGround(10.0f)->getBound().radius()) << name;
    }
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("a.ive", "a.osg", "a.osgb", "a.osgt", "a.osgx"));
}

TEST(GraphFile, WritesFormatsOfSeveralFilesUnderTheirOwnNames) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Image> image = makePictureFile(folder / "brick.png");

    writeGraph(makeTexturedGroup(image), folder / "wall.obj", false);

    EXPECT_THAT(namesIn(folder.path()), ElementsAre("brick.png", "wall.mtl", "wall.obj"));
    EXPECT_THAT(readBytes(folder / "wall.obj"), HasSubstr("mtllib wall.mtl"));
}

TEST(GraphFile, SaysWhyAnInputCannotBeRead) {
    const TemporaryDirectory folder;
    writeBytes(folder / "empty.ive", "");
    writeBytes(folder / "text.txt", "text");
    writeBytes(folder / "noise.ive", "this is no graph at all");
    mkfifo((folder / "pipe.ive").c_str(), 0600);

    EXPECT_EQ(readError(folder / "none.ive"), folder / "none.ive: no such file");
    EXPECT_EQ(readError(folder.path()), folder.path().string() + ": is a folder");
    EXPECT_EQ(readError(folder / "empty.ive"), folder / "empty.ive: is empty");
    EXPECT_EQ(readError(folder / "pipe.ive"), folder / "pipe.ive: is no regular file");
    EXPECT_EQ(readError(folder / "text.txt"),
              folder / "text.txt: no plug-in of OpenSceneGraph reads files ending in '.txt'");
    EXPECT_THAT(readError(folder / "noise.ive"), HasSubstr(folder / "noise.ive: "));
}

TEST(GraphFile, RefusesAnOpenFlightFileThatWasCutShort) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f);
    const std::string whole = readBytes(folder / "a.flt");
    writeBytes(folder / "a.flt", whole.substr(0, whole.size() - 2));

    EXPECT_THAT(readError(folder / "a.flt"), HasSubstr(folder / "a.flt: truncated: ends "));
}

TEST(GraphFile, RefusesAReferencedFileThatWasCutShortAndNamesIt) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 10.0f);
    const std::string whole = readBytes(folder / "b.flt");
    writeBytes(folder / "b.flt", whole.substr(0, whole.size() - 2));

    EXPECT_THAT(readError(folder / "a.flt"), HasSubstr(folder / "b.flt: truncated: ends "));
    EXPECT_TRUE(readGraph(folder / "a.flt", References::Leave));
}

TEST(GraphFile, RefusesOpenFlightFilesThatReferToEachOtherInARing) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 10.0f, {"c.flt"});
    writeFlight(folder / "c.flt", 10.0f, {"a.flt"});
    writeFlight(folder / "self.flt", 10.0f, {"self.flt"});

    EXPECT_EQ(readError(folder / "a.flt"), folder / "a.flt: refers to itself by way of b.flt, c.flt");
    EXPECT_EQ(readError(folder / "self.flt"), folder / "self.flt: refers to itself");
    EXPECT_TRUE(readGraph(folder / "a.flt", References::Leave));
}

TEST(GraphFile, RefusesFilesOfOtherFormatsThatReferToEachOtherInARing) {
    const TemporaryDirectory folder;
    const auto writeReference = [&](const std::string& file, const std::string& target) {
        const osg::ref_ptr<osg::ProxyNode> proxy = new osg::ProxyNode;
        proxy->setFileName(0, target);
        osgDB::writeNodeFile(*proxy, folder / file);
    };
    writeReference("in.osgb", "a.osgt");
    writeReference("a.osgt", "b.osgb");
    writeReference("b.osgb", "c.osgx");
    writeReference("c.osgx", "a.osgt");
    writeReference("self.osgb", "self.osgb");

    EXPECT_EQ(readError(folder / "a.osgt"), folder / "a.osgt: refers to itself by way of b.osgb, c.osgx");
    EXPECT_EQ(readError(folder / "in.osgb"), folder / "a.osgt: refers to itself by way of b.osgb, c.osgx");
    EXPECT_EQ(readError(folder / "self.osgb"), folder / "self.osgb: refers to itself");
}

TEST(GraphFile, ReadsAFileThatIsReferredToTwiceWithoutARing) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt", "c.flt"});
    writeFlight(folder / "b.flt", 20.0f, {"c.flt"});
    writeFlight(folder / "c.flt", 30.0f);

    EXPECT_EQ(findAll<osg::Geometry>(readGraph(folder / "a.flt")).size(), 4u);
    EXPECT_EQ(findAll<osg::Geometry>(readGraph(folder / "a.flt", References::Leave)).size(), 1u);
}

TEST(GraphFile, PassesOnWhatOpenSceneGraphSaysAboutAGraphThatWasRead) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"gone.flt"});

    const StandardError errors;
    readGraph(folder / "a.flt");

    EXPECT_THAT(errors.text(), HasSubstr("sceneutils: " + (folder / "a.flt: ")));
    EXPECT_THAT(errors.text(), HasSubstr("gone.flt"));
}

TEST(GraphFile, SaysWhyAnOutputCannotBeWritten) {
    const TemporaryDirectory folder;
    writeBytes(folder / "there.ive", "precious");
    fs::create_directory(folder / "folder.ive");

    EXPECT_EQ(writeError(folder / "there.ive"), folder / "there.ive: exists already; pass --overwrite to replace it");
    EXPECT_EQ(writeError(folder / "folder.ive"), folder / "folder.ive: is a folder");
    EXPECT_EQ(writeError(folder / "a.xyz", ExitStatus::Usage),
              folder / "a.xyz: no plug-in of OpenSceneGraph writes files ending in '.xyz'");
    EXPECT_EQ(writeError(folder / "a.gif"), folder / "a.gif: OpenSceneGraph cannot write this as '.gif'");
    EXPECT_EQ(readBytes(folder / "there.ive"), "precious");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("there.ive"));
}

TEST(GraphFile, MakesMissingFoldersAndReplacesOnlyWhenTold) {
    const TemporaryDirectory folder;
    writeGraph(makeGround(1.0f), folder / "new/deep/a.ive", false);
    writeGraph(makeGround(5.0f), folder / "new/deep/a.ive", true);
    writeGraph(makeGround(1.0f), folder / "new/deeper/a.obj", false);

    EXPECT_EQ(widthOf(folder / "new/deep/a.ive"), widthOf(folder / "new/deep/a.ive"));
    EXPECT_EQ(readGraph(folder / "new/deep/a.ive")->getBound().radius(), makeGround(5.0f)->getBound().radius());
}

TEST(GraphFile, NamesTexturesRelativelyToTheOutput) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Image> image = makePictureFile(folder / "brick.png");
    writeGraph(makeTexturedGroup(image), folder / "out/wall.ive", false);
    fs::rename(folder / "out", folder / "moved");

    const osg::ref_ptr<osg::Node> wall = readGraph(folder / "moved/wall.ive");

    EXPECT_EQ(fs::canonical(imageOf(*wall)->getFileName()), fs::canonical(folder / "brick.png"));
    EXPECT_THAT(readBytes(folder / "moved/wall.ive"), HasSubstr("../brick.png"));
}

TEST(GraphFile, WritesTexturesThatHaveNoFileWithTheirPixels) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Image> image = makeImage("only-in-memory.png");
    image->data()[0] = 77;
    writeGraph(makeTexturedGroup(image), folder / "wall.ive", false);

    const osg::ref_ptr<osg::Image> read = imageOf(*readGraph(folder / "wall.ive"));

    ASSERT_TRUE(read);
    EXPECT_EQ(read->data()[0], 77);
}

TEST(GraphFile, WritesLoadedReferencesAsPartOfTheGraph) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f, {"b.flt"});
    writeFlight(folder / "b.flt", 20.0f);

    writeGraph(readGraph(folder / "a.flt"), folder / "out/a.ive", false);
    fs::remove(folder / "b.flt");

    EXPECT_THAT(references(load(folder / "out/a.ive")), IsEmpty());
    EXPECT_EQ(widthOf(folder / "out/a.ive"), 20.0f);
}

TEST(GraphFile, KeepsOtherReferencesUnderNamesThatLeadToTheSameFiles) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
    paged->setFileName(0, "tiles/t.ive");
    paged->setRange(0, 0.0f, 100.0f);
    writeGraph(paged, folder / "a.ive", false);
    EXPECT_THAT(pagedFiles(load(folder / "a.ive")), ElementsAre("tiles/t.ive"));

    writeGraph(readGraph(folder / "a.ive"), folder / "out/deep/a.ive", false);

    EXPECT_THAT(pagedFiles(load(folder / "out/deep/a.ive")), ElementsAre("../../tiles/t.ive"));
}

TEST(GraphFile, NamesReferencesThatWereNotLoadedRelativelyToTheOutput) {
    for (const char* ending : {"ive", "osg", "osgb", "osgt", "osgx"}) {
        const TemporaryDirectory folder;
        fs::create_directories(folder / "in/sub");
        const osg::ref_ptr<osgDB::Options> keepNames =
            new osgDB::Options("useOriginalExternalReferences noWriteExternalReferenceFiles");
        const auto writeReferences = [&](const std::string& file, const std::string& target) {
            const osg::ref_ptr<osg::Group> group = new osg::Group;
            group->addChild(makeReference(target));
            group->addChild(makeReference("missing.osgb", osg::ProxyNode::NO_AUTOMATIC_LOADING));
            osgDB::writeNodeFile(*group, folder / file, keepNames);
        };
        const std::string inner = std::string("sub/b.") + ending;
        writeReferences("in/" + inner, "far/gone.osgb");
        writeReferences(std::string("in/a.") + ending, inner);

        writeGraph(readGraph(folder / (std::string("in/a.") + ending)), folder / "out/deep/a.osgb", false);

        EXPECT_THAT(references(osgDB::readRefNodeFile(folder / "out/deep/a.osgb").get()),
                    ElementsAre("../../in/sub/far/gone.osgb", "../../in/sub/missing.osgb", "../../in/missing.osgb"))
            << ending;
    }
}

TEST(GraphFile, NamesTilesRelativelyToTheOutputInEveryNativeFormat) {
    for (const char* ending : {"ive", "osg", "osgb", "osgt", "osgx"}) {
        const TemporaryDirectory folder;
        fs::create_directories(folder / "in");
        const osg::ref_ptr<osg::PagedLOD> paged = new osg::PagedLOD;
        paged->setFileName(0, "tiles/t.ive");
        paged->setRange(0, 0.0f, 100.0f);
        osgDB::writeNodeFile(*paged, folder / (std::string("in/a.") + ending));

        writeGraph(readGraph(folder / (std::string("in/a.") + ending)), folder / "out/deep/a.osgb", false);

        EXPECT_THAT(pagedFiles(load(folder / "out/deep/a.osgb")), ElementsAre("../../in/tiles/t.ive")) << ending;
    }
}

TEST(GraphFile, NotesTheFolderOfTilesAndReferencesThatHaveNone) {
    const osg::ref_ptr<osg::PagedLOD> tile = new osg::PagedLOD;
    const osg::ref_ptr<osg::ProxyNode> reference = new osg::ProxyNode;
    const osg::ref_ptr<osg::PagedLOD> elsewhere = new osg::PagedLOD;
    elsewhere->setDatabasePath("/far");
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(tile);
    root->addChild(reference);
    root->addChild(elsewhere);
    veltrane::sceneutils::tool::resolveNames(*root, "/near");
    EXPECT_EQ(tile->getDatabasePath(), "/near/");
    EXPECT_EQ(reference->getDatabasePath(), "/near/");
    EXPECT_EQ(elsewhere->getDatabasePath(), "/far/");
}

TEST(GraphFile, NamesReferencesRelativelyThatAFileInTheWorkingDirectoryHolds) {
    const TemporaryDirectory folder;
    osgDB::writeNodeFile(*makeReference("missing.osgb", osg::ProxyNode::NO_AUTOMATIC_LOADING), folder / "a.osgb");
    ToolSettings settings;
    settings.workingDirectory = folder.path();

    ASSERT_EQ(runTool({"export", "a.osgb", "out/a.osgt"}, settings).status, 0);

    EXPECT_THAT(references(load(folder / "out/a.osgt")), ElementsAre("../missing.osgb"));
}

TEST(GraphFile, NamesTexturesOfLoadedReferencesFromTheirOwnFolders) {
    const TemporaryDirectory folder;
    fs::create_directories(folder / "in/sub");
    const osg::ref_ptr<osg::Image> image = makePictureFile(folder / "in/brick.png");
    makePictureFile(folder / "in/sub/brick.png");
    image->setFileName("brick.png");
    image->setWriteHint(osg::Image::EXTERNAL_FILE);
    osgDB::writeNodeFile(*makeTexturedGroup(image), folder / "in/sub/b.osgb");
    osgDB::writeNodeFile(*makeReference("sub/b.osgb"), folder / "in/a.osgb");

    writeGraph(readGraph(folder / "in/a.osgb"), folder / "out/a.osgt", false);

    EXPECT_THAT(readBytes(folder / "out/a.osgt"), HasSubstr("../in/sub/brick.png"));
}

TEST(GraphFile, NamesWhatAFileNamesRelativelyWhenItWasReadWithoutItsReferences) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Image> image = makePictureFile(folder / "brick.png");
    image->setFileName("brick.png");
    image->setWriteHint(osg::Image::EXTERNAL_FILE);
    const osg::ref_ptr<osg::Group> group = makeTexturedGroup(image);
    group->addChild(makeReference("b.osgb", osg::ProxyNode::NO_AUTOMATIC_LOADING));
    osgDB::writeNodeFile(*group, folder / "a.osgb");

    writeGraph(readGraph(folder / "a.osgb", References::Leave), folder / "out/a.osgt", false);

    EXPECT_THAT(readBytes(folder / "out/a.osgt"), HasSubstr("../brick.png"));
    EXPECT_THAT(references(load(folder / "out/a.osgt")), ElementsAre("../b.osgb"));
}

TEST(GraphFile, RefusesAChainOfOpenFlightFilesOfMoreThanAHundredLevels) {
    const TemporaryDirectory folder;
    const auto nameOf = [](int level) { return std::to_string(level) + ".flt"; };
    for (int level = 0; level < 101; ++level) writeFlight(folder / nameOf(level), 10.0f, {nameOf(level + 1)});
    writeFlight(folder / nameOf(101), 10.0f);

    EXPECT_EQ(readError(folder / "0.flt"), folder / "101.flt: referred to over more than 100 levels");
    EXPECT_TRUE(readGraph(folder / "1.flt"));
}

TEST(GraphFile, RefusesToWriteLessThanThereIs) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(new UnknownNode);

    for (const char* name : {"a.ive", "a.osg", "a.osgb", "a.osgt", "a.osgx"}) {
        const std::string ending = fs::path(name).extension();
        const std::string error =
            errorOf(ExitStatus::OutputNotWritten, [&] { writeGraph(group, folder / name, false); });
        EXPECT_THAT(error,
                    StartsWith(folder / name + (": OpenSceneGraph cannot write all of this as '" + ending + "': ")));
        EXPECT_THAT(error, HasSubstr("UnknownNode"));
        EXPECT_THAT(error, Not(HasSubstr("\n")));
    }
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(GraphFile, RefusesAStateAttributeThatOsgFilesDoNotHold) {
    const TemporaryDirectory folder;
    const auto errorOfSquareWith = [&](osg::StateAttribute* attribute) {
        const osg::ref_ptr<osg::Geometry> square = makeSquare();
        osg::StateSet* stateSet = square->getOrCreateStateSet();
        if (attribute->isTextureAttribute()) stateSet->setTextureAttribute(1, attribute);
        if (!attribute->isTextureAttribute()) stateSet->setAttribute(attribute);
        return errorOf(ExitStatus::OutputNotWritten, [&] { writeGraph(square, folder / "a.osg", false); });
    };
    const std::string beginning = folder / "a.osg: OpenSceneGraph cannot write all of this as '.osg': Unknown class ";

    EXPECT_EQ(errorOfSquareWith(new osg::PrimitiveRestartIndex(7)), beginning + "osg::PrimitiveRestartIndex");
    EXPECT_EQ(errorOfSquareWith(new osg::Texture2DMultisample), beginning + "osg::Texture2DMultisample");
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(GraphFile, SaysWhyOpenSceneGraphCannotWriteAGraph) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Geometry> square = makeSquare();
    const osg::Vec3 normals[] = {{0, 0, 1}, {1, 0, 0}};
    square->setNormalArray(new osg::Vec3Array(2, normals), static_cast<osg::Array::Binding>(3));

    EXPECT_EQ(errorOf(ExitStatus::OutputNotWritten, [&] { writeGraph(square, folder / "a.ive", false); }),
              folder /
                  "a.ive: OpenSceneGraph cannot write this as '.ive': Error writing IVE image: Unknown binding in "
                  "DataOutputStream::writeBinding()");
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(GraphFile, WritesPlainNodesAndTexturesThatAreMissingInEveryNativeFormat) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Image> image = makeImage("gone.png");
    image->setWriteHint(osg::Image::EXTERNAL_FILE);
    const osg::ref_ptr<osg::Group> group = makeTexturedGroup(image);
    group->addChild(new osg::Node);
    osgDB::writeNodeFile(*group, folder / "in.osgb");

    for (const char* name : {"a.ive", "a.osg", "a.osgb", "a.osgt", "a.osgx"}) {
        writeGraph(readGraph(folder / "in.osgb"), folder / name, false);

        EXPECT_EQ(readGraph(folder / name)->asGroup()->getNumChildren(), 2u) << name;
    }
}

TEST(GraphFile, LeavesNothingBehindWhenTheDiskIsFull) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f);
    ToolSettings settings;
    settings.fileSizeLimit = 100;

    const ToolResult result =
        runTool({"render", folder / "a.flt", "-o", folder / "a.png", "--size", "64x64"}, settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "sceneutils: " + (folder / "a.png: not all of it could be written: File too large\n"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("a.flt"));
}
