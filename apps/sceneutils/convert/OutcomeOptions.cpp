#include "OutcomeOptions.h"

#include <cmath>

namespace veltrane::sceneutils::tool {

namespace {

std::string checkRange(const std::string& text) {
    float range = 0.0f;
    const bool isGood = CLI::detail::lexical_cast(text, range) && std::isfinite(range) && range >= 0.0f;
    return isGood ? std::string() : "'" + text + "' is no number of at least 0";
}

}  // namespace

void OutcomeOptions::addTo(CLI::App& command, ConversionOptions& options) {
    _all = {
        command
            .add_option("--max-range", options.maxRange,
                        "How far beyond its bounding radius a referenced file is seen, in the database's length unit")
            ->check(CLI::Validator(checkRange, ">=0"))
            ->capture_default_str(),
        command.add_flag_callback(
            "--no-smooth", [&options] { options.smooth = false; }, "Leave normals as they are"),
        command
            .add_option_function<std::string>(
                "--textures", [&options](const std::string& mode) { options.textures = textureModes().at(mode); },
                "What becomes of textures: 'relative' copies those that do not lie in the output's folder to where "
                "they mirror their source, 'copy' copies all into the folder NAME.textures beside NAME.ive, 'embed' "
                "stores their pixels in the .ive files")
            ->check(CLI::IsMember(std::vector<std::string>{"relative", "copy", "embed"}))
            ->default_str("relative"),
        command.add_flag("--overwrite", options.overwrite, "Replace outputs that exist; inputs are never touched"),
    };
}

std::vector<std::string> OutcomeOptions::given() const {
    std::vector<std::string> arguments;
    for (const CLI::Option* option : _all) {
        if (option->count() == 0) continue;
        const bool isFlag = option->get_items_expected_max() == 0;
        const std::string& value = option->results().front();
        arguments.push_back(option->get_name() + (isFlag && value == "true" ? "" : "=" + value));
    }
    return arguments;
}

}  // namespace veltrane::sceneutils::tool
