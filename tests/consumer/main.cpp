// A program of a user of the installed library: nothing but what an installation offers is in its reach.

#include <sceneutils/BubbleUpTransform.h>
#include <sceneutils/CalculateBoundingBox.h>
#include <sceneutils/ChangeTextureExtension.h>
#include <sceneutils/CreatePagedLODVisitor.h>
#include <sceneutils/Export.h>
#include <sceneutils/FindNodeVisitor.h>
#include <sceneutils/FlattenUselessLODs.h>
#include <sceneutils/ForceTextureFilter.h>
#include <sceneutils/LODMarkup.h>
#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>
#include <sceneutils/OpenFlightLODCreator.h>
#include <sceneutils/OptimizeBatches.h>
#include <sceneutils/RemoveNamesAndDescriptions.h>
#include <sceneutils/SceneUtils.h>
#include <sceneutils/ShaderGenerator.h>
#include <sceneutils/SimpleGeometryGenerator.h>
#include <sceneutils/StateSetVisitor.h>
#include <sceneutils/TextureVisitor.h>
#include <sceneutils/TransformAccumulator.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/Texture2D>

#include <iostream>
#include <string>

using namespace veltrane::sceneutils;

namespace {

class StateSetCounter : public StateSetVisitor {
public:
    using StateSetVisitor::apply;
    void apply(osg::StateSet&) override { ++count; }
    int count = 0;
};

class TextureCounter : public TextureVisitor {
public:
    using TextureVisitor::apply;
    void apply(osg::Texture&) override { ++count; }
    int count = 0;
};

osg::ref_ptr<osg::Geode> makeModel(osg::Texture* texture) {
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(), osg::X_AXIS, osg::Y_AXIS));
    geode->getOrCreateStateSet()->setTextureAttributeAndModes(0, texture);
    return geode;
}

template <typename Counter>
int countIn(osg::Node& node) {
    Counter counter;
    node.accept(counter);
    return counter.count;
}

int failures = 0;

void expect(bool fulfilled, const std::string& expectation) {
    if (fulfilled) return;
    std::cerr << "consumer: expected that " << expectation << "\n";
    ++failures;
}

}  // namespace

int main() {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->setFileName("wall.rgb");
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
    osg::ref_ptr<osg::Geode> model = makeModel(texture);

    expect(countIn<StateSetCounter>(*model) == 1, "the state set is visited");
    expect(countIn<TextureCounter>(*model) == 1, "the texture is visited");

    ForceTextureFilter filter(osg::Texture::NEAREST);
    model->accept(filter);
    expect(texture->getFilter(osg::Texture::MIN_FILTER) == osg::Texture::NEAREST, "the filter is forced");

    ChangeTextureExtension::process(model, "rgb", "dds");
    expect(image->getFileName() == "wall.dds", "the image is renamed");

    ShaderGenerator::instance()->process(model, false, false, false, true);
    expect(model->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM), "the model gets a program");

    expect(loadShader("no such file.frag", osg::Shader::FRAGMENT)->getNumShaders() == 0,
           "a missing shader is not loaded");

    osg::ref_ptr<osg::Node> soil = GetDirt(1.0, texture, texture, texture, nullptr, 20.0f, 40.0f, 40.0f, 10.0f, 0.0f);
    expect(soil->asGeode(), "a soil sample is made");

    makeWireframe(soil->getStateSet(), osg::Vec4(1, 1, 0, 1), -1.0f);
    expect(soil->getStateSet()->getAttribute(osg::StateAttribute::POLYGONMODE), "the soil is drawn in lines");
    osg::Matrixd wayBack;
    BubbleUpTransform().createMatrixForGeodes(model, 0.0, wayBack);
    expect(wayBack.getTrans() == osg::Vec3d(0.5, 0.5, 0.0), "the model is moved to the origin");

    CreatePagedLODVisitor converter(nullptr);
    expect(!converter.convert("no such file.flt", "not written.ive"), "a missing file is not converted");

    FindNodeVisitor finder("wall");
    model->setName("wall");
    model->accept(finder);
    expect(finder.getFirst() == model, "the model is found by its name");
    expect(!findNamedPAT(model, "wall"), "a geode is no transform");

    expect(CalculateBoundingBox::process(*model).xMax() == 0.5f, "the model is measured");

    osg::ref_ptr<osg::Group> root = new osg::Group;
    TransformAccumulator accumulator;
    expect(accumulator.attachToGroup(root), "the attach point is attached");
    expect(accumulator.getMatrix().isIdentity(), "no matrix is recorded before an update traversal");

    osg::ref_ptr<osg::Group> hinted = new osg::Group;
    hinted->addDescription("LOD_Transition_Range 10");
    root->addChild(hinted);
    OpenFlightLODCreator().process(root);
    expect(hinted->getParent(0) != root, "the hint becomes an LOD");

    LODMarkup::process(root);
    expect(hinted->getParent(0)->getParent(0) != root, "the LOD is marked");

    exportNode(root, "no such node", "not written");
    expect(osg::ref_ptr<osg::Node>(addRock())->asTransform(), "there is a place for a rock");

    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(100.0);
    optimizer.process(root);
    expect(optimizer.getUnspatializeRadius() == 100.0, "the radius is kept");

    osg::ref_ptr<SimpleGeometryGenerator> marks = new SimpleGeometryGenerator;
    marks->addLine(osg::Vec3f(), osg::Vec3f(1, 0, 0), marks->createColor(63));
    expect(marks->getBound().radius() == 0.5f, "a line is added");
    expect(createCoordinateSystemGeometry(2.0f)->getBound().valid(), "a coordinate system is made");

    return failures == 0 ? 0 : 1;
}
