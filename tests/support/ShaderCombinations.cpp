#include "support/ShaderCombinations.h"

#include "support/ShaderGraphs.h"

#include <osg/PointSprite>

namespace testing_support {

namespace {

/** Every combination so far, once with each of the values. */
template <typename Value, typename Set>
std::vector<Combination> multiplied(const std::vector<Combination>& combinations, const std::vector<Value>& values,
                                    const Set& set) {
    std::vector<Combination> result;
    for (const Combination& combination : combinations) {
        for (const Value& value : values) {
            result.push_back(combination);
            set(result.back(), value);
        }
    }
    return result;
}

std::vector<int> baseUnits(const Combination& c) {
    if (c.text) return {0};
    std::vector<int> units;
    for (const int unit : c.texturedUnits) {
        if (unit != c.normalMapUnit && unit != c.specMapUnit) units.push_back(unit);
    }
    return units;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Combination& c) {
    out << "textured units";
    for (const int unit : c.texturedUnits) out << " " << unit;
    return out << ", normal map " << c.normalMapUnit << ", specular map " << c.specMapUnit << ", overlay "
               << c.overlayUnit << ", shadow " << c.run.shadowUnit << ", sun " << c.sunUniforms << ", text " << c.text
               << ", point sprite " << c.pointSprite << ", lighting " << c.run.lighting << ", normal mapping "
               << c.run.normalMapping << ", fog " << c.run.fog;
}

std::vector<Combination> allCombinations() {
    const std::vector<std::vector<int>> unitSets{{},      {0},       {1},    {0, 1},
                                                 {0, 12}, {0, 1, 2}, {4, 5}, {0, 1, 2, 3, 4, 5, 6, 7}};
    const std::vector<bool> flags{false, true};
    std::vector<Combination> all{{}};
    all = multiplied(all, unitSets, [](Combination& c, const std::vector<int>& units) { c.texturedUnits = units; });
    all = multiplied<int>(all, {-1, 1, 3}, [](Combination& c, int unit) { c.normalMapUnit = unit; });
    all = multiplied<int>(all, {-1, 2}, [](Combination& c, int unit) { c.specMapUnit = unit; });
    all = multiplied<int>(all, {-1, 5}, [](Combination& c, int unit) { c.run.shadowUnit = unit; });
    all = multiplied<int>(all, {-1, 4}, [](Combination& c, int unit) { c.overlayUnit = unit; });
    all = multiplied(all, flags, [](Combination& c, bool flag) { c.sunUniforms = flag; });
    all = multiplied(all, flags, [](Combination& c, bool flag) { c.run.lighting = flag; });
    all = multiplied(all, flags, [](Combination& c, bool flag) { c.run.normalMapping = flag; });
    all = multiplied(all, flags, [](Combination& c, bool flag) { c.run.fog = flag; });
    all = multiplied(all, flags, [](Combination& c, bool flag) { c.text = flag; });
    return multiplied(all, flags, [](Combination& c, bool flag) { c.pointSprite = flag; });
}

sceneutils::ShaderFeatures expectedRecord(const Combination& c) {
    sceneutils::ShaderFeatures record;
    record.textureUnits = baseUnits(c);
    record.normalMapUnit = c.normalMapUnit;
    record.specMapUnit = c.specMapUnit;
    record.overlayUnit = c.overlayUnit;
    record.sunUniforms = c.sunUniforms;
    record.lighting = c.run.lighting;
    record.shadowUnit = c.run.shadowUnit;
    record.normalMapping = c.run.normalMapping;
    record.fog = c.run.fog;
    record.text = c.text;
    record.pointSprite = c.pointSprite && !c.text;
    record.name = expectedProgramName(record);
    return record;
}

osg::ref_ptr<osg::StateSet> makeState(const Combination& c) {
    osg::ref_ptr<osg::StateSet> state =
        makeTexturedState(std::vector<unsigned int>(c.texturedUnits.begin(), c.texturedUnits.end()));
    if (c.normalMapUnit != -1) addInt(*state, "NormalMapTex", c.normalMapUnit);
    if (c.specMapUnit != -1) addInt(*state, "SpecMapTex", c.specMapUnit);
    if (c.overlayUnit != -1) addInt(*state, "OverlayTex", c.overlayUnit);
    if (c.sunUniforms) addSun(*state);
    if (c.pointSprite) state->setTextureAttribute(0, new osg::PointSprite);
    return state;
}

std::map<std::string, int> expectedUniforms(const Combination& c) {
    std::map<std::string, int> uniforms;
    if (c.normalMapUnit != -1) uniforms["NormalMapTex"] = c.normalMapUnit;
    if (c.specMapUnit != -1) uniforms["SpecMapTex"] = c.specMapUnit;
    if (c.overlayUnit != -1) uniforms["OverlayTex"] = c.overlayUnit;
    for (const int unit : baseUnits(c)) uniforms["BaseTexture" + std::to_string(unit)] = unit;
    if (c.run.shadowUnit != -1) uniforms["ShadowMapTex"] = c.run.shadowUnit;
    return uniforms;
}

}  // namespace testing_support
