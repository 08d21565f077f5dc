#pragma once

#include "Conversions.h"

#include "convert/ObjectOrder.h"

#include <map>
#include <set>
#include <string>
#include <vector>

/** Runs `sceneutils convert --jobs` and looks at what it has done and left undone. */
namespace testing_support {

/** Runs `sceneutils convert in/master.flt out/m.ive --recurse --jobs 2` with more arguments in a folder. */
inline ToolResult convertInJobs(const std::filesystem::path& folder, const std::vector<std::string>& more = {},
                                ToolSettings settings = {}) {
    std::vector<std::string> arguments = {"convert", "in/master.flt", "out/m.ive", "--recurse"};
    if (std::find(more.begin(), more.end(), "--jobs") == more.end()) arguments.insert(arguments.end(), {"--jobs", "2"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    settings.workingDirectory = folder;
    ToolResult result = runTool(arguments, settings);
    EXPECT_FALSE(result.timedOut);
    EXPECT_FALSE(result.leftProcesses);
    EXPECT_EQ(result.signal, 0);
    expectNoPartialFiles(folder);
    return result;
}

inline bool isState(const std::string& name) {
    return name.compare(0, 12, ".sceneutils/") == 0;
}

/** What a conversion has written, without what it remembers. */
inline std::map<std::string, std::string> outputsIn(const std::filesystem::path& folder) {
    std::map<std::string, std::string> outputs;
    if (!std::filesystem::exists(folder)) return outputs;
    for (const auto& [name, content] : contentOf(folder)) {
        if (!isState(name)) outputs[name] = content;
    }
    return outputs;
}

/** The names of the outputs that are not as they were. */
inline std::set<std::string> writtenSince(const FolderState& before, const std::filesystem::path& folder) {
    std::set<std::string> names;
    for (const auto& [name, state] : stateOf(folder)) {
        const auto old = before.find(name);
        if (!isState(name) && (old == before.end() || !(old->second == state))) names.insert(name);
    }
    return names;
}

/** What a run that has nothing to do must not touch; the tool's lock and Ninja's log are its own affair. */
inline FolderState quietStateOf(const std::filesystem::path& folder) {
    FolderState quiet = stateOf(folder);
    for (const char* own : {".sceneutils/m.ive/lock", ".sceneutils/m.ive/.ninja_log"}) quiet.erase(own);
    return quiet;
}

/** Expects the same files with the same bytes; in a build that cannot order objects by age, the same files. */
inline void expectSameOutputs(const std::map<std::string, std::string>& outputs,
                              const std::map<std::string, std::string>& expected) {
    std::set<std::string> names;
    std::set<std::string> expectedNames;
    for (const auto& output : outputs) names.insert(output.first);
    for (const auto& output : expected) expectedNames.insert(output.first);
    EXPECT_EQ(names, expectedNames);
    if (!veltrane::sceneutils::tool::canOrderObjectsByAge()) return;
    for (const auto& [name, content] : expected)
        EXPECT_TRUE(outputs.count(name) != 0 && outputs.at(name) == content) << name;
}

/** What a conversion of `in` makes when nothing disturbs it. Leaves no trace. */
inline std::map<std::string, std::string> undisturbedOutputs(const std::filesystem::path& folder) {
    EXPECT_EQ(convertInJobs(folder).status, 0);
    const auto outputs = outputsIn(folder / "out");
    std::filesystem::remove_all(folder / "out");
    return outputs;
}

/**
 * Expects that the plain command, without --overwrite, makes everything as it would be if nothing had happened, and
 * then has nothing left to do.
 */
inline void expectPlainRunCompletes(const std::filesystem::path& folder,
                                    const std::map<std::string, std::string>& expected) {
    const ToolResult result = convertInJobs(folder);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    expectSameOutputs(outputsIn(folder / "out"), expected);
    const ToolResult again = convertInJobs(folder, {"--dry-run"});
    EXPECT_NE(again.output.find(" 0 to convert, 0 more if bounding spheres change"), std::string::npos) << again.output;
}

/** Expects that every converted file can be read to its end, whatever it has become. */
inline void expectEveryTileWhole(const std::filesystem::path& folder) {
    for (const auto& [name, content] : outputsIn(folder)) {
        EXPECT_TRUE(std::filesystem::path(name).extension() != ".ive" || load(folder / name)) << name;
    }
}

/** Expects that what has its name has its whole content: outputs can be missing, not different. */
inline void expectNothingHalfWritten(const std::filesystem::path& folder,
                                     const std::map<std::string, std::string>& expected) {
    for (const auto& [name, content] : outputsIn(folder)) {
        if (name.find(".part-") != std::string::npos) continue;
        const auto same = expected.find(name);
        ASSERT_TRUE(same != expected.end()) << name;
        EXPECT_EQ(same->second.size(), content.size()) << name;
        EXPECT_TRUE(same->second == content || !veltrane::sceneutils::tool::canOrderObjectsByAge()) << name;
    }
}

}  // namespace testing_support
