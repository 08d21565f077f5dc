#include "support/Conversions.h"
#include "support/ShaderGraphs.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <osg/Material>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

/** Runs `sceneutils shaders` in a folder and expects that inputs stay as they are and nothing is left over. */
ToolResult shadersIn(const fs::path& folder, std::vector<std::string> arguments, ToolSettings settings = {}) {
    const FolderState before = stateOf(folder);
    arguments.insert(arguments.begin(), "shaders");
    settings.workingDirectory = folder;
    const ToolResult result = runTool(arguments, settings);

    const FolderState after = stateOf(folder);
    for (const auto& [name, state] : before) {
        const bool isInput = name.rfind("in.", 0) == 0;
        EXPECT_TRUE(!isInput || after.at(name) == state) << name;
    }
    expectNoPartialFiles(folder);
    return result;
}

void writeGraphFile(osg::Node* graph, const std::string& path) {
    if (!osgDB::writeNodeFile(*graph, path)) throw std::runtime_error("cannot write " + path);
}

osg::ref_ptr<osg::Node> textured(const std::vector<unsigned int>& units) {
    const osg::ref_ptr<osg::StateSet> state = makeTexturedState(units);
    return makeGroup(state, makeGeode(makeSquare()));
}

/** A root and below it a group that has textures on units 0 and 1, of which 1 is a normal map. */
osg::ref_ptr<osg::Group> normalMapped() {
    const osg::ref_ptr<osg::Node> child = textured({0, 1});
    child->setName("wall");
    addInt(*child->getStateSet(), "NormalMapTex", 1);
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, child);
    root->setName("town");
    return root;
}

/** The same below sun colours, for which there is no program that compiles. */
osg::ref_ptr<osg::Group> normalMappedInTheSun() {
    const osg::ref_ptr<osg::Group> root = normalMapped();
    addSun(*root->getOrCreateStateSet());
    return root;
}

osg::ref_ptr<osg::Program> makeProgram(const std::string& name, const std::string& fragmentText) {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragmentText));
    return program;
}

constexpr const char* emptyMain = "void main() {}";

/** A node that is not drawn, and so is given no program but keeps this one. */
osg::ref_ptr<osg::Node> hiddenWith(osg::Program* program) {
    const osg::ref_ptr<osg::Node> node = new osg::Group;
    node->setNodeMask(0);
    node->getOrCreateStateSet()->setAttribute(program);
    return node;
}

const osg::Program& programOfFirstChild(const osg::Node& root) {
    return *programOf(*root.asGroup()->getChild(0)->getStateSet());
}

/** The program of a normal-mapped surface in a run with those options. */
std::string programWith(const std::vector<std::string>& options) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgt");
    std::vector<std::string> arguments{"in.osgt", "out.osgt"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(shadersIn(folder.path(), arguments).status, 0);
    return programOfFirstChild(*osgDB::readRefNodeFile(folder / "out.osgt")).getName();
}

/** What is said of a run that is refused, of which nothing remains. */
std::string refusal(const TemporaryDirectory& folder, const std::vector<std::string>& arguments, int status,
                    const ToolSettings& settings = {}) {
    const FolderState before = stateOf(folder.path());
    const ToolResult result = shadersIn(folder.path(), arguments, settings);

    EXPECT_EQ(result.status, status) << result.errors;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(stateOf(folder.path()), before);
    return result.errors;
}

std::string inputProblem(const std::string& name, const std::string& bytes) {
    const TemporaryDirectory folder;
    writeBytes(folder.path() / name, bytes);
    ToolSettings settings;
    settings.environment = {{"LSAN_OPTIONS", "detect_leaks=0"}};  // plug-ins lose memory when a file is damaged
    return refusal(folder, {name, "new/out.ive"}, 2, settings);
}

}  // namespace

TEST(ShadersCommand, WritesTheGraphWithItsProgramsInEveryFormat) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.ive");
    for (const char* out : {"new/deep/out.ive", "out.osg", "out.osgb", "out.osgt", "out.osgx", "out.IVE"}) {
        const ToolResult result = shadersIn(folder.path(), {"in.ive", out});

        EXPECT_EQ(result.status, 0) << out;
        EXPECT_EQ(result.errors, "") << out;
        const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(folder / out);
        ASSERT_TRUE(graph) << out;
        const osg::Program& program = programOfFirstChild(*graph);
        EXPECT_EQ(program.getName(), "shader_t0_nm1_lighting_fog") << out;
        EXPECT_THAT(sourceOf(program, osg::Shader::VERTEX), StartsWith("#version 130")) << out;
        EXPECT_THAT(sourceOf(program, osg::Shader::FRAGMENT), HasSubstr("NormalMapTex")) << out;
        EXPECT_EQ(intUniforms(*graph->asGroup()->getChild(0)->getStateSet()),
                  (std::map<std::string, int>{{"NormalMapTex", 1}, {"BaseTexture0", 0}}));
    }
}

TEST(ShadersCommand, PrintsHowManyStateSetsUseEachProgram) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Node> shared = textured({10});
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, shared);
    for (int i = 0; i < 10; ++i) root->addChild(textured({2}));
    root->addChild(shared);
    writeGraphFile(root, folder / "in.osgb");

    const ToolResult result = shadersIn(folder.path(), {"in.osgb", "out.ive"});

    EXPECT_EQ(result.output,
              "program                  state sets        kept\n"
              "shader_t2_lighting_fog           10           0\n"
              "shader_t10_lighting_fog           1           0\n"
              "shader_t_lighting_fog             1           0\n"
              "total: 3                         12           0\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST(ShadersCommand, KeepsProgramsOfTheFileThatHaveTheRightName) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> root = makeGroup(nullptr, textured({0}));
    root->addChild(textured({0}));
    root->addChild(textured({1}));
    const auto own = makeProgram("shader_t0_lighting_fog", emptyMain);
    root->getChild(1)->getStateSet()->setAttribute(own);
    root->getChild(2)->getStateSet()->setAttribute(makeProgram("mine", emptyMain));
    writeGraphFile(root, folder / "in.ive");

    const ToolResult result = shadersIn(folder.path(), {"in.ive", "out.ive"});

    EXPECT_EQ(result.output,
              "program                   state sets        kept\n"
              "shader_t0_lighting_fog             1           0\n"
              "shader_t0_lighting_fog-2           1           1\n"
              "shader_t1_lighting_fog             1           0\n"
              "shader_t_lighting_fog              1           0\n"
              "total: 4                           4           1\n");
    const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(folder / "out.ive");
    const osg::Program& kept = *programOf(*graph->asGroup()->getChild(1)->getStateSet());
    EXPECT_EQ(sourceOf(kept, osg::Shader::FRAGMENT), emptyMain);
}

TEST(ShadersCommand, KeepsAllProgramsOfItsOwnOutput) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgb");
    shadersIn(folder.path(), {"in.osgb", "first.ive"});

    const ToolResult result = shadersIn(folder.path(), {"first.ive", "second.ive"});

    EXPECT_EQ(result.output,
              "program                     state sets        kept\n"
              "shader_t0_nm1_lighting_fog           1           1\n"
              "shader_t_lighting_fog                1           1\n"
              "total: 2                             2           2\n");
}

TEST(ShadersCommand, PassesEachSettingToTheGenerator) {
    EXPECT_EQ(programWith({}), "shader_t0_nm1_lighting_fog");
    EXPECT_EQ(programWith({"--no-lighting"}), "shader_t0_nm1_fog");
    EXPECT_EQ(programWith({"--no-normal-mapping"}), "shader_t0_lighting_fog");
    EXPECT_EQ(programWith({"--no-fog"}), "shader_t0_nm1_lighting");
    EXPECT_EQ(programWith({"--shadow-unit", "0"}), "shader_t0_nm1_shadow0_lighting_fog");
    EXPECT_EQ(programWith({"--shadow-unit", "7"}), "shader_t0_nm1_shadow7_lighting_fog");
    EXPECT_EQ(programWith({"--no-lighting", "--no-normal-mapping", "--no-fog"}), "shader_t0");
}

TEST(ShadersCommand, RefusesShadowUnitsWithoutTextureCoordinates) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgt");
    for (const char* unit : {"-1", "8", "1.5", "none", ""})
        EXPECT_THAT(refusal(folder, {"in.osgt", "out.ive", "--shadow-unit", unit}, 1), HasSubstr("--shadow-unit"));
}

TEST(ShadersCommand, SavesTheTextsOfEveryProgram) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "out.ive", "--save", "new/texts"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(namesIn(folder / "new/texts"),
              (std::set<std::string>{"shader_t0_nm1_lighting_fog.frag", "shader_t0_nm1_lighting_fog.vert",
                                     "shader_t_lighting_fog.frag", "shader_t_lighting_fog.vert"}));
    const osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(folder / "out.ive");
    const osg::Program& program = programOfFirstChild(*graph);
    EXPECT_EQ(readBytes(folder / "new/texts/shader_t0_nm1_lighting_fog.vert"), sourceOf(program, osg::Shader::VERTEX));
    EXPECT_EQ(readBytes(folder / "new/texts/shader_t0_nm1_lighting_fog.frag"),
              sourceOf(program, osg::Shader::FRAGMENT));
}

TEST(ShadersCommand, SavesWithoutAnOutput) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "--save", "."});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("\ntotal: 1 "));
    EXPECT_EQ(namesIn(folder.path()),
              (std::set<std::string>{"in.osgt", "shader_t_lighting_fog.frag", "shader_t_lighting_fog.vert"}));
}

TEST(ShadersCommand, SavesProgramsOfTheFileUnderNamesThatStayInTheFolder) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(hiddenWith(makeProgram("../a\\b\nc", "void main() { discard; }")));
    root->addChild(hiddenWith(makeProgram("", emptyMain)));
    const auto full = makeProgram("full", "first");
    full->addShader(new osg::Shader(osg::Shader::FRAGMENT, "second"));
    full->addShader(new osg::Shader(osg::Shader::GEOMETRY, "third"));
    root->addChild(hiddenWith(full));
    writeGraphFile(root, folder / "in.ive");

    const ToolResult result = shadersIn(folder.path(), {"in.ive", "--save", "texts"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("\n.._a_b_c "));
    auto content = contentOf(folder / "texts");
    EXPECT_EQ(content.size(), 7u);
    EXPECT_EQ(content[".._a_b_c.frag"], "void main() { discard; }");
    EXPECT_EQ(content["unnamed.frag"], emptyMain);
    EXPECT_EQ(content["full.frag"] + content["full.2.frag"] + content["full.geom"], "firstsecondthird");
}

TEST(ShadersCommand, RefusesToReplaceTextsAndThenWritesNothing) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");
    writeBytes(folder.path() / "texts/shader_t_lighting_fog.vert", "mine");
    const std::vector<std::string> arguments{"in.osgt", "out.ive", "--save", "texts"};

    EXPECT_EQ(refusal(folder, arguments, 4),
              "sceneutils: texts/shader_t_lighting_fog.vert: exists already; pass --overwrite to replace it\n");

    EXPECT_EQ(shadersIn(folder.path(), {"in.osgt", "out.ive", "--save", "texts", "--overwrite"}).status, 0);
    EXPECT_THAT(readBytes(folder.path() / "texts/shader_t_lighting_fog.vert"), StartsWith("#version"));
    EXPECT_TRUE(fs::exists(folder / "out.ive"));
}

TEST(ShadersCommand, RefusesAFileAsFolderForTexts) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");

    EXPECT_EQ(refusal(folder, {"in.osgt", "--save", "in.osgt"}, 4),
              "sceneutils: in.osgt/shader_t_lighting_fog.frag: in.osgt is not a folder\n");
}

TEST(ShadersCommand, ReplacesAnOutputOnlyWhenTold) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");
    writeBytes(folder.path() / "out.ive", "mine");

    EXPECT_EQ(refusal(folder, {"in.osgt", "out.ive"}, 4),
              "sceneutils: out.ive: exists already; pass --overwrite to replace it\n");
    refusal(folder, {"in.osgt", "out.ive", "--save", "texts"}, 4);
    EXPECT_EQ(shadersIn(folder.path(), {"in.osgt", "out.ive", "--overwrite"}).status, 0);
    EXPECT_TRUE(osgDB::readRefNodeFile(folder / "out.ive"));
}

TEST(ShadersCommand, NeverReplacesItsInput) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");
    fs::create_symlink("in.osgt", folder / "link.osgt");

    EXPECT_EQ(refusal(folder, {"in.osgt", "./in.osgt", "--overwrite"}, 4),
              "sceneutils: ./in.osgt: is one of the inputs; choose another name\n");
    EXPECT_EQ(refusal(folder, {"in.osgt", "link.osgt", "--overwrite"}, 4),
              "sceneutils: link.osgt: is one of the inputs; choose another name\n");
    EXPECT_EQ(refusal(folder, {"in.osgt", "missing/../in.osgt", "--overwrite"}, 4),
              "sceneutils: missing/../in.osgt: is one of the inputs; choose another name\n");
}

TEST(ShadersCommand, RefusesFormatsThatDropPrograms) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");
    const std::string reason =
        ": the output's name must end in .ive, .osg, .osgb, .osgt or .osgx; no other format keeps programs\n";
    for (const std::string out : {"out.flt", "out.obj", "out", "ive", "new/"})
        EXPECT_EQ(refusal(folder, {"in.osgt", out}, 1), "sceneutils: " + out + reason);
}

TEST(ShadersCommand, RequiresAnOutputUnlessThereIsSomethingElseToDo) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");

    EXPECT_EQ(refusal(folder, {"in.osgt"}, 1),
              "sceneutils: OUT is required unless --check or --save is given (see --help)\n");
    EXPECT_EQ(refusal(folder, {"in.osgt", "--json", "--overwrite"}, 1),
              "sceneutils: OUT is required unless --check or --save is given (see --help)\n");
    EXPECT_EQ(refusal(folder, {}, 1), "sceneutils: IN is required (see --help)\n");
    EXPECT_THAT(refusal(folder, {"in.osgt", ""}, 1), HasSubstr("OUT: the name is empty"));
    EXPECT_THAT(refusal(folder, {"in.osgt", "--save", ""}, 1), HasSubstr("--save: the name is empty"));
}

TEST(ShadersCommand, SaysWhyAnInputCannotBeRead) {
    const TemporaryDirectory folder;
    EXPECT_EQ(refusal(folder, {"in.ive", "new/out.ive"}, 2), "sceneutils: in.ive: no such file\n");
    EXPECT_EQ(refusal(folder, {".", "new/out.ive"}, 2), "sceneutils: .: is a folder\n");
    EXPECT_EQ(inputProblem("in.ive", ""), "sceneutils: in.ive: is empty\n");
    EXPECT_EQ(inputProblem("in.xyz", "some"),
              "sceneutils: in.xyz: no plug-in of OpenSceneGraph reads files ending in '.xyz'\n");
    EXPECT_THAT(inputProblem("in.ive", "This is no graph."), StartsWith("sceneutils: in.ive: cannot be read: "));
    EXPECT_THAT(inputProblem("in.osgt", "This is no graph."), StartsWith("sceneutils: in.osgt: "));
    EXPECT_EQ(inputProblem("in.flt", "This is no graph."), "sceneutils: in.flt: not an OpenFlight file\n");
}

TEST(ShadersCommand, SaysWhenAnOutputCannotBeWrittenWhole) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgt");
    ToolSettings settings;
    settings.fileSizeLimit = 100;
    settings.diesOfFileSize = true;

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "out.ive"}, settings);

    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "sceneutils: out.ive: not all of it could be written: File too large\n");
    EXPECT_FALSE(fs::exists(folder / "out.ive"));
}

TEST(ShadersCommand, LeavesNothingHalfDoneWhenItIsInterrupted) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Geometry> large = makeSquare();
    large->setVertexArray(new osg::Vec3Array(500000));
    writeGraphFile(makeGeode(large), folder / "in.ive");
    ToolSettings settings;
    settings.workingDirectory = folder.path();

    ToolProcess process(SCENEUTILS_TOOL, {"shaders", "in.ive", "out.osgt"}, settings);
    while (namesIn(folder.path()).size() == 1 && process.isRunning()) usleep(1000);
    process.send(SIGINT);
    const ToolResult result = process.wait();

    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "sceneutils: interrupted\n");
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>({"in.ive"}));
}

TEST(ShadersCommand, PrintsJson) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgt");

    const ToolResult result =
        shadersIn(folder.path(), {"in.osgt", "out.ive", "--json", "--no-fog", "--shadow-unit", "3"});

    EXPECT_EQ(json::parse(result.output), json::parse(R"({
        "version": 1, "command": "shaders", "input": "in.osgt", "output": "out.ive", "written": true,
        "options": {"lighting": true, "normalMapping": true, "fog": false, "shadowUnit": 3, "check": false},
        "totals": {"programs": 2, "stateSets": 2, "kept": 0},
        "programs": [{"name": "shader_t0_nm1_shadow3_lighting", "stateSets": 1, "kept": 0},
                     {"name": "shader_t_shadow3_lighting", "stateSets": 1, "kept": 0}]})"));
}

TEST(ShadersCommand, ChecksWithoutAnOutput) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMapped(), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "--check"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr("\ntotal: 2 "));
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>({"in.osgt"}));
}

TEST(ShadersCommand, NamesProgramsThatDoNotCompileAndWritesNoOutput) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMappedInTheSun(), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "new/out.ive", "--check"});

    EXPECT_EQ(result.status, 3);
    const std::vector<std::string> lines = result.errorLines();
    ASSERT_GT(lines.size(), 5u) << result.errors;
    EXPECT_EQ(lines[0], "sceneutils: program shader_t0_nm1_lighting_fog fails");
    EXPECT_EQ(lines[1], "  at town/wall");
    EXPECT_EQ(lines[2], "  with textures on units 0, 1; NormalMapTex 1; SunAmbient; lighting; normal mapping; fog");
    EXPECT_EQ(lines[3], "    FRAGMENT shader does not compile:");
    EXPECT_THAT(lines[4], MatchesRegex("    .*error.*"));
    EXPECT_THAT(lines.back(), MatchesRegex("sceneutils: 1 of 2 programs fail with .+; new/out.ive is not written"));
    EXPECT_THAT(result.output, HasSubstr("\ntotal: 2 "));
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>({"in.osgt"}));
}

TEST(ShadersCommand, WritesWhatDoesNotCompileWhenItIsNotChecked) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMappedInTheSun(), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "out.ive"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(fs::exists(folder / "out.ive"));
}

TEST(ShadersCommand, SavesTheTextsOfProgramsThatDoNotCompile) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMappedInTheSun(), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "--check", "--save", "texts"});

    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.errorLines().back(), MatchesRegex("sceneutils: 1 of 2 programs fail with [^;]+"));
    EXPECT_EQ(namesIn(folder / "texts").count("shader_t0_nm1_lighting_fog.frag"), 1u);
}

TEST(ShadersCommand, TellsInJsonWhatFails) {
    const TemporaryDirectory folder;
    writeGraphFile(normalMappedInTheSun(), folder / "in.osgt");

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "out.ive", "--check", "--json", "--save", "t"});

    EXPECT_EQ(result.status, 3);
    json report = json::parse(result.output);
    EXPECT_THAT(report["programs"][0]["check"]["log"].get<std::string>(),
                StartsWith("FRAGMENT shader does not compile:\n"));
    report["programs"][0]["check"].erase("log");
    EXPECT_NE(report["driver"], "");
    report.erase("driver");
    EXPECT_EQ(report, json::parse(R"({
        "version": 1, "command": "shaders", "input": "in.osgt", "output": "out.ive", "written": false,
        "options": {"lighting": true, "normalMapping": true, "fog": true, "check": true},
        "totals": {"programs": 2, "stateSets": 2, "kept": 0, "failed": 1},
        "programs": [
            {"name": "shader_t0_nm1_lighting_fog", "stateSets": 1, "kept": 0,
             "files": ["t/shader_t0_nm1_lighting_fog.frag", "t/shader_t0_nm1_lighting_fog.vert"],
             "check": {"passed": false, "place": "town/wall",
                       "state": ["textures on units 0, 1", "NormalMapTex 1", "SunAmbient",
                                 "lighting", "normal mapping", "fog"]}},
            {"name": "shader_t_lighting_fog", "stateSets": 1, "kept": 0,
             "files": ["t/shader_t_lighting_fog.frag", "t/shader_t_lighting_fog.vert"],
             "check": {"passed": true}}]})"));
}

TEST(ShadersCommand, ChecksProgramsThatCameWithTheFile) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    const osg::ref_ptr<osg::Node> hidden = hiddenWith(makeProgram("mine", "void main() { nothing(); }"));
    hidden->getStateSet()->setAttribute(new osg::Material);
    root->addChild(hidden);
    root->addChild(new osg::Group);
    root->getChild(1)->asGroup()->addChild(hidden);
    root->getChild(1)->asGroup()->addChild(hiddenWith(makeProgram("mine", "void main() { nothing(); }")));
    writeGraphFile(root, folder / "in.osgb");

    const ToolResult result = shadersIn(folder.path(), {"in.osgb", "--check"});

    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.errors, StartsWith("sceneutils: program mine fails\n"
                                          "  at (Group)/(Group)/(Group) and others, 2 state sets in all\n"
                                          "  with no textures\n"
                                          "    FRAGMENT shader does not compile:\n"));
}

TEST(ShadersCommand, DescribesEverythingThatAProgramDependsOn) {
    const TemporaryDirectory folder;
    const osg::ref_ptr<osg::Node> child = textured({1, 12});
    addInt(*child->getStateSet(), "SpecMapTex", 2);
    const osg::ref_ptr<osg::Group> root = makeGroup(new osg::StateSet, child);
    addInt(*root->getStateSet(), "OverlayTex", 4);
    root->getStateSet()->setAttribute(new osg::Material);
    child->getStateSet()->setTextureAttribute(3, new osg::PointSprite);
    writeGraphFile(root, folder / "in.osgb");

    const ToolResult result = shadersIn(folder.path(), {"in.osgb", "--check", "--shadow-unit", "5", "--no-lighting",
                                                        "--no-normal-mapping", "--no-fog"});

    EXPECT_THAT(result.errors, HasSubstr("\n  with textures on units 1, 12; SpecMapTex 2; OverlayTex 4; point sprite; "
                                         "material; shadow map on unit 5\n"));
}

TEST(ShadersCommand, SaysThatNothingCanBeCheckedWithoutADriver) {
    const TemporaryDirectory folder;
    writeGraphFile(textured({}), folder / "in.osgt");
    ToolSettings settings;
    settings.environment = {{"__EGL_VENDOR_LIBRARY_DIRS", folder.path().string()}};

    const ToolResult result = shadersIn(folder.path(), {"in.osgt", "out.ive", "--check"}, settings);

    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("sceneutils: programs cannot be checked: no driver can draw without"));
    EXPECT_EQ(result.errorLines().size(), 1u);
    EXPECT_FALSE(fs::exists(folder / "out.ive"));
}

TEST(ShadersCommand, HelpListsEveryOptionWithItsDefault) {
    const ToolResult result = runTool({"shaders", "--help"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* word : {"IN ", "OUT ", "--no-lighting", "--no-normal-mapping", "--no-fog", "--shadow-unit",
                             "[0 - 7]", "--save", "--check", "--overwrite", "--json", "(default: no shadow map)",
                             "(default: a table)", "status is 3", "May be left out with --check or --save"})
        EXPECT_THAT(result.output, HasSubstr(word));
    EXPECT_THAT(runTool({"--help"}).output, HasSubstr("shaders"));
}
