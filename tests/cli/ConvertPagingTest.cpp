#include "sample/SampleDatabase.h"
#include "support/Conversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osg/FrameStamp>
#include <osg/Transform>
#include <osgDB/DatabasePager>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using veltrane::sceneutils::tool::SampleOptions;
using veltrane::sceneutils::tool::writeSampleDatabase;

namespace {

/** Traverses a graph as a cull traversal without a view frustum does, and asks the pager for what comes into range. */
class Eye : public osg::NodeVisitor {
public:
    Eye(const osg::Vec3d& position, osgDB::DatabasePager& pager)
        : osg::NodeVisitor(CULL_VISITOR, TRAVERSE_ACTIVE_CHILDREN), _position(position) {
        setDatabaseRequestHandler(&pager);
    }
    using osg::NodeVisitor::apply;

    float getDistanceToViewPoint(const osg::Vec3& point, bool) const override {
        return static_cast<float>((osg::Vec3d(point) - _position).length());
    }

    void apply(osg::Transform& transform) override {
        const osg::Vec3d outside = _position;
        osg::Matrix inverse;
        transform.computeWorldToLocalMatrix(inverse, this);
        _position = outside * inverse;
        traverse(transform);
        _position = outside;
    }

    void apply(osg::PagedLOD& plod) override {
        const float distance = getDistanceToViewPoint(plod.getCenter(), true);
        (distance < plod.getMaxRange(0) ? inRange : outOfRange).push_back(&plod);
        traverse(plod);
    }

    std::vector<osg::ref_ptr<osg::PagedLOD>> inRange;
    std::vector<osg::ref_ptr<osg::PagedLOD>> outOfRange;

private:
    osg::Vec3d _position;
};

/** Looks from there until nothing more is loaded; what is seen last is returned. */
Eye lookUntilQuiet(osg::Node& root, const osg::Vec3d& position, osgDB::DatabasePager& pager) {
    osg::ref_ptr<osg::FrameStamp> frame = new osg::FrameStamp;
    int quietFrames = 0;
    for (unsigned int i = 1; i < 20000; ++i) {
        frame->setFrameNumber(i);
        frame->setReferenceTime(i / 60.0);
        Eye eye(position, pager);
        eye.setFrameStamp(frame);
        pager.signalBeginFrame(frame);
        root.accept(eye);
        pager.signalEndFrame();
        pager.updateSceneGraph(*frame);
        quietFrames = pager.getRequestsInProgress() ? 0 : quietFrames + 1;
        if (quietFrames > 5) return eye;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ADD_FAILURE() << "the pager has not come to rest";
    return Eye(position, pager);
}

/** A sample database of 9 tiles in 3 levels, converted, moved elsewhere, and without its sources. */
class MovedDatabase {
public:
    MovedDatabase() {
        SampleOptions options;
        options.tiles = 9;
        options.levels = 3;
        writeSampleDatabase(_folder / "in", options);
        convertIn(_folder.path(), {"in/master.flt", "out/m.ive", "--recurse", "--max-range", "600"});
        fs::create_directories(_folder / "elsewhere/deep");
        fs::rename(_folder / "out", _folder / "elsewhere/deep/world");
        fs::remove_all(_folder / "in");
        pager->setDoPreCompile(false);
    }
    ~MovedDatabase() { pager->cancel(); }

    osg::ref_ptr<osg::Node> load() const {
        osg::ref_ptr<osg::Node> root = testing_support::load(_folder / "elsewhere/deep/world/m.ive");
        pager->registerPagedLODs(root);
        return root;
    }

    osg::ref_ptr<osgDB::DatabasePager> pager = new osgDB::DatabasePager;

private:
    TemporaryDirectory _folder;
};

bool isLoaded(const osg::ref_ptr<osg::PagedLOD>& plod) {
    return plod->getNumChildren() > 0;
}

}  // namespace

TEST(ConvertPaging, LoadsNothingForAnEyeThatIsFarAway) {
    const MovedDatabase database;
    const osg::ref_ptr<osg::Node> root = database.load();

    const Eye eye = lookUntilQuiet(*root, osg::Vec3d(1500, 1500, 100000), *database.pager);

    EXPECT_TRUE(eye.inRange.empty());
    EXPECT_EQ(eye.outOfRange.size(), 9u);
    EXPECT_TRUE(std::none_of(eye.outOfRange.begin(), eye.outOfRange.end(), isLoaded));
}

TEST(ConvertPaging, LoadsWhatIsInRangeOfTheEyeAndNothingElse) {
    const MovedDatabase database;
    const osg::ref_ptr<osg::Node> root = database.load();

    const Eye eye = lookUntilQuiet(*root, osg::Vec3d(400, 400, 200), *database.pager);

    EXPECT_EQ(findAll<osg::PagedLOD>(root).size(), eye.inRange.size() + eye.outOfRange.size());
    EXPECT_GT(eye.inRange.size(), 4u);
    EXPECT_GT(eye.outOfRange.size(), 10u);
    EXPECT_TRUE(std::all_of(eye.inRange.begin(), eye.inRange.end(), isLoaded));
    EXPECT_TRUE(std::none_of(eye.outOfRange.begin(), eye.outOfRange.end(), isLoaded));
}

TEST(ConvertPaging, BringsTexturesWithTheirPixels) {
    const MovedDatabase database;
    const osg::ref_ptr<osg::Node> root = database.load();

    lookUntilQuiet(*root, osg::Vec3d(400, 400, 200), *database.pager);

    std::set<std::string> names;
    for (const auto& texture : findTextures(root)) {
        ASSERT_NE(texture->getImage(), nullptr);
        EXPECT_NE(texture->getImage()->data(), nullptr) << texture->getImage()->getFileName();
        names.insert(osgDB::getSimpleFileName(texture->getImage()->getFileName()));
    }
    EXPECT_GE(names.size(), 5u);
}

TEST(ConvertPaging, PlacesLoadedModelsInsideTheSphereThatWasForeseen) {
    const MovedDatabase database;
    const osg::ref_ptr<osg::Node> root = database.load();

    const Eye eye = lookUntilQuiet(*root, osg::Vec3d(1500, 1500, 200), *database.pager);

    ASSERT_GT(eye.inRange.size(), 5u);
    for (const auto& plod : eye.inRange) {
        const osg::BoundingSphere loaded = plod->getChild(0)->getBound();
        const double reach = (loaded.center() - plod->getCenter()).length() + loaded.radius();
        // A model's own references enlarge it once they are loaded.
        const bool isLeaf = findAll<osg::PagedLOD>(plod->getChild(0)).empty();
        EXPECT_TRUE(!isLeaf || reach <= 1.001 * plod->getRadius()) << reach << " beyond " << plod->getRadius();
    }
}
