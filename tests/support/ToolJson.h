#pragma once

#include "Conversions.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace testing_support {

/** What a run of the tool with --json writes; it has to end with that status. */
inline nlohmann::json jsonOf(std::vector<std::string> arguments, int status = 0) {
    arguments.emplace_back("--json");
    const ToolResult result = runTool(arguments);
    EXPECT_EQ(result.status, status) << result.errors;
    return nlohmann::json::parse(result.output, nullptr, false);
}

/** Runs the tool and expects that it ends with that status and one line, which is returned. */
inline std::string onlyLineOf(const std::vector<std::string>& arguments, int status) {
    const ToolResult result = runTool(arguments);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.errorLines().size(), 1u) << result.errors;
    return result.errors;
}

}  // namespace testing_support
