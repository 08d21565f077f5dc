#include "GraphChecks.h"
#include "Promise.h"
#include "ToolSteps.h"
#include "support/StandardError.h"

#include <sceneutils/ChangeTextureExtension.h>
#include <sceneutils/ForceTextureFilter.h>
#include <sceneutils/RemoveNamesAndDescriptions.h>
#include <sceneutils/SceneUtils.h>
#include <sceneutils/ShaderGenerator.h>

#include <osg/Geode>
#include <osg/Image>
#include <osg/Program>
#include <osg/Sequence>
#include <osg/Texture2D>
#include <osgDB/FileNameUtils>
#include <osgSim/DOFTransform>
#include <osgSim/LightPointNode>
#include <osgSim/MultiSwitch>

#include <map>
#include <set>
#include <string>

namespace fuzzing {

namespace {

using namespace veltrane::sceneutils;
using testing_support::StandardError;

/** The textures of a graph in the order in which they are visited, once for each place. */
class TextureWalk {
public:
    explicit TextureWalk(osg::Node& root) { visit(root); }

    std::vector<osg::Texture*> textures;

private:
    void visit(osg::Node& node) {
        if (node.getNodeMask() == 0) return;
        add(node);
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) {
            osg::Node& child = *group->getChild(i);
            if (!node.asGeode()) {
                visit(child);
            } else if (child.asDrawable()) {
                add(child);
            }
        }
    }
    void add(osg::Node& node) {
        if (!node.getStateSet()) return;
        for (const osg::StateSet::AttributeList& attributes : node.getStateSet()->getTextureAttributeList()) {
            const auto found = attributes.find({osg::StateAttribute::TEXTURE, 0});
            if (found == attributes.end()) continue;
            if (auto* texture = dynamic_cast<osg::Texture*>(found->second.first.get())) textures.push_back(texture);
        }
    }
};

/** What a program is expected for: state sets of nodes, and of drawables below geodes. */
void addClassified(osg::Node& node, std::set<osg::StateSet*>& states) {
    if (node.getNodeMask() == 0) return;
    if (node.getStateSet()) states.insert(node.getStateSet());
    osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) {
        osg::Node& child = *group->getChild(i);
        if (!node.asGeode()) {
            addClassified(child, states);
        } else if (child.asDrawable() && child.getStateSet()) {
            states.insert(child.getStateSet());
        }
    }
}

bool hasGeneratedPrograms(osg::Node& root) {
    for (osg::Node* node : nodesOf(root)) {
        const osg::StateSet* state = node->getStateSet();
        const auto* program = state ? state->getAttribute(osg::StateAttribute::PROGRAM) : nullptr;
        if (program && program->getName().find("shader_t") == 0) return true;
    }
    return false;
}

bool keepsItsName(const osg::Node& node, const std::set<std::string>& preserved) {
    return dynamic_cast<const osgSim::MultiSwitch*>(&node) || dynamic_cast<const osgSim::DOFTransform*>(&node) ||
           dynamic_cast<const osgSim::LightPointNode*>(&node) || dynamic_cast<const osg::Sequence*>(&node) ||
           node.getDataVariance() == osg::Object::DYNAMIC || preserved.count(node.getName()) > 0;
}

}  // namespace

void changeExtensions(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const auto from = scene.choices.one<std::string>({"rgb", "RGB", "", ".rgb", "png"});
    const auto to = scene.choices.one<std::string>({"png", "rgb", "", "tar.gz"});
    std::map<osg::Image*, std::string> names;
    std::string lines;
    for (osg::Texture* texture : TextureWalk(root).textures) {
        for (unsigned int i = 0; i < texture->getNumImages(); ++i) {
            if (!texture->getImage(i)) continue;
            std::string& name = names.emplace(texture->getImage(i), texture->getImage(i)->getFileName()).first->second;
            if (osgDB::getFileExtension(name) != from) continue;
            const std::string newName = osgDB::getNameLessExtension(name) + "." + to;
            lines += "Changing " + name + " to " + newName + "\n";
            name = newName;
        }
    }

    const StandardError errors;
    ChangeTextureExtension::process(&root, from, to);

    promiseSame(lines, errors.text(), "not those lines");
    for (const auto& [image, name] : names) promise(image->getFileName() == name, "not that file name");
}

void forceFilter(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    const auto mode = scene.choices.one({osg::Texture::LINEAR_MIPMAP_LINEAR, osg::Texture::NEAREST});
    std::map<osg::Texture*, osg::Texture::FilterMode> magnifying;
    for (osg::Texture* texture : TextureWalk(root).textures)
        magnifying[texture] = texture->getFilter(osg::Texture::MAG_FILTER);

    ForceTextureFilter visitor(mode);
    root.accept(visitor);

    for (const auto& [texture, filter] : magnifying) {
        promise(texture->getFilter(osg::Texture::MIN_FILTER) == mode, "a texture keeps its filter");
        promise(texture->getFilter(osg::Texture::MAG_FILTER) == filter, "another filter changed");
    }
}

void removeNames(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    std::set<std::string> preserved;
    if (scene.choices.chance(50)) preserved = {"kept", "a"};
    std::map<osg::Node*, std::string> kept;
    std::set<osg::Node*> stripped;
    for (osg::Node* node : visitedNodes(root)) {
        if (keepsItsName(*node, preserved)) kept[node] = node->getName();
        if (!keepsItsName(*node, preserved)) stripped.insert(node);
    }

    RemoveNamesAndDescriptions visitor;
    visitor.preserveNames(preserved);
    root.accept(visitor);

    for (const auto& [node, name] : kept) promise(node->getName() == name, "a name is lost");
    for (osg::Node* node : stripped) {
        promise(node->getName().empty() && !node->getUserDataContainer() && node->getNumDescriptions() == 0,
                "a name, description or user data is left");
        const osg::StateSet* state = node->getStateSet();
        promise(!state || !state->getAttribute(osg::StateAttribute::PROGRAM), "a program is left");
    }
    const std::string once = describe(*scene.top) + describeStates(*scene.top);
    root.accept(visitor);
    promiseSame(once, describe(*scene.top) + describeStates(*scene.top), "the second run changes something");
}

void generateShaders(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    osg::Group* const parent = root.getNumParents() > 0 && scene.choices.chance(50) ? root.getParent(0) : nullptr;
    const bool shadow = scene.choices.chance(50), lighting = scene.choices.chance(50);
    const bool normalMapping = scene.choices.chance(50), fog = scene.choices.chance(50);
    ShaderGenerator& generator = *ShaderGenerator::instance();
    generator.setShadowTex(scene.choices.one({-1, 0, 3, 7}));
    const std::string before = describe(*scene.top);
    const bool isNew = root.getStateSet() && !hasGeneratedPrograms(*scene.top);

    generator.process(&root, parent, shadow, lighting, normalMapping, fog);
    promiseSame(before, describe(*scene.top), "more than state has changed");
    std::set<osg::StateSet*> states;
    addClassified(root, states);
    states.insert(root.getStateSet());
    for (osg::StateSet* state : states) {
        const auto* program = dynamic_cast<osg::Program*>(state->getAttribute(osg::StateAttribute::PROGRAM));
        promise(program && program->getName().find("shader_t") == 0, "a state set has no program");
    }

    // Where one state set hangs in several places, one run may leave a program alone that was there, and replace it. A
    // root without state gets some in the end, which the next run meets with all that is above.
    if (!isNew) generator.process(&root, parent, shadow, lighting, normalMapping, fog);
    const std::string once = describeStates(*scene.top);
    generator.process(&root, parent, shadow, lighting, normalMapping, fog);
    promiseSame(once, describeStates(*scene.top), "the second run changes something");
    generator.setShadowTex(-1);
}

void makeHelpers(Scene& scene) {
    osg::Node& root = scene.chooseRoot();
    if (scene.choices.chance(50)) makeWireframe(root.getOrCreateStateSet(), osg::Vec4(1, 0, 0, 1), 1.0f);
    if (scene.choices.chance(50)) scene.top->addChild(createCoordinateSystemGeometry(2.5f));
    if (scene.choices.chance(50)) scene.top->addChild(addRock());
    const auto height = scene.choices.one({1.0, 0.0, 0.1875, -1.0});
    if (scene.choices.chance(50)) {
        const osg::ref_ptr<osg::Node> mound =
            GetDirt(height, new osg::Texture2D, new osg::Texture2D, nullptr, new osg::Program, 1, 2, 3, 4, 5);
        promise((mound->asGeode() != nullptr) == (height > 0), "no mound, or one without height");
        scene.top->addChild(mound);
    }
    const std::string before = describe(*scene.top);
    exportNode(scene.top, scene.choices.one({"", "a", "b", "not there"}), "exported");
    promiseSame(before, describe(*scene.top), "writing a graph has changed it");
}

}  // namespace fuzzing
