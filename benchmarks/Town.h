#pragma once

#include <osg/Group>
#include <osg/Node>
#include <osg/StateSet>
#include <osg/ref_ptr>

#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** Makes towns: quarters of blocks of models, one state in turn after the other. */
class TownBuilder {
public:
    TownBuilder();

    /** A square of 10 by 10 units in the corner of the index's block. */
    osg::ref_ptr<osg::Node> makeModel(int index) const;

    /** @param drawables ten to a block; what is left over is left out */
    osg::ref_ptr<osg::Group> makeTown(int drawables) const;

    /** A static transform by 20 units to the east. */
    static osg::ref_ptr<osg::Group> makeTransform(const osg::ref_ptr<osg::Node>& child);

private:
    osg::ref_ptr<osg::Group> makeBlock(int first) const;

    std::vector<osg::ref_ptr<osg::StateSet>> _states;
};

}  // namespace veltrane::sceneutils::benchmarks
