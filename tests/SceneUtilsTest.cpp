#include <sceneutils/SceneUtils.h>

#include "support/LogRecords.h"
#include "support/OsgMessages.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <logging/Logger.h>

#include <gmock/gmock.h>

#include <osgDB/Registry>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::LogRecords;
using testing_support::OsgMessages;
using testing_support::StandardError;
using testing_support::TemporaryDirectory;
using testing_support::WorkingDirectory;
using veltrane::sceneutils::loadShader;
using veltrane::sceneutils::reloadShader;

osg::ref_ptr<osg::Program> makeProgram() {
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName("hand-written");
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "old fragment text"));
    program->addShader(new osg::Shader(osg::Shader::VERTEX, "old vertex text"));
    return program;
}

/** Each shader's stage, where it came from and its text. */
std::vector<std::string> shadersOf(const osg::Program& program) {
    std::vector<std::string> shaders;
    for (unsigned int i = 0; i < program.getNumShaders(); ++i) {
        const osg::Shader& shader = *program.getShader(i);
        shaders.push_back(std::string(shader.getTypename()) + "|" + shader.getFileName() + "|" +
                          shader.getShaderSource());
    }
    return shaders;
}

std::string writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

/** Adds a folder to osgDB's data file path for the length of a scope. */
class DataFolder {
public:
    explicit DataFolder(const std::string& folder) : _own(osgDB::Registry::instance()->getDataFilePathList()) {
        osgDB::Registry::instance()->getDataFilePathList().push_back(folder);
    }
    ~DataFolder() { osgDB::Registry::instance()->setDataFilePathList(_own); }
    DataFolder(const DataFolder&) = delete;
    DataFolder& operator=(const DataFolder&) = delete;

private:
    osgDB::FilePathList _own;
};

/** Notes how the registry was asked for a file, while it lives. */
class FileSearch {
public:
    explicit FileSearch(const std::string& answer) : _callback(new Callback) {
        _callback->answer = answer;
        osgDB::Registry::instance()->setFindFileCallback(_callback);
    }
    ~FileSearch() { osgDB::Registry::instance()->setFindFileCallback(nullptr); }
    FileSearch(const FileSearch&) = delete;
    FileSearch& operator=(const FileSearch&) = delete;

    struct Callback : osgDB::FindFileCallback {
        std::string findDataFile(const std::string& file, const osgDB::Options* used,
                                 osgDB::CaseSensitivity howExact) override {
            files.push_back(file);
            options = used;
            caseSensitivity = howExact;
            return answer;
        }
        std::string answer;
        std::vector<std::string> files;
        const osgDB::Options* options = nullptr;
        osgDB::CaseSensitivity caseSensitivity = osgDB::CASE_INSENSITIVE;
    };
    const Callback& asked() const { return *_callback; }

private:
    osg::ref_ptr<Callback> _callback;
};

/** Makes options the registry's own for the length of a scope. */
class RegistryOptions {
public:
    explicit RegistryOptions(osgDB::Options* options) : _own(osgDB::Registry::instance()->getOptions()) {
        osgDB::Registry::instance()->setOptions(options);
    }
    ~RegistryOptions() { osgDB::Registry::instance()->setOptions(_own); }
    RegistryOptions(const RegistryOptions&) = delete;
    RegistryOptions& operator=(const RegistryOptions&) = delete;

private:
    osg::ref_ptr<osgDB::Options> _own;
};

}  // namespace

TEST(SceneUtils, LoadsAProgramWithOneShader) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "own.frag", "void main(void)\r\n{\n\t}\n");
    const StandardError standardError;

    const osg::ref_ptr<osg::Program> program = loadShader(path, osg::Shader::FRAGMENT);

    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->referenceCount(), 1);
    EXPECT_THAT(shadersOf(*program), ElementsAre("FRAGMENT|" + path + "|void main(void)\r\n{\n\t}\n"));
    EXPECT_EQ(standardError.text(), "");
}

TEST(SceneUtils, ReplacesAllShadersOfAProgramByOne) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "own.vert", "new vertex text");
    const osg::ref_ptr<osg::Program> program = makeProgram();
    const osg::ref_ptr<osg::Shader> oldShader = program->getShader(1);

    reloadShader(path, osg::Shader::VERTEX, program);

    EXPECT_THAT(shadersOf(*program), ElementsAre("VERTEX|" + path + "|new vertex text"));
    EXPECT_NE(program->getShader(0), oldShader);
    EXPECT_EQ(oldShader->getShaderSource(), "old vertex text");
    EXPECT_EQ(program->getName(), "hand-written");
    EXPECT_EQ(program->referenceCount(), 1);
}

TEST(SceneUtils, ReadsTheFileAnewEachTime) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "own.geom", "first");
    const osg::ref_ptr<osg::Program> program = loadShader(path, osg::Shader::GEOMETRY);
    writeFile(path, "second");

    reloadShader(path, osg::Shader::GEOMETRY, program);

    EXPECT_THAT(shadersOf(*program), ElementsAre("GEOMETRY|" + path + "|second"));
}

TEST(SceneUtils, LooksAlongTheDataFilePath) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "sceneutils-own.vert", "found");
    const DataFolder folder(directory.path().string());

    const osg::ref_ptr<osg::Program> program = loadShader("sceneutils-own.vert", osg::Shader::VERTEX);

    EXPECT_THAT(shadersOf(*program), ElementsAre("VERTEX|" + path + "|found"));
}

TEST(SceneUtils, LooksInTheDatabasePathOfTheRegistrysOptions) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "sceneutils-own.vert", "found");
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    options->getDatabasePathList().push_back(directory.path().string());
    const RegistryOptions registryOptions(options);

    const osg::ref_ptr<osg::Program> program = loadShader("sceneutils-own.vert", osg::Shader::VERTEX);

    EXPECT_THAT(shadersOf(*program), ElementsAre("VERTEX|" + path + "|found"));
}

TEST(SceneUtils, AsksOnceForTheFileWithTheRegistrysOptionsInItsOwnLetterCase) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "elsewhere", "found");
    const osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    const RegistryOptions registryOptions(options);
    const FileSearch search(path);

    const osg::ref_ptr<osg::Program> program = loadShader("some.vert", osg::Shader::VERTEX);

    EXPECT_THAT(search.asked().files, ElementsAre("some.vert"));
    EXPECT_EQ(search.asked().options, options);
    EXPECT_EQ(search.asked().caseSensitivity, osgDB::CASE_SENSITIVE);
    EXPECT_THAT(shadersOf(*program), ElementsAre("VERTEX|" + path + "|found"));
}

TEST(SceneUtils, LogsAFileThatIsNotFoundAndLeavesTheProgram) {
    const osg::ref_ptr<osg::Program> program = makeProgram();
    const std::vector<std::string> before = shadersOf(*program);
    const StandardError standardError;
    const LogRecords records("sceneutils");

    reloadShader("no such/file.vert", osg::Shader::VERTEX, program);

    EXPECT_THAT(records.texts(), ElementsAre("sceneutils 400 sceneutils/SceneUtils:486: "
                                             "Failed to load fragment shader: no such/file.vert"));
    EXPECT_EQ(standardError.text(), "");
    EXPECT_EQ(shadersOf(*program), before);
}

TEST(SceneUtils, LoadsAnEmptyProgramFromAFileThatIsNotFound) {
    const LogRecords records("sceneutils");

    const osg::ref_ptr<osg::Program> program = loadShader("missing", osg::Shader::GEOMETRY);

    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getNumShaders(), 0u);
    EXPECT_THAT(records.texts(),
                ElementsAre("sceneutils 400 sceneutils/SceneUtils:486: Failed to load fragment shader: missing"));
}

TEST(SceneUtils, WarnsOnStandardErrorBeforeAnythingIsConfigured) {
    const StandardError standardError;

    loadShader("missing.frag", osg::Shader::FRAGMENT);

    EXPECT_EQ(standardError.text(),
              "WARN sceneutils sceneutils/SceneUtils:486: Failed to load fragment shader: missing.frag\n");
}

TEST(SceneUtils, WarnsOnlyWhenTheCategoryTakesWarnings) {
    log4cpp::Category& category = log4cpp::Category::getInstance("sceneutils");
    const LogRecords records("sceneutils");
    const StandardError standardError;

    category.setPriority(veltrane::logging::Logger::ERROR);
    loadShader("below", osg::Shader::FRAGMENT);
    category.setPriority(veltrane::logging::Logger::WARN);
    loadShader("at", osg::Shader::FRAGMENT);
    category.setPriority(log4cpp::Priority::NOTSET);

    EXPECT_THAT(records.texts(),
                ElementsAre("sceneutils 400 sceneutils/SceneUtils:486: Failed to load fragment shader: at"));
    EXPECT_EQ(standardError.text(), "");
}

TEST(SceneUtils, LeavesAnEmptyShaderWhenAFolderIsFound) {
    const TemporaryDirectory directory;
    const std::string path = directory / "own.vert";
    std::filesystem::create_directory(path);
    const osg::ref_ptr<osg::Program> program = makeProgram();
    const StandardError standardError;
    const LogRecords records("sceneutils");

    reloadShader(path, osg::Shader::VERTEX, program);

    ASSERT_EQ(program->getNumShaders(), 1u);
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::VERTEX);
    EXPECT_EQ(program->getShader(0)->getShaderSource(), "");
    EXPECT_EQ(standardError.text(), "");
    EXPECT_THAT(records.texts(), IsEmpty());
}

TEST(SceneUtils, LeavesAnEmptyShaderWhenTheFoundFileCannotBeOpened) {
    const TemporaryDirectory directory;
    const FileSearch search(directory / "found by the search, yet not there");
    const osg::ref_ptr<osg::Program> program = makeProgram();
    const OsgMessages osgMessages;
    const StandardError standardError;
    const LogRecords records("sceneutils");

    reloadShader("some.frag", osg::Shader::FRAGMENT, program);

    ASSERT_EQ(program->getNumShaders(), 1u);
    EXPECT_EQ(program->getShader(0)->getType(), osg::Shader::FRAGMENT);
    EXPECT_EQ(program->getShader(0)->getShaderSource(), "");
    EXPECT_EQ(standardError.text(), "");
    EXPECT_THAT(records.texts(), IsEmpty());
}

TEST(SceneUtils, IgnoresANullProgram) {
    const TemporaryDirectory directory;
    const std::string path = writeFile(directory / "own.vert", "text");
    const StandardError standardError;

    reloadShader(path, osg::Shader::VERTEX, nullptr);

    EXPECT_EQ(standardError.text(), "");
}
