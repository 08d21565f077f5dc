#include "convert/FileAccess.h"

#include "support/Conversions.h"
#include "support/UnknownNode.h"

#include <gmock/gmock.h>

#include <osg/ImageSequence>
#include <osg/Texture2D>
#include <osgDB/ReadFile>
#include <osgDB/Registry>
#include <osgDB/WriteFile>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;

namespace {

/** Takes the registry's callbacks away again. */
struct OwnCallbacks {
    ~OwnCallbacks() {
        osgDB::Registry::instance()->setFindFileCallback(nullptr);
        osgDB::Registry::instance()->setReadFileCallback(nullptr);
        osgDB::Registry::instance()->setWriteFileCallback(nullptr);
    }
};

}  // namespace

TEST(FileAccess, RefusesToWriteLessThanThereIs) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f);
    ConversionOptions options;
    options.input = folder / "a.flt";
    options.output = folder / "a.ive";
    const ConversionJob job = jobOf(planConversion(options), 0);
    const osg::ref_ptr<FileAccess> access = new FileAccess(job, nullptr, {}, {});
    access->afterReading = [&] { access->graph()->asGroup()->addChild(new UnknownNode); };
    const OwnCallbacks callbacks;
    access->install();

    const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(folder / "a.flt");
    osgDB::writeNodeFile(*graph, "a.ive");

    EXPECT_EQ(access->result().problem, folder /
                                            "a.ive: OpenSceneGraph cannot write all of this as .ive: Unknown node in "
                                            "DataOutputStream::writeNode(..), className()=UnknownNode");
    EXPECT_FALSE(access->result().written);
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("a.flt"));
}

TEST(FileAccess, StoresNoTextureThatIsNoSinglePicture) {
    const TemporaryDirectory folder;
    writeFlight(folder / "a.flt", 10.0f);
    ConversionOptions options;
    options.input = folder / "a.flt";
    options.output = folder / "a.ive";
    options.textures = TextureMode::Embed;
    const ConversionJob job = jobOf(planConversion(options), 0);
    const OwnCallbacks callbacks;
    const osg::ref_ptr<osg::Image> sequence = new osg::ImageSequence;
    sequence->allocateImage(1, 1, 1, GL_RGB, GL_UNSIGNED_BYTE);
    const osg::ref_ptr<osg::Image> nothing = new osg::Image;
    for (const osg::ref_ptr<osg::Image>& image : {sequence, nothing}) {
        image->setFileName(folder / "a.flt");
        const osg::ref_ptr<FileAccess> access = new FileAccess(job, nullptr, {}, {});
        access->afterReading = [&] {
            access->graph()->getOrCreateStateSet()->setTextureAttribute(0, new osg::Texture2D(image));
        };
        access->install();
        const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(folder / "a.flt");
        osgDB::writeNodeFile(*graph, "a.ive");

        EXPECT_EQ(access->result().problem,
                  folder / "a.ive: the texture a.flt cannot be stored in it: it is no single picture");
    }
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("a.flt"));
}
