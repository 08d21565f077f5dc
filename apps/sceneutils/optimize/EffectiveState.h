#pragma once

#include <osg/Node>
#include <osg/StateAttribute>
#include <osg/StateSet>
#include <osg/Uniform>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::tool {

/** One thing that can be set on the way down a graph: a mode, an attribute of a texture unit, a uniform, ... */
struct StateSlot {
    enum class Kind {
        Mode,
        Attribute,
        TextureMode,
        TextureAttribute,
        Uniform,
        Define,
        Bin,
        NodeMask,
        Callback,
        Choice
    };

    Kind kind = Kind::Mode;
    unsigned int unit = 0;    ///< of a texture; how many choices lie above, of a choice
    unsigned int type = 0;    ///< the mode, the attribute's type, the mask, the number of a callback
    unsigned int member = 0;  ///< of the attribute's type
    std::string name;         ///< of a uniform or define

    bool operator<(const StateSlot& other) const {
        return std::tie(kind, unit, type, member, name) <
               std::tie(other.kind, other.unit, other.type, other.member, other.name);
    }
    bool operator==(const StateSlot& other) const { return !(*this < other) && !(other < *this); }
};

/** Gives numbers to contents: what is the same gets the same number, in whatever graph it is. */
class StateContents {
public:
    /** State as it is in the end, in the order of the slots. */
    using Content = std::vector<std::pair<StateSlot, std::size_t>>;

    std::size_t numberOf(const osg::StateAttribute& attribute);
    std::size_t numberOf(const osg::Uniform& uniform);
    std::size_t numberOf(const std::string& text);
    std::size_t numberOf(const osg::Referenced* object);  ///< the same for the same object only
    std::size_t numberOf(const Content& content);

    /** Says in what two numbered contents differ: "Texture2D of unit 0". */
    std::string firstDifference(std::size_t one, std::size_t other) const;

private:
    template <typename Type>
    struct LessByContent {
        bool operator()(const osg::ref_ptr<const Type>& a, const osg::ref_ptr<const Type>& b) const {
            return a->compare(*b) < 0;
        }
    };

    std::map<osg::ref_ptr<const osg::StateAttribute>, std::size_t, LessByContent<osg::StateAttribute>> _attributes;
    std::map<osg::ref_ptr<const osg::Uniform>, std::size_t, LessByContent<osg::Uniform>> _uniforms;
    std::string describe(const Content::value_type& entry) const;

    std::vector<std::string> _attributeNames;  ///< their classes, by number
    std::map<std::string, std::size_t> _texts;
    std::map<osg::ref_ptr<const osg::Referenced>, std::size_t> _objects;
    std::map<Content, std::size_t> _contents;
    std::vector<const Content*> _byNumber;
};

/**
 * The state that has been gathered from the root of one graph down to its nodes: modes, attributes, uniforms, defines
 * and render bins by the rules of OVERRIDE and PROTECTED; node masks, callbacks, and which child of a switch or a
 * sequence it is.
 */
class EffectiveStates {
public:
    using Id = std::size_t;  ///< of a gathered state

    /** @param withoutProgram state sets whose shader program does not count */
    EffectiveStates(StateContents& contents, const std::set<const osg::StateSet*>& withoutProgram);

    static constexpr Id atRoot = 0;

    Id below(Id above, const osg::Node& node);
    Id belowChoice(Id above, unsigned int child);

    /** The number of what is drawn with; gathered states of the same content have the same one. */
    std::size_t contentOf(Id id) const { return _states[id].content; }

private:
    struct Value {
        std::size_t content;
        osg::StateAttribute::OverrideValue flags;
    };
    using Values = std::map<StateSlot, Value>;
    struct State {
        Values values;
        std::size_t content;
        unsigned int choices;
    };

    Id belowStateSet(Id above, const osg::StateSet& stateSet);
    Id belowSlot(Id above, const StateSlot& slot);
    void gather(Values& values, const osg::StateSet& stateSet);
    void gatherBin(Values& values, const osg::StateSet& stateSet);
    Id add(Values values, unsigned int choices);
    std::size_t numberOf(const osg::StateAttribute& attribute);
    std::size_t numberOf(const osg::Uniform& uniform);

    StateContents& _contents;
    const std::set<const osg::StateSet*>& _withoutProgram;
    std::vector<State> _states;
    std::map<std::pair<Id, const osg::StateSet*>, Id> _belowStateSets;
    std::map<std::pair<Id, StateSlot>, Id> _belowSlots;
    std::unordered_map<const osg::Referenced*, std::size_t> _known;  ///< attributes and uniforms of this graph
};

}  // namespace veltrane::sceneutils::tool
