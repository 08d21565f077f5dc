#include "EffectiveState.h"

#include <osg/Callback>

#include <algorithm>

namespace veltrane::sceneutils::tool {

namespace {

constexpr osg::Node::NodeMask anyMask = ~0u;

using Kind = StateSlot::Kind;
using Override = osg::StateAttribute::OverrideValue;

/** Whether what is set below counts, given the flags of what is set above. */
bool prevails(Override above, Override below) {
    return (above & osg::StateAttribute::OVERRIDE) == 0 || (below & osg::StateAttribute::PROTECTED) != 0;
}

template <typename Number, typename Map, typename Key>
std::size_t numberIn(Map& map, const Key& key, Number next) {
    return map.emplace(key, next).first->second;
}

}  // namespace

namespace {

std::string asText(const StateSlot& slot) {
    const std::string type = std::to_string(slot.type);
    const std::string ofUnit = " of unit " + std::to_string(slot.unit);
    switch (slot.kind) {
        case Kind::Mode:
            return "mode " + type;
        case Kind::Attribute:
        case Kind::TextureAttribute:
            return "attribute " + type;
        case Kind::TextureMode:
            return "texture mode " + type + ofUnit;
        case Kind::Uniform:
            return "uniform " + slot.name;
        case Kind::Define:
            return "define " + slot.name;
        case Kind::Bin:
            return "render bin";
        case Kind::NodeMask:
            return "node mask " + type;
        case Kind::Callback:
            return "a callback";
        case Kind::Choice:
            break;
    }
    return "place below a switch or sequence";
}

}  // namespace

std::size_t StateContents::numberOf(const osg::StateAttribute& attribute) {
    const auto found = _attributes.find(&attribute);
    if (found != _attributes.end()) return found->second;
    _attributeNames.emplace_back(attribute.className());
    // A copy, so that a later change of the attribute itself is seen.
    const osg::ref_ptr<osg::Object> copy = attribute.clone(osg::CopyOp::SHALLOW_COPY);
    const auto* kept = dynamic_cast<const osg::StateAttribute*>(copy.get());
    return _attributes.emplace(kept ? kept : &attribute, _attributes.size()).first->second;
}

std::size_t StateContents::numberOf(const osg::Uniform& uniform) {
    const auto found = _uniforms.find(&uniform);
    if (found != _uniforms.end()) return found->second;
    return _uniforms.emplace(new osg::Uniform(uniform), _uniforms.size()).first->second;
}

std::size_t StateContents::numberOf(const std::string& text) {
    return numberIn(_texts, text, _texts.size());
}

std::size_t StateContents::numberOf(const osg::Referenced* object) {
    return numberIn(_objects, object, _objects.size());
}

std::size_t StateContents::numberOf(const Content& content) {
    const auto [entry, isNew] = _contents.emplace(content, _contents.size());
    if (isNew) _byNumber.push_back(&entry->first);
    return entry->second;
}

std::string StateContents::firstDifference(std::size_t one, std::size_t other) const {
    const Content& a = *_byNumber[one];
    const Content& b = *_byNumber[other];
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (inA == a.end() && inB == b.end()) return "";
    const bool isOnlyInB = inA == a.end() || (inB != b.end() && inB->first < inA->first);
    return describe(isOnlyInB ? *inB : *inA);
}

std::string StateContents::describe(const Content::value_type& entry) const {
    const StateSlot& slot = entry.first;
    if (slot.kind == Kind::Attribute) return _attributeNames[entry.second];
    if (slot.kind == Kind::TextureAttribute)
        return _attributeNames[entry.second] + " of unit " + std::to_string(slot.unit);
    return asText(slot);
}

EffectiveStates::EffectiveStates(StateContents& contents, const std::set<const osg::StateSet*>& withoutProgram)
    : _contents(contents), _withoutProgram(withoutProgram) {
    add({}, 0);
}

EffectiveStates::Id EffectiveStates::below(Id above, const osg::Node& node) {
    Id id = above;
    if (node.getStateSet()) id = belowStateSet(id, *node.getStateSet());
    if (node.getNodeMask() != anyMask) id = belowSlot(id, {Kind::NodeMask, 0, node.getNodeMask(), 0, ""});
    for (const osg::Callback* callback : {node.getUpdateCallback(), node.getEventCallback(), node.getCullCallback()}) {
        if (!callback) continue;
        const auto number = static_cast<unsigned int>(_contents.numberOf(callback));
        id = belowSlot(id, {Kind::Callback, 0, number, 0, ""});
    }
    return id;
}

EffectiveStates::Id EffectiveStates::belowChoice(Id above, unsigned int child) {
    const unsigned int choices = _states[above].choices + 1;
    return belowSlot(above, {Kind::Choice, choices, child, 0, ""});
}

EffectiveStates::Id EffectiveStates::belowStateSet(Id above, const osg::StateSet& stateSet) {
    const auto [entry, isNew] = _belowStateSets.emplace(std::make_pair(above, &stateSet), above);
    if (!isNew) return entry->second;
    Values values = _states[above].values;
    gather(values, stateSet);
    return entry->second = add(std::move(values), _states[above].choices);
}

EffectiveStates::Id EffectiveStates::belowSlot(Id above, const StateSlot& slot) {
    const auto [entry, isNew] = _belowSlots.emplace(std::make_pair(above, slot), above);
    if (!isNew) return entry->second;
    Values values = _states[above].values;
    values[slot] = {0, 0};
    const unsigned int choices = _states[above].choices + (slot.kind == Kind::Choice ? 1 : 0);
    return entry->second = add(std::move(values), choices);
}

void EffectiveStates::gather(Values& values, const osg::StateSet& stateSet) {
    const auto set = [&values](const StateSlot& slot, std::size_t content, Override flags) {
        const auto [entry, isNew] = values.emplace(slot, Value{content, flags});
        if (!isNew && prevails(entry->second.flags, flags)) entry->second = {content, flags};
    };
    const auto setModes = [&](const osg::StateSet::ModeList& modes, Kind kind, unsigned int unit) {
        for (const auto& [mode, value] : modes) set({kind, unit, mode, 0, ""}, value & osg::StateAttribute::ON, value);
    };
    const bool dropsProgram = _withoutProgram.count(&stateSet) != 0;
    const auto setAttributes = [&](const osg::StateSet::AttributeList& attributes, Kind kind, unsigned int unit) {
        for (const auto& [type, value] : attributes) {
            const bool isProgram = type.first == osg::StateAttribute::PROGRAM && type.second == 0;
            if (isProgram && dropsProgram) continue;
            set({kind, unit, static_cast<unsigned int>(type.first), type.second, ""}, numberOf(*value.first),
                value.second);
        }
    };

    setModes(stateSet.getModeList(), Kind::Mode, 0);
    setAttributes(stateSet.getAttributeList(), Kind::Attribute, 0);
    for (unsigned int unit = 0; unit < stateSet.getTextureModeList().size(); ++unit)
        setModes(stateSet.getTextureModeList()[unit], Kind::TextureMode, unit);
    for (unsigned int unit = 0; unit < stateSet.getTextureAttributeList().size(); ++unit)
        setAttributes(stateSet.getTextureAttributeList()[unit], Kind::TextureAttribute, unit);
    for (const auto& [name, value] : stateSet.getUniformList())
        set({Kind::Uniform, 0, 0, 0, name}, numberOf(*value.first), value.second);
    for (const auto& [name, value] : stateSet.getDefineList())
        set({Kind::Define, 0, 0, 0, name}, _contents.numberOf(value.first), value.second);
    gatherBin(values, stateSet);
}

void EffectiveStates::gatherBin(Values& values, const osg::StateSet& stateSet) {
    const auto mode = static_cast<unsigned int>(stateSet.getRenderBinMode());
    if (mode == osg::StateSet::INHERIT_RENDERBIN_DETAILS) return;
    const auto [entry, isNew] = values.emplace(StateSlot{Kind::Bin, 0, 0, 0, ""}, Value{0, 0});
    const bool isOverridden = (entry->second.flags & osg::StateSet::OVERRIDE_RENDERBIN_DETAILS) != 0;
    if (!isNew && isOverridden && (mode & osg::StateSet::PROTECTED_RENDERBIN_DETAILS) == 0) return;
    const std::string way = std::to_string(entry->second.content) + "/" + std::to_string(stateSet.getBinNumber()) +
                            " " + stateSet.getBinName() + (stateSet.getNestRenderBins() ? "" : " apart");
    entry->second = {_contents.numberOf(way), mode};
}

EffectiveStates::Id EffectiveStates::add(Values values, unsigned int choices) {
    StateContents::Content content;
    content.reserve(values.size());
    for (const auto& [slot, value] : values) content.emplace_back(slot, value.content);
    const std::size_t number = _contents.numberOf(content);
    _states.push_back({std::move(values), number, choices});
    return _states.size() - 1;
}

std::size_t EffectiveStates::numberOf(const osg::StateAttribute& attribute) {
    const auto [entry, isNew] = _known.emplace(&attribute, 0);
    if (isNew) entry->second = _contents.numberOf(attribute);
    return entry->second;
}

std::size_t EffectiveStates::numberOf(const osg::Uniform& uniform) {
    const auto [entry, isNew] = _known.emplace(&uniform, 0);
    if (isNew) entry->second = _contents.numberOf(uniform);
    return entry->second;
}

}  // namespace veltrane::sceneutils::tool
