#include "TileFinding.h"

namespace veltrane::sceneutils::tool {

const char* nameOf(TileFindingKind kind) {
    switch (kind) {
        case TileFindingKind::Unreadable:
            return "unreadable";
        case TileFindingKind::Missing:
            return "missing";
        case TileFindingKind::Remote:
            return "remote";
        case TileFindingKind::Texture:
            return "texture";
        case TileFindingKind::NotFinite:
            return "notFinite";
        case TileFindingKind::EmptyBound:
            return "emptyBound";
        case TileFindingKind::OutsideRange:
            return "outsideRange";
        case TileFindingKind::Cycle:
            return "cycle";
        case TileFindingKind::Program:
            break;
    }
    return "program";
}

bool leavesAGap(TileFindingKind kind) {
    return kind == TileFindingKind::Unreadable || kind == TileFindingKind::Missing || kind == TileFindingKind::Remote;
}

void to_json(nlohmann::json& json, const TileFinding& finding) {
    json = {{"kind", static_cast<int>(finding.kind)},
            {"message", finding.message},
            {"reference", finding.reference},
            {"log", finding.log}};
}

void from_json(const nlohmann::json& json, TileFinding& finding) {
    finding.kind = static_cast<TileFindingKind>(json.at("kind").get<int>());
    json.at("message").get_to(finding.message);
    json.at("reference").get_to(finding.reference);
    json.at("log").get_to(finding.log);
}

}  // namespace veltrane::sceneutils::tool
