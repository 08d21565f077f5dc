#pragma once

#include "ConversionPlan.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * The options that decide what comes out of a conversion. The commands that plan conversions and carry them out take
 * them from here, so that one can do what the other has planned.
 */
class OutcomeOptions {
public:
    /** Adds them to a command. `options` takes what the command line says. */
    void addTo(CLI::App& command, ConversionOptions& options);

    /** Those that the command line has, as another command line must have them. */
    std::vector<std::string> given() const;

private:
    std::vector<const CLI::Option*> _all;
};

}  // namespace veltrane::sceneutils::tool
