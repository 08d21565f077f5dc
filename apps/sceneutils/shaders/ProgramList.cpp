#include "ProgramList.h"

#include <offscreen/ProgramCheck.h>

#include <osg/NodeVisitor>
#include <osg/Shader>
#include <osg/StateSet>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace veltrane::sceneutils::tool {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isControl(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 || code == 0x7f;
}

const osg::Program* programOf(const osg::StateSet& state) {
    return dynamic_cast<const osg::Program*>(state.getAttribute(osg::StateAttribute::PROGRAM));
}

/** What makes programs the same in a list. */
struct Identity {
    explicit Identity(const osg::Program& program) : name(program.getName()) {
        for (unsigned int i = 0; i < program.getNumShaders(); ++i) {
            const osg::Shader& shader = *program.getShader(i);
            texts.emplace_back(shader.getType(), shader.getShaderSource());
        }
        std::sort(texts.begin(), texts.end());
    }

    bool operator<(const Identity& other) const { return std::tie(name, texts) < std::tie(other.name, other.texts); }

    std::string name;
    std::vector<std::pair<int, std::string>> texts;
};

/** Finds every state set that has a program, and the last place of each: that is the place that decided its program. */
class UseCollector : public osg::NodeVisitor {
public:
    struct Use {
        osg::ref_ptr<const osg::Program> program;
        osg::NodePath user;
    };

    UseCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (node.getStateSet()) note(*node.getStateSet());
        traverse(node);
    }

    std::vector<Use> uses;  ///< one for each state set

private:
    void note(const osg::StateSet& state) {
        const osg::Program* program = programOf(state);
        if (!program) return;
        const auto [place, isNew] = _places.emplace(&state, uses.size());
        if (isNew) uses.push_back({program, {}});
        uses[place->second].user = getNodePath();
    }

    std::map<const osg::StateSet*, std::size_t> _places;
};

std::string fileName(const std::string& programName) {
    if (programName.empty()) return "unnamed";
    std::string name = programName;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return isControl(c) || c == '/' || c == '\\'; }, '_');
    return name;
}

void makeNamesDistinct(std::vector<ListedProgram>& programs) {
    std::set<std::string> taken;
    for (ListedProgram& program : programs) {
        const std::string name = program.name;
        for (int number = 2; !taken.insert(program.name).second; ++number)
            program.name = name + "-" + std::to_string(number);
    }
}

}  // namespace

ProgramSet programsOf(osg::Node& graph) {
    const auto programs = offscreen::findPrograms(graph);
    return {programs.begin(), programs.end()};
}

std::vector<ListedProgram> listPrograms(osg::Node& graph, const ProgramSet& before) {
    UseCollector collector;
    graph.accept(collector);

    std::vector<ListedProgram> programs;
    std::map<const osg::Program*, std::size_t> places;
    std::map<Identity, std::size_t> placesOfTexts;
    for (const UseCollector::Use& use : collector.uses) {
        auto place = places.find(use.program);
        if (place == places.end()) {
            const auto [sameTexts, isNew] = placesOfTexts.emplace(Identity(*use.program), programs.size());
            if (isNew) programs.push_back({fileName(use.program->getName()), use.program, 0, 0, {}});
            place = places.emplace(use.program, sameTexts->second).first;
        }
        ListedProgram& program = programs[place->second];
        ++program.stateSets;
        if (before.count(use.program) != 0) ++program.kept;
        program.user = use.user;
    }
    makeNamesDistinct(programs);
    std::sort(programs.begin(), programs.end(),
              [](const ListedProgram& left, const ListedProgram& right) { return comesBefore(left.name, right.name); });
    return programs;
}

bool comesBefore(const std::string& left, const std::string& right) {
    const auto numberAt = [](const std::string& text, std::size_t& position) {
        std::size_t end = position;
        while (end < text.size() && isDigit(text[end])) ++end;
        const std::size_t first = std::min(text.find_first_not_of('0', position), end);
        position = end;
        return text.substr(first, end - first);
    };
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < left.size() && j < right.size()) {
        if (isDigit(left[i]) && isDigit(right[j])) {
            const std::string a = numberAt(left, i);
            const std::string b = numberAt(right, j);
            if (a.size() != b.size()) return a.size() < b.size();
            if (a != b) return a < b;
        } else {
            if (left[i] != right[j]) return left[i] < right[j];
            ++i;
            ++j;
        }
    }
    const std::size_t leftRest = left.size() - i;
    const std::size_t rightRest = right.size() - j;
    if (leftRest == 0 && rightRest == 0) return left < right;
    return leftRest == 0;
}

}  // namespace veltrane::sceneutils::tool
