#include "Completion.h"

namespace veltrane::sceneutils::tool {

namespace {

const char* const bashHead = R"(# Completion of sceneutils for bash.

_sceneutils() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} options=
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
)";

const char* const bashTail = R"(    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}

complete -o filenames -F _sceneutils sceneutils
)";

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string allNames(const std::vector<OptionText>& options) {
    std::string text;
    for (const OptionText& option : options) text += (text.empty() ? "" : " ") + joined(option.names);
    return text;
}

/** What comes after an option whose value is no file. */
std::string valuesAfter(const CommandText& command, const OptionText& option) {
    if (option.choices.empty() && !option.isNumber()) return {};
    std::string patterns;
    for (const std::string& name : option.names)
        patterns += (patterns.empty() ? "'" : " | '") + command.name + " " + name + "'";
    const std::string compgen = "mapfile -t COMPREPLY < <(compgen -W '" + joined(option.choices) + "' -- \"$word\")";
    return "        " + patterns + ") " + (option.choices.empty() ? "" : compgen + "; ") + "return ;;\n";
}

}  // namespace

std::string bashCompletion(const CommandText& tool, const std::vector<CommandText>& commands) {
    std::string names;
    std::string options;
    std::string values;
    for (const CommandText& command : commands) {
        names += command.name + " ";
        options += "        " + command.name + ") options='" + allNames(command.options) + "' ;;\n";
        for (const OptionText& option : command.options) values += valuesAfter(command, option);
    }
    std::string text = bashHead;
    text += "        mapfile -t COMPREPLY < <(compgen -W '" + names + allNames(tool.options) +
            "' -- \"$word\")\n        return\n    fi\n";
    text += "    case \"${COMP_WORDS[1]} $previous\" in\n" + values + "    esac\n";
    text += "    case ${COMP_WORDS[1]} in\n" + options + "    esac\n";
    return text + bashTail;
}

}  // namespace veltrane::sceneutils::tool
