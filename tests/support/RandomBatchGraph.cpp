#include "support/RandomBatchGraph.h"

#include "support/PointModels.h"

#include <osg/LOD>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osg/Switch>

#include <random>
#include <vector>

namespace testing_support {

namespace {

const std::vector<osg::LOD::RangeList> rangeLists = {{{0.0f, 20000.0f}},
                                                     {{0.0f, 20000.0f}},
                                                     {{100.0f, 500.0f}},
                                                     {{50.0f, 1000.0f}},
                                                     {{0.0f, 100.0f}, {100.0f, 1000.0f}},
                                                     {{-1.0f, 30000.0f}},
                                                     {{0.0f, 100.0f}, {100.0f, 20000.0f}}};

class Builder {
public:
    explicit Builder(const BatchGraphSettings& settings) : _settings(settings), _random(settings.seed) {}

    osg::ref_ptr<osg::Group> build() {
        const osg::ref_ptr<osg::Group> root = new osg::Group;
        std::vector<osg::ref_ptr<osg::Group>> groups = {root};
        for (unsigned int i = 0; i < _settings.nodes; ++i) {
            const osg::ref_ptr<osg::Group> parent = groups[below(groups.size())];
            const osg::ref_ptr<osg::Group> group = makeGroup();
            add(*parent, group);
            groups.push_back(group);
        }
        // Nodes made later never hang above earlier ones, so there are no cycles.
        for (std::size_t i = 0; i < groups.size(); ++i) complete(*groups[i], groups, i);
        return root;
    }

private:
    // Not a distribution of the standard library: those differ from library to library.
    unsigned int below(std::size_t count) { return static_cast<unsigned int>(_random() % count); }
    bool chance(unsigned int percent) { return below(100) < percent; }

    osg::ref_ptr<osg::Group> makeGroup() {
        if (chance(_settings.lodPercent)) {
            osg::ref_ptr<osg::LOD> lod = chance(5) ? new osg::PagedLOD : new osg::LOD;
            if (chance(10)) lod->setRangeMode(osg::LOD::PIXEL_SIZE_ON_SCREEN);
            return lod;
        }
        if (chance(10)) return new osg::Switch;
        if (chance(10)) return new osg::MatrixTransform(osg::Matrixd::translate(below(50), 0, 0));
        return new osg::Group;
    }

    osg::ref_ptr<osg::Node> makeModel() {
        const osg::Vec3 centre(static_cast<float>(below(100)), static_cast<float>(below(100)), 0.0f);
        if (chance(30)) return makePair(centre);
        return makePairGeode(centre);
    }

    osg::ref_ptr<osg::Node> modelOrShared(const std::vector<osg::ref_ptr<osg::Group>>& groups, std::size_t index) {
        if (!_models.empty() && chance(_settings.sharedPercent)) return _models[below(_models.size())];
        if (index + 1 < groups.size() && chance(_settings.sharedPercent))
            return groups[index + 1 + below(groups.size() - index - 1)];
        _models.push_back(makeModel());
        return _models.back();
    }

    void add(osg::Group& parent, osg::ref_ptr<osg::Node> child) { parent.addChild(child); }

    /** Gives a group models, and an LOD as many children as ranges, unless odd ones are wanted. */
    void complete(osg::Group& group, const std::vector<osg::ref_ptr<osg::Group>>& groups, std::size_t index) {
        auto* lod = dynamic_cast<osg::LOD*>(&group);
        const osg::LOD::RangeList ranges = rangeLists[below(rangeLists.size())];
        const std::size_t wanted = lod ? ranges.size() : group.getNumChildren() + below(3);
        while (group.getNumChildren() < wanted) add(group, modelOrShared(groups, index));
        if (!lod) return;
        if (_settings.oddLODs && chance(20)) add(group, modelOrShared(groups, index));
        if (_settings.oddLODs && chance(20)) group.removeChild(0u);
        if (!_settings.oddLODs || ranges.size() == lod->getNumChildren() || chance(50)) lod->setRangeList(ranges);
        if (!_settings.oddLODs && ranges.size() < lod->getNumChildren())
            for (unsigned int i = 0; i < lod->getNumChildren(); ++i) lod->setRange(i, 0.0f, 100.0f);
    }

    BatchGraphSettings _settings;
    std::mt19937 _random;
    std::vector<osg::ref_ptr<osg::Node>> _models;
};

}  // namespace

osg::ref_ptr<osg::Group> makeRandomBatchGraph(const BatchGraphSettings& settings) {
    return Builder(settings).build();
}

}  // namespace testing_support
