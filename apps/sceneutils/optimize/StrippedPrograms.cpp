#include "StrippedPrograms.h"

#include <sceneutils/RemoveNamesAndDescriptions.h>

#include <osg/Group>
#include <osg/StateAttribute>
#include <osg/UserDataContainer>

#include <unordered_map>

namespace veltrane::sceneutils::tool {

namespace {

/** Remembers what RemoveNamesAndDescriptions takes, and puts it back. */
class Memory {
public:
    explicit Memory(osg::Node& root) { remember(root); }

    std::set<const osg::StateSet*> restore() {
        for (auto& [node, own] : _nodes) {
            node->setName(own.name);
            node->setUserDataContainer(own.userData);
        }
        std::set<const osg::StateSet*> stripped;
        for (auto& [stateSet, program] : _programs) {
            if (stateSet->getAttribute(osg::StateAttribute::PROGRAM)) continue;
            stripped.insert(stateSet);
            stateSet->setAttribute(program.first, program.second);
        }
        return stripped;
    }

private:
    struct Own {
        std::string name;
        osg::ref_ptr<osg::UserDataContainer> userData;
    };

    void remember(osg::Node& node) {
        if (!_nodes.try_emplace(&node, Own{node.getName(), node.getUserDataContainer()}).second) return;
        osg::StateSet* stateSet = node.getStateSet();
        const osg::StateSet::RefAttributePair* program =
            stateSet ? stateSet->getAttributePair(osg::StateAttribute::PROGRAM) : nullptr;
        if (program) _programs.emplace(stateSet, *program);
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) remember(*group->getChild(i));
    }

    std::unordered_map<osg::Node*, Own> _nodes;
    std::unordered_map<osg::StateSet*, osg::StateSet::RefAttributePair> _programs;
};

}  // namespace

std::set<const osg::StateSet*> stateSetsThatLoseTheirProgram(osg::Node& root, const std::set<std::string>& keptNames) {
    Memory memory(root);
    RemoveNamesAndDescriptions remover;
    remover.preserveNames(keptNames);
    root.accept(remover);
    return memory.restore();
}

}  // namespace veltrane::sceneutils::tool
