#include "StateMove.h"

namespace veltrane::sceneutils::tool {

namespace {

using Override = osg::StateAttribute::OverrideValue;

constexpr Override protection = osg::StateAttribute::PROTECTED;

bool isPlain(const osg::StateSet& stateSet) {
    return !stateSet.getUpdateCallback() && !stateSet.getEventCallback() &&
           stateSet.getDataVariance() != osg::Object::DYNAMIC;
}

bool hasBin(const osg::StateSet& stateSet) {
    return stateSet.getRenderBinMode() != osg::StateSet::INHERIT_RENDERBIN_DETAILS;
}

/** What prevails over an override above the group by the group's protection does so in the merged set as well. */
void protectModes(const osg::StateSet::ModeList& above, const osg::StateSet::ModeList& merged,
                  osg::StateSet::ModeList& result) {
    for (const auto& [mode, value] : above)
        if ((value & protection) != 0 && merged.count(mode) != 0) result[mode] |= protection;
}

template <typename Entries>
void protect(const Entries& above, Entries& result) {
    for (const auto& [key, entry] : above) {
        const auto found = result.find(key);
        if ((entry.second & protection) != 0 && found != result.end()) found->second.second |= protection;
    }
}

void protectAll(const osg::StateSet& above, osg::StateSet& result) {
    protectModes(above.getModeList(), result.getModeList(), result.getModeList());
    protect(above.getAttributeList(), result.getAttributeList());
    protect(above.getUniformList(), result.getUniformList());
    protect(above.getDefineList(), result.getDefineList());
    for (std::size_t unit = 0; unit < above.getTextureModeList().size(); ++unit) {
        osg::StateSet::ModeList& modes = result.getTextureModeList()[unit];
        protectModes(above.getTextureModeList()[unit], modes, modes);
    }
    for (std::size_t unit = 0; unit < above.getTextureAttributeList().size(); ++unit)
        protect(above.getTextureAttributeList()[unit], result.getTextureAttributeList()[unit]);
}

}  // namespace

bool StateMove::isPossible(const osg::Group& group) {
    const osg::StateSet* own = group.getStateSet();
    if (!own) return true;
    if (!isPlain(*own)) return false;
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        const osg::Node& child = *group.getChild(i);
        if (child.getNumParents() != 1) return false;
        const osg::StateSet* below = child.getStateSet();
        if (below && (!isPlain(*below) || (hasBin(*own) && hasBin(*below)))) return false;
    }
    return true;
}

void StateMove::moveToChildren(osg::Group& group) {
    const osg::ref_ptr<osg::StateSet> own = group.getStateSet();
    if (!own) return;
    group.setStateSet(nullptr);
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        osg::Node& child = *group.getChild(i);
        child.setStateSet(merged(*own, child.getStateSet()));
    }
}

osg::StateSet* StateMove::merged(osg::StateSet& above, osg::StateSet* below) {
    if (!below || below == &above) return &above;
    osg::ref_ptr<osg::StateSet>& result = _merged[{&above, below}];
    if (!result) {
        result = new osg::StateSet(above, osg::CopyOp::SHALLOW_COPY);
        result->merge(*below);
        protectAll(above, *result);
    }
    return result;
}

}  // namespace veltrane::sceneutils::tool
