#pragma once

#include <sceneutils/ShaderGenerator.h>

#include <string>
#include <vector>

namespace testing_support {

/** A generator of the test's own, with its own program cache, whose inner steps can be called and are noted down. */
class OpenShaderGenerator : public veltrane::sceneutils::ShaderGenerator {
public:
    explicit OpenShaderGenerator(int shadowTexUnit = -1) : ShaderGenerator(shadowTexUnit) {}
    ~OpenShaderGenerator() override = default;

    using ShaderGenerator::createFragmentSource;
    using ShaderGenerator::createVertexSource;

    osg::Program* getOrCreateProgram(const veltrane::sceneutils::ShaderFeatures& features) override {
        records.push_back(features);
        return ShaderGenerator::getOrCreateProgram(features);
    }

    void applyStateSet(osg::StateSet* own, osg::StateSet* accumulated, osg::Drawable* drawable) override {
        classified.push_back(own);
        drawables.push_back(drawable);
        ShaderGenerator::applyStateSet(own, accumulated, drawable);
    }

    std::string vertexText(const veltrane::sceneutils::ShaderFeatures& features) {
        std::string text;
        createVertexSource(text, features);
        return text;
    }

    std::string fragmentText(const veltrane::sceneutils::ShaderFeatures& features) {
        std::string text;
        createFragmentSource(text, features);
        return text;
    }

    std::vector<osg::StateSet*> classified;                     ///< in the order of classification
    std::vector<osg::Drawable*> drawables;                      ///< what each of those was classified for
    std::vector<veltrane::sceneutils::ShaderFeatures> records;  ///< what programs were asked for
};

}  // namespace testing_support
