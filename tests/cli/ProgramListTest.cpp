#include "shaders/ProgramList.h"

#include "support/ShaderGraphs.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

osg::ref_ptr<osg::Program> makeProgram(const std::string& name, const std::string& text) {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, text));
    return program;
}

osg::ref_ptr<osg::Node> nodeWith(osg::Program* program) {
    osg::ref_ptr<osg::Node> node = new osg::Node;
    node->getOrCreateStateSet()->setAttribute(program);
    return node;
}

/** A group with a node for each of the programs. */
osg::ref_ptr<osg::Group> graphWith(const std::vector<osg::ref_ptr<osg::Program>>& programs) {
    osg::ref_ptr<osg::Group> graph = new osg::Group;
    for (const osg::ref_ptr<osg::Program>& program : programs) graph->addChild(nodeWith(program));
    return graph;
}

std::vector<std::string> namesOf(const std::vector<ListedProgram>& programs) {
    std::vector<std::string> names;
    for (const ListedProgram& program : programs) names.push_back(program.name);
    return names;
}

}  // namespace

TEST(ProgramList, SortsNumbersByTheirValue) {
    const std::vector<std::string> sorted{
        "a", "a1", "a01b", "a2", "a10", "a10b2", "a10b10", "a010c", "a99999999999999999998", "a99999999999999999999",
        "b"};
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        for (std::size_t j = 0; j < sorted.size(); ++j)
            EXPECT_EQ(comesBefore(sorted[i], sorted[j]), i < j) << sorted[i] << " " << sorted[j];
    }
    EXPECT_TRUE(comesBefore("a01", "a1"));
    EXPECT_FALSE(comesBefore("a1", "a01"));
    EXPECT_TRUE(comesBefore("a0", "a1"));
}

TEST(ProgramList, CountsAStateSetOnceWhereverItHangs) {
    const auto program = makeProgram("p", "text");
    const osg::ref_ptr<osg::Group> graph = graphWith({program, program});
    graph->addChild(graph->getChild(0));
    graph->addChild(new osg::Node);
    graph->getChild(3)->setStateSet(graph->getChild(1)->getStateSet());

    const std::vector<ListedProgram> list = listPrograms(*graph, {});

    ASSERT_EQ(namesOf(list), std::vector<std::string>{"p"});
    EXPECT_EQ(list[0].stateSets, 2u);
    EXPECT_EQ(list[0].kept, 0u);
    EXPECT_EQ(list[0].user, (osg::NodePath{graph, graph->getChild(3)}));
}

TEST(ProgramList, ListsProgramsOfOneNameAndTextOnce) {
    const auto before = makeProgram("p", "text");
    const osg::ref_ptr<osg::Group> graph = graphWith({before, makeProgram("p", "text"), makeProgram("p", "other")});

    const std::vector<ListedProgram> list = listPrograms(*graph, {before});

    ASSERT_EQ(namesOf(list), (std::vector<std::string>{"p", "p-2"}));
    EXPECT_EQ(list[0].stateSets, 2u);
    EXPECT_EQ(list[0].kept, 1u);
    EXPECT_EQ(list[1].stateSets, 1u);
    EXPECT_EQ(list[1].kept, 0u);
}

TEST(ProgramList, GivesDistinctNames) {
    const osg::ref_ptr<osg::Group> graph =
        graphWith({makeProgram("", "1"), makeProgram("unnamed", "2"), makeProgram("a/b", "3"),
                   makeProgram("a_b-2", "4"), makeProgram("a_b", "5"), makeProgram("a\x7f\nb", "6")});

    EXPECT_EQ(namesOf(listPrograms(*graph, {})),
              (std::vector<std::string>{"a__b", "a_b", "a_b-2", "a_b-3", "unnamed", "unnamed-2"}));
}

TEST(ProgramList, FindsProgramsOfDrawablesAndOfHiddenNodes) {
    const auto ofSquare = makeProgram("square", "text");
    const auto ofHidden = makeProgram("hidden", "text");
    const osg::ref_ptr<osg::Geometry> square = makeSquare();
    square->getOrCreateStateSet()->setAttribute(ofSquare);
    const osg::ref_ptr<osg::Group> graph = makeGroup(nullptr, makeGeode(square));
    graph->addChild(nodeWith(ofHidden));
    graph->getChild(1)->setNodeMask(0);

    EXPECT_EQ(namesOf(listPrograms(*graph, {})), (std::vector<std::string>{"hidden", "square"}));
    EXPECT_THAT(programsOf(*graph), UnorderedElementsAre(ofSquare, ofHidden));
}
