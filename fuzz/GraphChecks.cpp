#include "GraphChecks.h"

#include "Promise.h"

#include <osg/Billboard>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/LOD>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/Program>
#include <osg/Texture>
#include <osg/Transform>
#include <osg/Uniform>
#include <osgSim/LightPointNode>
#include <osgText/Text>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

namespace fuzzing {

namespace {

std::string nameOf(const osg::Node& node) {
    return std::string(node.className()) + " '" + node.getName() + "'";
}

// Texts, because bounds of OpenSceneGraph may consist of what is no number even if nothing else does.
std::string inWords(const osg::BoundingSphere& bound) {
    std::ostringstream out;
    out << std::hexfloat << bound.center().x() << " " << bound.center().y() << " " << bound.center().z() << " "
        << bound.radius();
    return out.str();
}

std::string inWords(const osg::BoundingBox& box) {
    std::ostringstream out;
    out << std::hexfloat << box.xMin() << " " << box.yMin() << " " << box.zMin() << " " << box.xMax() << " "
        << box.yMax() << " " << box.zMax();
    return out.str();
}

/** Carries everything that a graph shows into the world. */
class PlaceCollector {
public:
    void visit(osg::Node& node, const osg::Matrixd& toWorld, osg::Node::NodeMask mask, const osg::Node* parent) {
        const osg::Node::NodeMask left = mask & node.getNodeMask();
        if (const osg::Geometry* geometry = node.asGeometry()) {
            // Where a billboard's own vertices are depends on who looks at them.
            if (!dynamic_cast<const osg::Billboard*>(parent)) addVertices(*geometry, toWorld, left);
        } else if (const auto* text = dynamic_cast<const osgText::Text*>(&node)) {
            if (!dynamic_cast<const osg::Billboard*>(parent))
                add(Place::What::Text, left, osg::Vec3d(text->getPosition()) * toWorld);
        }
        if (const auto* billboard = dynamic_cast<const osg::Billboard*>(&node))
            for (const osg::Vec3& position : billboard->getPositionList())
                add(Place::What::Billboard, left, osg::Vec3d(position) * toWorld);
        if (const auto* lights = dynamic_cast<const osgSim::LightPointNode*>(&node))
            for (const osgSim::LightPoint& light : lights->getLightPointList())
                add(Place::What::Light, left, osg::Vec3d(light._position) * toWorld);
        visitChildren(node, toWorld, left);
    }

    std::vector<Place> places;

private:
    void visitChildren(osg::Node& node, osg::Matrixd toWorld, osg::Node::NodeMask mask) {
        if (const osg::Transform* transform = node.asTransform())
            transform->computeLocalToWorldMatrix(toWorld, nullptr);
        osg::Group* group = node.asGroup();
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i)
            visit(*group->getChild(i), toWorld, mask, &node);
    }

    void addVertices(const osg::Geometry& geometry, const osg::Matrixd& toWorld, osg::Node::NodeMask mask) {
        if (const auto* single = dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray()))
            for (const osg::Vec3& vertex : *single) add(Place::What::Vertex, mask, osg::Vec3d(vertex) * toWorld);
        if (const auto* exact = dynamic_cast<const osg::Vec3dArray*>(geometry.getVertexArray()))
            for (const osg::Vec3d& vertex : *exact) add(Place::What::Vertex, mask, vertex * toWorld);
    }

    void add(Place::What what, osg::Node::NodeMask mask, const osg::Vec3d& point) {
        places.push_back({what, mask, point + osg::Vec3d()});  // 0 and -0 are one place
    }
};

class StructureCheck {
public:
    void visit(osg::Node& node) {
        promise(_open.insert(&node).second, "there is a circle at " + nameOf(node));
        if (_done.insert(&node).second) {
            osg::Group* group = node.asGroup();
            for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) {
                promise(group->getChild(i) != nullptr, "a child is null below " + nameOf(node));
                ++_places[{group->getChild(i), group}];
                visit(*group->getChild(i));
            }
        }
        _open.erase(&node);
    }

    void checkParents(const osg::Node& top) const {
        for (osg::Node* node : _done) {
            if (node == &top) continue;
            std::map<const osg::Group*, int> counts;
            for (const osg::Group* parent : node->getParents()) ++counts[parent];
            for (const auto& [parent, count] : counts) {
                const auto found = _places.find({node, parent});
                promise(found != _places.end(), nameOf(*node) + " has a parent that is not in the graph");
                promise(found->second == count, nameOf(*node) + " has a parent more often than that has it");
            }
        }
        for (const auto& [place, count] : _places) {
            const auto& parents = place.first->getParents();
            promise(std::count(parents.begin(), parents.end(), place.second) == count,
                    nameOf(*place.first) + " does not know its parent");
            promise(place.first->referenceCount() >= static_cast<int>(place.first->getNumParents()),
                    nameOf(*place.first) + " is held less often than it hangs somewhere");
        }
    }

private:
    std::set<osg::Node*> _open;
    std::set<osg::Node*> _done;
    std::map<std::pair<osg::Node*, const osg::Group*>, int> _places;
};

void collect(osg::Node& node, std::set<osg::Node*>& known, std::vector<osg::Node*>& nodes) {
    if (!known.insert(&node).second) return;
    nodes.push_back(&node);
    osg::Group* group = node.asGroup();
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) collect(*group->getChild(i), known, nodes);
}

void describeAttribute(std::ostream& out, const osg::StateAttribute& attribute) {
    out << attribute.className() << " '" << attribute.getName() << "'";
    if (const auto* material = dynamic_cast<const osg::Material*>(&attribute)) {
        for (const osg::Vec4& color :
             {material->getAmbient(osg::Material::FRONT), material->getDiffuse(osg::Material::FRONT)})
            out << " " << color.x() << " " << color.y() << " " << color.z() << " " << color.w();
    }
    if (const auto* texture = dynamic_cast<const osg::Texture*>(&attribute)) {
        out << " filters " << texture->getFilter(osg::Texture::MIN_FILTER) << " "
            << texture->getFilter(osg::Texture::MAG_FILTER);
        for (unsigned int i = 0; i < texture->getNumImages(); ++i)
            out << (texture->getImage(i) ? " " + texture->getImage(i)->getFileName() : " none");
    }
}

void describeAttributes(std::ostream& out, const osg::StateSet::AttributeList& attributes) {
    for (const auto& [type, entry] : attributes) {
        out << "  attribute " << type.first << "." << type.second << " = " << entry.second << " ";
        describeAttribute(out, *entry.first);
        out << "\n";
    }
}

void describeState(std::ostream& out, const osg::StateSet& state) {
    for (const auto& [mode, value] : state.getModeList()) out << "  mode " << mode << " = " << value << "\n";
    describeAttributes(out, state.getAttributeList());
    for (const auto& modes : state.getTextureModeList()) {
        out << "  unit\n";
        for (const auto& [mode, value] : modes) out << "  mode " << mode << " = " << value << "\n";
    }
    for (const auto& attributes : state.getTextureAttributeList()) {
        out << "  unit\n";
        describeAttributes(out, attributes);
    }
    for (const auto& [name, entry] : state.getUniformList()) {
        out << "  uniform " << name << " = " << entry.second << " " << entry.first->getType();
        if (const osg::IntArray* values = entry.first->getIntArray())
            for (const int value : *values) out << " " << value;
        out << "\n";
    }
}

}  // namespace

bool Place::operator<(const Place& other) const {
    return std::tie(what, mask, point) < std::tie(other.what, other.mask, other.point);
}

std::vector<Place> placesOf(osg::Node& root) {
    PlaceCollector collector;
    collector.visit(root, osg::Matrixd(), ~0u, nullptr);
    return std::move(collector.places);
}

void promiseNoneLost(const std::vector<Place>& before, const std::vector<Place>& after) {
    std::vector<Place> lost;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(lost));
    if (lost.empty()) return;
    std::ostringstream what;
    what << lost.size() << " places are lost, among them of kind " << static_cast<int>(lost.front().what) << " "
         << lost.front().point.x() << " " << lost.front().point.y() << " " << lost.front().point.z() << " with mask "
         << std::hex << lost.front().mask;
    throw BrokenPromise(what.str());
}

std::vector<osg::Node*> nodesOf(osg::Node& root) {
    std::set<osg::Node*> known;
    std::vector<osg::Node*> nodes;
    collect(root, known, nodes);
    return nodes;
}

void checkStructure(osg::Group& top) {
    StructureCheck check;
    check.visit(top);
    check.checkParents(top);
}

void checkBounds(osg::Node& root) {
    for (osg::Node* node : nodesOf(root)) {
        if (const osg::Drawable* drawable = node->asDrawable()) {
            const osg::BoundingBox known = drawable->getBoundingBox();
            const osg::BoundingBox present = drawable->computeBoundingBox();
            promiseSame(inWords(known), inWords(present), nameOf(*node) + " has an old box");
        } else {
            const osg::BoundingSphere known = node->getBound();
            osg::BoundingSphere present = node->getInitialBound();
            present.expandBy(node->computeBound());
            if (present.center() != present.center()) continue;  // around what is empty
            promiseSame(inWords(known), inWords(present), nameOf(*node) + " has an old bound");
        }
    }
}

void computeBounds(osg::Node& root) {
    for (osg::Node* node : nodesOf(root)) node->getBound();
}

std::string describeStates(osg::Node& root) {
    std::ostringstream out;
    for (osg::Node* node : nodesOf(root)) {
        if (!node->getStateSet()) continue;
        out << nameOf(*node) << "\n";
        describeState(out, *node->getStateSet());
    }
    return out.str();
}

std::string describe(osg::Node& root) {
    std::ostringstream out;
    std::map<const osg::Node*, std::size_t> numbers;
    for (osg::Node* node : nodesOf(root)) numbers.emplace(node, numbers.size());
    for (osg::Node* node : nodesOf(root)) {
        out << numbers[node] << " " << nameOf(*node) << " mask " << node->getNodeMask();
        for (unsigned int i = 0; i < node->getNumDescriptions(); ++i) out << " '" << node->getDescription(i) << "'";
        if (const auto* lod = dynamic_cast<const osg::LOD*>(node))
            for (const auto& [near, far] : lod->getRangeList()) out << " " << near << "-" << far;
        const osg::Group* group = node->asGroup();
        out << " children";
        for (unsigned int i = 0; group && i < group->getNumChildren(); ++i) out << " " << numbers[group->getChild(i)];
        out << "\n";
    }
    for (const Place& place : placesOf(root))
        out << static_cast<int>(place.what) << " " << place.mask << " " << place.point.x() << " " << place.point.y()
            << " " << place.point.z() << "\n";
    return out.str();
}

std::vector<osg::observer_ptr<osg::Node>> observe(osg::Node& root) {
    std::vector<osg::observer_ptr<osg::Node>> observers;
    for (osg::Node* node : nodesOf(root)) observers.emplace_back(node);
    return observers;
}

}  // namespace fuzzing
