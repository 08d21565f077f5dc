#include "GraphSurvey.h"

#include "NodeNames.h"

#include <osg/Billboard>
#include <osg/ClearNode>
#include <osg/ClipPlane>
#include <osg/ClusterCullingCallback>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Light>
#include <osg/LightSource>
#include <osg/MatrixTransform>
#include <osg/NodeVisitor>
#include <osg/PagedLOD>
#include <osg/Projection>
#include <osg/ProxyNode>
#include <osg/Sequence>
#include <osg/Switch>
#include <osg/TexGen>
#include <osgSim/MultiSwitch>

#include <algorithm>
#include <set>
#include <typeindex>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

constexpr osg::Node::NodeMask anyMask = ~0u;

// Of these nodes nothing has a place but the children. What is derived from them may be different.
const std::set<std::type_index> groupClasses = {
    typeid(osg::Node),      typeid(osg::Group),         typeid(osg::Switch),    typeid(osg::Sequence),
    typeid(osg::ClearNode), typeid(osg::Projection),    typeid(osg::ProxyNode), typeid(osg::LightSource),
    typeid(osg::Transform), typeid(osgSim::MultiSwitch)};

template <typename Class>
bool isExactly(const osg::Object& object) {
    return typeid(object) == typeid(Class);
}

bool isMovableArray(const osg::Array* array) {
    return array && (array->getType() == osg::Array::Vec3ArrayType || array->getType() == osg::Array::Vec3dArrayType);
}

bool hasClusterCulling(const osg::Node& node) {
    for (const osg::Callback* callback = node.getCullCallback(); callback; callback = callback->getNestedCallback())
        if (dynamic_cast<const osg::ClusterCullingCallback*>(callback)) return true;
    return false;
}

bool isAffine(const osg::Matrixd& matrix) {
    return matrix(0, 3) == 0.0 && matrix(1, 3) == 0.0 && matrix(2, 3) == 0.0 && matrix(3, 3) == 1.0;
}

bool shinesFromAPlace(const osg::Light* light) {
    return light && light->getPosition().w() != 0.0f;
}

bool dependsOnPlace(const osg::StateAttribute& attribute) {
    if (dynamic_cast<const osg::ClipPlane*>(&attribute)) return true;
    if (const auto* light = dynamic_cast<const osg::Light*>(&attribute)) return shinesFromAPlace(light);
    const auto* texGen = dynamic_cast<const osg::TexGen*>(&attribute);
    return texGen && (texGen->getMode() == osg::TexGen::OBJECT_LINEAR || texGen->getMode() == osg::TexGen::EYE_LINEAR);
}

const osg::StateAttribute* findPlace(const osg::StateSet& stateSet) {
    for (const auto& [key, attribute] : stateSet.getAttributeList())
        if (dependsOnPlace(*attribute.first)) return attribute.first;
    for (const osg::StateSet::AttributeList& unit : stateSet.getTextureAttributeList())
        for (const auto& [key, attribute] : unit)
            if (dependsOnPlace(*attribute.first)) return attribute.first;
    return nullptr;
}

bool namesAFile(const osg::PagedLOD& paged) {
    for (unsigned int i = 0; i < paged.getNumFileNames(); ++i)
        if (!paged.getFileName(i).empty()) return true;
    return false;
}

class Surveyor : public osg::NodeVisitor {
public:
    explicit Surveyor(LightPoints lightPoints) : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _lightPoints(lightPoints) {
        setNodeMaskOverride(anyMask);
    }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (!_met[_isCarried].insert(&node).second) return;
        if (_isCarried) {
            lookAtCarried(node);
        } else {
            lookAtMoved(node);
        }
    }

    GraphSurvey result() {
        const auto conflict = std::find_if(_moved.begin(), _moved.end(),
                                           [&](const auto& moved) { return _unmoved.count(moved.first) > 0; });
        if (conflict != _moved.end()) _survey.problems.push_back(conflict->second);  // what is below it would follow
        return std::move(_survey);
    }

private:
    void report(const char* reason) { _survey.problems.push_back(nameOf(getNodePath()) + " " + reason); }

    void noteMoved(const osg::Referenced* object, const char* problemIfUnmovedToo) {
        _moved.emplace_back(object, nameOf(getNodePath()) + " " + problemIfUnmovedToo);
    }
    void noteMoved(const osg::Node& node) {
        noteMoved(&node, "is shared by a place below a transform and one that is not");
        if (node.getUpdateCallback() || node.getEventCallback())
            report("has an update or event callback, which may move it");
    }

    void lookAtCarried(osg::Node& node) {
        _unmoved.insert(&node);
        if (const osg::Geometry* geometry = node.asGeometry()) noteUnmovedArrays(*geometry);
        if (auto* lights = dynamic_cast<osgSim::LightPointNode*>(&node))
            _survey.carriedLightPoints.emplace_back(lights);
        traverse(node);
    }

    void lookAtMoved(osg::Node& node) {
        if (node.getNodeMask() == 0) _survey.hiddenNodes.emplace_back(&node);
        if (hasClusterCulling(node)) report("is culled by a place of its own, which is not moved");
        lookAtInitialBound(node);

        if (auto* transform = node.asTransform()) return lookAtTransform(*transform);
        if (auto* drawable = node.asDrawable()) return lookAtDrawable(*drawable);
        if (isExactly<osg::Billboard>(node)) return lookAtBillboard(static_cast<osg::Billboard&>(node));
        if (isExactly<osg::Geode>(node)) return lookAtGeode(static_cast<osg::Geode&>(node));
        if (isExactly<osg::LOD>(node) || isExactly<osg::PagedLOD>(node)) return lookAtLOD(static_cast<osg::LOD&>(node));
        if (isExactly<osgSim::LightPointNode>(node)) return lookAtLights(static_cast<osgSim::LightPointNode&>(node));
        lookAtGroup(node);
    }

    void lookAtInitialBound(osg::Node& node) {
        const osg::Drawable* drawable = node.asDrawable();
        if (drawable ? !drawable->getInitialBound().valid() : !node.getInitialBound().valid()) return;
        _survey.nodesWithInitialBound.emplace_back(&node);
        noteMoved(&node, "is shared by a place below a transform and one that is not");
    }

    void lookAtState(const osg::Node& node) {
        const osg::StateAttribute* attribute = node.getStateSet() ? findPlace(*node.getStateSet()) : nullptr;
        if (attribute)
            report((std::string("has state with a place of its own, which is not moved (") + attribute->libraryName() +
                    "::" + attribute->className() + ")")
                       .c_str());
    }

    void lookAtTransform(osg::Transform& transform) {
        const bool hasNoMatrix = isExactly<osg::Transform>(transform);
        auto* positionAttitude = transform.asPositionAttitudeTransform();
        if (!hasNoMatrix && !isExactly<osg::MatrixTransform>(transform) &&
            !isExactly<osg::PositionAttitudeTransform>(transform))
            return reportClass();
        if (transform.getReferenceFrame() != osg::Transform::RELATIVE_RF) report("has an absolute reference frame");
        if (hasNoMatrix) return lookAtGroup(transform);

        if (positionAttitude) _survey.positionAttitudeTransforms.emplace_back(positionAttitude);
        if (const auto* matrix = transform.asMatrixTransform(); matrix && !isAffine(matrix->getMatrix()))
            report("is no affine transform");
        noteMoved(transform);
        carryChildrenOf(transform);
    }

    void carryChildrenOf(osg::Node& node) {
        _isCarried = true;
        traverse(node);
        _isCarried = false;
    }

    void reportClass() { report("is of a class that cannot be moved; put it below a matrix transform"); }

    void lookAtDrawable(osg::Drawable& drawable) {
        lookAtState(drawable);
        if (!isExactly<osg::Geometry>(drawable)) return reportClass();
        noteMoved(drawable);
        lookAtArrays(static_cast<osg::Geometry&>(drawable));
    }

    void lookAtArrays(osg::Geometry& geometry) {
        osg::Geometry::ArrayList others;
        geometry.getArrayList(others);
        for (osg::Array* array : {geometry.getVertexArray(), geometry.getVertexAttribArray(osg::Drawable::VERTICES)}) {
            if (!array) continue;
            if (!isMovableArray(array)) report("has vertices that are no Vec3Array or Vec3dArray");
            noteMoved(array, "shares an array with something that is not moved likewise");
            others.erase(std::find(others.begin(), others.end(), array));
        }
        _unmoved.insert(others.begin(), others.end());
        noteNormals(geometry);
    }

    void noteNormals(osg::Geometry& geometry) {
        for (osg::Array* array : {geometry.getNormalArray(), geometry.getVertexAttribArray(osg::Drawable::NORMALS)})
            if (isMovableArray(array)) _survey.normals.emplace_back(array);
    }

    void noteUnmovedArrays(const osg::Geometry& geometry) {
        osg::Geometry::ArrayList arrays;
        geometry.getArrayList(arrays);
        _unmoved.insert(arrays.begin(), arrays.end());
    }

    void lookAtBillboard(osg::Billboard& billboard) {
        lookAtState(billboard);
        noteMoved(billboard);
        for (unsigned int i = 0; i < billboard.getNumDrawables(); ++i) {
            osg::Drawable* drawable = billboard.getDrawable(i);
            if (!drawable) continue;
            _unmoved.insert(drawable);
            if (osg::Geometry* geometry = drawable->asGeometry()) {
                noteUnmovedArrays(*geometry);
                noteNormals(*geometry);
            }
        }
        reportOtherChildren(billboard);
    }

    void lookAtGeode(osg::Geode& geode) {
        lookAtState(geode);
        noteMoved(geode);
        reportOtherChildren(geode);
        traverse(geode);
    }

    void reportOtherChildren(const osg::Geode& geode) {
        for (unsigned int i = 0; i < geode.getNumChildren(); ++i) {
            if (!geode.getChild(i)->asDrawable()) return report("has a child that is no drawable");
        }
    }

    void lookAtLOD(osg::LOD& lod) {
        lookAtState(lod);
        noteMoved(lod);
        const auto* paged = dynamic_cast<const osg::PagedLOD*>(&lod);
        if (paged && namesAFile(*paged)) report("pages in files, which are not moved");
        _survey.lods.emplace_back(&lod);
        traverse(lod);
    }

    void lookAtLights(osgSim::LightPointNode& lights) {
        lookAtState(lights);
        if (lights.getNumLightPoints() == 0) return;
        noteMoved(lights);
        if (_lightPoints == LightPoints::Leave) report("has light points, which are not moved with --graph");
    }

    void lookAtGroup(osg::Node& node) {
        lookAtState(node);
        if (groupClasses.count(typeid(node)) == 0) return reportClass();
        if (const auto* proxy = dynamic_cast<const osg::ProxyNode*>(&node)) {
            if (proxy->getNumChildren() < proxy->getNumFileNames()) report("refers to a file that is not loaded");
        }
        if (const auto* source = dynamic_cast<const osg::LightSource*>(&node)) {
            if (source->getReferenceFrame() == osg::LightSource::RELATIVE_RF && shinesFromAPlace(source->getLight()))
                report("shines from a place, which is not moved");
        }
        traverse(node);
    }

    LightPoints _lightPoints;
    bool _isCarried = false;
    std::set<const osg::Node*> _met[2];
    std::vector<std::pair<const osg::Referenced*, std::string>>
        _moved;  ///< with what to say if it is among the unmoved too
    std::set<const osg::Referenced*> _unmoved;
    GraphSurvey _survey;
};

}  // namespace

GraphSurvey survey(osg::Node& root, LightPoints lightPoints) {
    Surveyor surveyor(lightPoints);
    root.accept(surveyor);
    return surveyor.result();
}

}  // namespace veltrane::sceneutils::tool
