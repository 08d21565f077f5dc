#include "convert/FileAccess.h"

#include "support/Conversions.h"
#include "support/UnknownNode.h"

#include <gmock/gmock.h>

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
