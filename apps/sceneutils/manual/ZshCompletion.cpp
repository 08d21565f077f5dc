#include "Completion.h"

namespace veltrane::sceneutils::tool {

namespace {

/** Text within an apostrophe-quoted argument of zsh's _arguments. */
std::string inSpecification(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\n') {
            result += ' ';
        } else if (character == '\'') {
            result += "'\\''";
        } else {
            if (character == '[' || character == ']' || character == ':' || character == '\\') result += '\\';
            result += character;
        }
    }
    return result;
}

/** What the value of an option is completed to: one of its choices, nothing for a number, a file. */
std::string valueAction(const OptionText& option) {
    if (option.type.empty()) return {};
    std::string action = option.isNumber() ? " " : "_files";
    if (!option.choices.empty()) {
        action = "(";
        for (const std::string& choice : option.choices) action += inSpecification(choice) + " ";
        action.back() = ')';
    }
    return ":" + inSpecification(option.type) + ":" + action;
}

std::string specifications(const std::vector<OptionText>& options, const std::string& indentation) {
    std::string text;
    for (const OptionText& option : options) {
        for (const std::string& name : option.names)
            text += indentation + "'" + (option.takesSeveral ? "*" : "") + name + "[" +
                    inSpecification(option.description) + "]" + valueAction(option) + "' \\\n";
    }
    return text;
}

}  // namespace

std::string zshCompletion(const CommandText& tool, const std::vector<CommandText>& commands) {
    std::string names;
    std::string cases;
    for (const CommandText& command : commands) {
        names += "        '" + command.name + ":" + inSpecification(command.description) + "'\n";
        cases += "    " + command.name + ")\n        _arguments \\\n" +
                 specifications(command.options, "            ") + "            '*:file:_files'\n        ;;\n";
    }
    std::string text = "#compdef sceneutils\n# Completion of sceneutils for zsh.\n\n_sceneutils() {\n";
    text += "    local -a commands\n    commands=(\n" + names + "    )\n";
    text += "    if (( CURRENT == 2 )); then\n        _describe command commands\n        _arguments \\\n" +
            specifications(tool.options, "            ") + "            && return\n        return\n    fi\n";
    text += "    local command=$words[2]\n    shift words\n    (( CURRENT-- ))\n";
    text += "    case $command in\n" + cases + "    esac\n}\n\n_sceneutils \"$@\"\n";
    return text;
}

}  // namespace veltrane::sceneutils::tool
