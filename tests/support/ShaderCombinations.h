#pragma once

#include "support/ExpectedShaders.h"

#include <osg/StateSet>
#include <osg/ref_ptr>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace testing_support {

/** One way to combine everything that a program depends on. */
struct Combination {
    std::vector<int> texturedUnits;
    int normalMapUnit = -1;
    int specMapUnit = -1;
    int overlayUnit = -1;
    bool sunUniforms = false;
    bool text = false;
    bool pointSprite = false;
    RunSettings run;
};

std::ostream& operator<<(std::ostream& out, const Combination& combination);

/** Every combination of a few values of each. */
std::vector<Combination> allCombinations();

/** A state set that asks for that combination (when on a text, if the combination says so). */
osg::ref_ptr<osg::StateSet> makeState(const Combination& combination);

/** The record that its classification must come to. */
sceneutils::ShaderFeatures expectedRecord(const Combination& combination);

/** The int uniforms that such a state set has in the end, its own and the ones added. */
std::map<std::string, int> expectedUniforms(const Combination& combination);

}  // namespace testing_support
