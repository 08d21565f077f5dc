#include "CommandWalk.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

/** The values of a constraint "{a,b,c}"; none of any other. */
std::vector<std::string> choicesIn(const std::string& constraint) {
    std::vector<std::string> choices;
    const auto begin = constraint.find('{');
    const auto end = constraint.find('}');
    if (begin == std::string::npos || end == std::string::npos || end < begin) return choices;
    std::istringstream list(constraint.substr(begin + 1, end - begin - 1));
    for (std::string choice; std::getline(list, choice, ',');) choices.push_back(choice);
    return choices;
}

std::string withoutEnding(const std::string& text, const std::string& ending) {
    if (text.size() < ending.size()) return text;
    const auto start = text.size() - ending.size();
    return text.compare(start, ending.size(), ending) == 0 ? text.substr(0, start) : text;
}

/** Whether it names what stands for a value, as "COMMAND", instead of saying what is allowed. */
bool isPlaceholder(const std::string& constraint) {
    return !constraint.empty() && std::all_of(constraint.begin(), constraint.end(),
                                              [](char character) { return character >= 'A' && character <= 'Z'; });
}

OptionText describe(const CLI::Option& option) {
    OptionText text;
    for (const std::string& name : option.get_snames()) text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) text.names.push_back("--" + name);
    if (text.names.empty()) text.names.push_back(option.get_name(true));
    text.description = option.get_description();
    text.isRequired = option.get_required();
    text.takesSeveral = option.get_items_expected_max() > 1;
    if (option.get_items_expected_max() == 0) return text;

    const std::string type = option.get_type_name();
    const auto colon = type.find(':');
    text.type = withoutEnding(type.substr(0, colon), "...");
    if (colon != std::string::npos) text.constraint = type.substr(colon + 1);
    if (isPlaceholder(text.constraint)) std::swap(text.type, text.constraint);
    if (isPlaceholder(text.constraint)) text.constraint.clear();
    text.choices = choicesIn(text.constraint);
    text.defaultValue = option.get_default_str();
    return text;
}

CommandText describeApp(const CLI::App& app) {
    CommandText text;
    text.name = app.get_name();
    text.description = app.get_description();
    text.notes = app.get_footer();
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue;
        (option->nonpositional() ? text.options : text.positionals).push_back(describe(*option));
    }
    return text;
}

}  // namespace

bool OptionText::isNumber() const {
    return type == "FLOAT" || type == "INT" || type == "UINT" || type == "N";
}

CommandText describeTool(const CLI::App& app) {
    return describeApp(app);
}

std::vector<CommandText> describeCommands(const CLI::App& app) {
    std::vector<CommandText> commands;
    for (const CLI::App* command :
         app.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); })) {
        commands.push_back(describeApp(*command));
        commands.back().notes = withoutEnding(command->get_footer(), app.get_footer());
    }
    std::sort(commands.begin(), commands.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return commands;
}

}  // namespace veltrane::sceneutils::tool
