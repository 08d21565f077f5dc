// Gives a model generated shader programs, and lists them.
//
//     shade_model INPUT OUTPUT.osgt

#include <sceneutils/ShaderGenerator.h>
#include <sceneutils/StateSetVisitor.h>

#include <osg/Program>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <iostream>
#include <set>
#include <string>

namespace {

// Called for each state set of the graph, those of drawables included.
class ProgramNames : public veltrane::sceneutils::StateSetVisitor {
public:
    using StateSetVisitor::apply;
    void apply(osg::StateSet& state) override {
        const osg::StateAttribute* const program = state.getAttribute(osg::StateAttribute::PROGRAM);
        if (program) found.insert(program->getName());
    }
    std::set<std::string> found;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: shade_model INPUT OUTPUT.osgt\n";
        return 1;
    }
    const osg::ref_ptr<osg::Node> model = osgDB::readRefNodeFile(argv[1]);
    if (!model) return 2;

    const bool shadow = false;
    const bool lighting = true;
    const bool normalMapping = true;
    const bool fog = true;
    veltrane::sceneutils::ShaderGenerator::instance()->process(model, shadow, lighting, normalMapping, fog);

    ProgramNames names;
    model->accept(names);
    for (const std::string& name : names.found) std::cout << name << "\n";
    return osgDB::writeNodeFile(*model, argv[2]) ? 0 : 3;
}
