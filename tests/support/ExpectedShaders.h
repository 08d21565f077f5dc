#pragma once

#include <sceneutils/ShaderGenerator.h>

#include <string>

/** The generated shaders as tables of text, put together independently of the library. */
namespace testing_support {

namespace sceneutils = veltrane::sceneutils;

/** The settings of a run that the texts depend on besides the record. */
struct RunSettings {
    bool lighting = false;
    bool normalMapping = false;
    bool fog = false;
    int shadowUnit = -1;
};

std::string expectedProgramName(const sceneutils::ShaderFeatures& record);
std::string expectedVertexText(const sceneutils::ShaderFeatures& record, const RunSettings& run);
std::string expectedFragmentText(const sceneutils::ShaderFeatures& record, const RunSettings& run);

}  // namespace testing_support
