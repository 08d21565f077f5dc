#pragma once

#include "ByteChoices.h"

#include <osg/Image>
#include <osg/StateSet>

#include <vector>

namespace fuzzing {

/**
 * Makes state sets as the bytes choose: textures with and without images, odd units, modes, override and protected
 * entries, programs that are there already. Some state sets, attributes and images are used again, so that they have
 * several parents.
 */
class StateFromBytes {
public:
    explicit StateFromBytes(ByteChoices& choices) : _choices(choices) {}

    osg::ref_ptr<osg::StateSet> make();

    /** All that were made, each once. */
    const std::vector<osg::ref_ptr<osg::StateSet>>& states() const { return _states; }

private:
    osg::StateAttribute::OverrideValue strength();
    osg::ref_ptr<osg::Image> makeImage();
    osg::ref_ptr<osg::StateAttribute> makeTexture();
    osg::ref_ptr<osg::StateAttribute> makeOnUnit();
    osg::ref_ptr<osg::StateAttribute> makeMaterial();
    osg::ref_ptr<osg::StateAttribute> makeProgram();
    osg::ref_ptr<osg::StateAttribute> makeAttribute();
    osg::ref_ptr<osg::Uniform> makeUniform();
    void addOnUnit(osg::StateSet& state);
    void addOddities(osg::StateSet& state);

    ByteChoices& _choices;
    std::vector<osg::ref_ptr<osg::StateSet>> _states;
    std::vector<osg::ref_ptr<osg::StateAttribute>> _attributes;
    std::vector<osg::ref_ptr<osg::StateAttribute>> _onUnits;
    std::vector<osg::ref_ptr<osg::Uniform>> _uniforms;
    std::vector<osg::ref_ptr<osg::Image>> _images;
};

}  // namespace fuzzing
