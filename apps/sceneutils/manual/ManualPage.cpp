#include "ManualPage.h"

#include <cctype>
#include <sstream>

namespace veltrane::sceneutils::tool {

namespace {

/** Text that stands for itself in man(7), also at the beginning of a line. */
std::string plain(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\\') {
            result += "\\e";
        } else if (character == '-') {
            result += "\\-";
        } else {
            result += character;
        }
    }
    const bool looksLikeARequest = !result.empty() && (result[0] == '.' || result[0] == '\'');
    return looksLikeARequest ? "\\&" + result : result;
}

std::string bold(const std::string& text) {
    return "\\fB" + plain(text) + "\\fR";
}

std::string italic(const std::string& text) {
    return "\\fI" + plain(text) + "\\fR";
}

/** Lines as they are; an empty one begins a paragraph. */
std::string paragraphs(const std::string& text) {
    std::string result;
    std::istringstream lines(text.substr(0, text.find_last_not_of(" \n") + 1));
    for (std::string line; std::getline(lines, line);) {
        const auto start = line.find_first_not_of(' ');
        result += start == std::string::npos ? ".PP\n" : plain(line.substr(start)) + "\n";
    }
    return result;
}

std::string title(const std::string& name, const ManualEdition& edition) {
    std::string capitals;
    for (const char character : name)
        capitals += static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    return ".TH \"" + plain(capitals) + "\" 1 \"" + edition.date + "\" \"sceneutils " + edition.version +
           "\" \"Scene\\-graph tools\"\n";
}

std::string withoutFullStop(std::string text) {
    if (!text.empty() && text.back() == '.') text.pop_back();
    return text;
}

std::string nameSection(const std::string& name, const std::string& description) {
    return ".SH NAME\n" + plain(name) + " \\- " + plain(withoutFullStop(description)) + "\n";
}

std::string operand(const OptionText& positional) {
    const std::string name = italic(positional.names.front()) + (positional.takesSeveral ? " ..." : "");
    return positional.isRequired ? name : "[" + name + "]";
}

std::string entry(const OptionText& option) {
    std::string text = ".TP\n";
    for (std::size_t i = 0; i < option.names.size(); ++i) text += (i > 0 ? ", " : "") + bold(option.names[i]);
    if (!option.type.empty()) text += " " + italic(option.type) + (option.takesSeveral ? " ..." : "");
    text += "\n" + paragraphs(option.description);
    std::string limits;
    if (!option.constraint.empty()) limits += "Values: " + option.constraint + ". ";
    if (!option.defaultValue.empty()) limits += "Default: " + option.defaultValue + ". ";
    if (option.isRequired) limits += "Required. ";
    if (!limits.empty()) text += plain(limits.substr(0, limits.size() - 1)) + "\n";
    return text;
}

std::string operandEntry(const OptionText& positional) {
    return ".TP\n" + italic(positional.names.front()) + "\n" + paragraphs(positional.description);
}

std::string optionsSection(const CommandText& command) {
    std::string text = ".SH OPTIONS\n";
    for (const OptionText& option : command.options) text += entry(option);
    return text;
}

}  // namespace

std::string manualPageOfTool(const CommandText& tool, const std::vector<CommandText>& commands,
                             const ManualEdition& edition) {
    std::string text = title(tool.name, edition) + nameSection(tool.name, tool.description);
    text += ".SH SYNOPSIS\n" + bold(tool.name) + " " + italic("COMMAND") + " [" + italic("OPTIONS") + "] ...\n";
    text += ".SH DESCRIPTION\n" + paragraphs(tool.notes);
    text += ".SH COMMANDS\n";
    for (const CommandText& command : commands)
        text += ".TP\n" + bold(tool.name + "-" + command.name) + "(1)\n" + paragraphs(command.description);
    return text + optionsSection(tool);
}

std::string manualPageOfCommand(const CommandText& tool, const CommandText& command, const ManualEdition& edition) {
    const std::string name = tool.name + "-" + command.name;
    std::string text = title(name, edition) + nameSection(name, command.description);
    text += ".SH SYNOPSIS\n" + bold(tool.name + " " + command.name) + " [" + italic("OPTIONS") + "]";
    for (const OptionText& positional : command.positionals) text += " " + operand(positional);
    text += "\n.SH DESCRIPTION\n" + paragraphs(command.description);
    for (const OptionText& positional : command.positionals) text += operandEntry(positional);
    text += optionsSection(command);
    if (!command.notes.empty()) text += ".SH NOTES\n" + paragraphs(command.notes);
    text += ".SH EXIT STATUS\n" + paragraphs(tool.notes);
    return text + ".SH SEE ALSO\n" + bold(tool.name) + "(1)\n";
}

}  // namespace veltrane::sceneutils::tool
