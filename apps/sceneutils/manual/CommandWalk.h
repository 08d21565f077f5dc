#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace veltrane::sceneutils::tool {

/** An option as people see it. */
struct OptionText {
    std::vector<std::string> names;    ///< with their dashes, short ones first; of a positional one, its name
    std::string type;                  ///< "TEXT", "FLOAT" ...; empty for a flag
    std::string constraint;            ///< what a value has to be, for example ">=0"; may be empty
    std::vector<std::string> choices;  ///< the only values that there are, if these can be listed
    std::string description;
    std::string defaultValue;
    bool isRequired = false;
    bool takesSeveral = false;

    bool isNumber() const;
};

/** A command as people see it. */
struct CommandText {
    std::string name;
    std::string description;
    std::string notes;  ///< its own footer, not that of the whole tool
    std::vector<OptionText> positionals;
    std::vector<OptionText> options;
};

/** The tool itself; positionals are those before a command, of which there are none. */
CommandText describeTool(const CLI::App& app);

/** All commands that are meant for people, in the order of their names. */
std::vector<CommandText> describeCommands(const CLI::App& app);

}  // namespace veltrane::sceneutils::tool
