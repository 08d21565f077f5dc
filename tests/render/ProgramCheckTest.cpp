#include <offscreen/ProgramCheck.h>

#include "support/OsgMessages.h"
#include "support/ShaderGraphs.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace testing_support;
using namespace veltrane::sceneutils::offscreen;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr const char* good = "void main() { gl_Position = gl_Vertex; }";
constexpr const char* callsNothing = "void main() { nothing(); }";
constexpr const char* namesNothing = "void main() { gl_FragColor = nothing; }";

osg::ref_ptr<osg::Program> makeProgram(const std::string& name, const std::string& vertexText,
                                       const std::string& fragmentText = "void main() { gl_FragColor = vec4(1.0); }") {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, vertexText));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragmentText));
    return program;
}

osg::ref_ptr<osg::Node> nodeWith(osg::Program* program) {
    osg::ref_ptr<osg::Node> node = new osg::Node;
    node->getOrCreateStateSet()->setAttribute(program);
    return node;
}

osg::ref_ptr<OffscreenContext> makeContext() {
    return new OffscreenContext(1, 1);
}

std::vector<std::string> namesOf(const std::vector<ProgramFailure>& failures) {
    std::vector<std::string> names;
    for (const ProgramFailure& failure : failures) names.push_back(failure.name);
    return names;
}

}  // namespace

TEST(ProgramCheck, ReturnsTheProgramsThatFailInTheirOrder) {
    const auto context = makeContext();
    const auto second = makeProgram("second", callsNothing);

    const auto failures =
        checkPrograms(*context, {makeProgram("first", good, namesNothing), makeProgram("fine", good), second});

    EXPECT_THAT(namesOf(failures), ElementsAre("first", "second"));
    EXPECT_EQ(failures[1].program, second);
}

TEST(ProgramCheck, TellsTheLogOfEachShaderThatFails) {
    const auto context = makeContext();

    const auto failures = checkPrograms(
        *context, {makeProgram("one", good, namesNothing), makeProgram("two", callsNothing, namesNothing)});

    ASSERT_EQ(failures.size(), 2u);
    EXPECT_THAT(failures[0].log, MatchesRegex("FRAGMENT shader does not compile:\n.*nothing.*\n"));
    EXPECT_THAT(failures[0].log, Not(HasSubstr("link")));
    EXPECT_THAT(failures[1].log, MatchesRegex("VERTEX shader does not compile:\n.*nothing.*\n"
                                              "FRAGMENT shader does not compile:\n.*nothing.*\n"));
}

TEST(ProgramCheck, TellsWhyShadersThatCompileDoNotLink) {
    const auto context = makeContext();
    const auto program = makeProgram("unlinked", "void missing(); void main() { missing(); }");

    const auto failures = checkPrograms(*context, {program});

    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].log, MatchesRegex("program does not link:\n.*missing.*\n"));
}

TEST(ProgramCheck, TakesAProgramWithoutShadersForFixedFunction) {
    EXPECT_THAT(checkPrograms(*makeContext(), {new osg::Program}), IsEmpty());
}

TEST(ProgramCheck, LeavesOutShadersOfNoKindAsDrawingDoes) {
    const auto context = makeContext();
    const osg::ref_ptr<osg::Program> fine = makeProgram("fine", good);
    fine->addShader(new osg::Shader(osg::Shader::UNDEFINED, good));
    const osg::ref_ptr<osg::Program> bad = makeProgram("bad", callsNothing);
    bad->addShader(new osg::Shader(osg::Shader::UNDEFINED, good));

    const auto failures = checkPrograms(*context, {fine, bad});

    ASSERT_THAT(namesOf(failures), ElementsAre("bad"));
    EXPECT_THAT(failures[0].log, HasSubstr("\nUNDEFINED shader is not supported by the driver\n"));
}

TEST(ProgramCheck, FindsTheProgramsOfAGraphOnceEach) {
    const auto shared = makeProgram("shared", callsNothing);
    const osg::ref_ptr<osg::Geometry> square = makeSquare();
    square->getOrCreateStateSet()->setAttribute(makeProgram("drawable's", callsNothing));
    const osg::ref_ptr<osg::Group> graph = makeGroup(nullptr, nodeWith(shared));
    graph->addChild(makeGeode(square));
    graph->addChild(nodeWith(shared));
    graph->addChild(nodeWith(makeProgram("hidden", callsNothing)));
    graph->getChild(3)->setNodeMask(0);
    graph->addChild(nodeWith(makeProgram("fine", good)));

    EXPECT_EQ(findPrograms(*graph).size(), 4u);
    EXPECT_THAT(namesOf(checkPrograms(*makeContext(), *graph)), ElementsAre("shared", "drawable's", "hidden"));
}

TEST(ProgramCheck, SaysTheSameAgainAndInAnotherContext) {
    const auto program = makeProgram("bad", callsNothing);
    const auto context = makeContext();
    const auto first = checkPrograms(*context, {program});

    EXPECT_EQ(checkPrograms(*context, {program}).at(0).log, first.at(0).log);
    EXPECT_EQ(checkPrograms(*makeContext(), {program}).at(0).log, first.at(0).log);
}

TEST(ProgramCheck, TakesNothingFromAContextThatHasEnded) {
    const auto program = makeProgram("fine", good);
    osg::ref_ptr<OffscreenContext> context = makeContext();
    const unsigned int id = context->getState()->getContextID();
    checkPrograms(*context, {program});
    context = nullptr;
    context = makeContext();

    EXPECT_NE(context->getState()->getContextID(), id);
    EXPECT_THAT(checkPrograms(*context, {program}), IsEmpty());
    EXPECT_TRUE(program->getPCP(*context->getState())->isLinked());
}

TEST(ProgramCheck, MakesItsContextCurrent) {
    const auto context = makeContext();
    context->releaseContext();

    EXPECT_THAT(checkPrograms(*context, {makeProgram("fine", good)}), IsEmpty());
    EXPECT_THAT(namesOf(checkPrograms(*context, {makeProgram("bad", callsNothing)})), ElementsAre("bad"));
}

TEST(ProgramCheck, KeepsOpenSceneGraphQuietAndItsLevelAsItWas) {
    const auto context = makeContext();
    const OsgMessages messages;
    osg::setNotifyLevel(osg::INFO);

    checkPrograms(*context, {makeProgram("bad", callsNothing)});

    EXPECT_EQ(messages.text(), "");
    EXPECT_EQ(osg::getNotifyLevel(), osg::INFO);
}
