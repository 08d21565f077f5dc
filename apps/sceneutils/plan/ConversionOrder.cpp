#include "ConversionOrder.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>

namespace veltrane::sceneutils::tool {

namespace {

constexpr std::size_t namesPerCycle = 5;

/**
 * Tarjan's algorithm: finds the knots of files that refer to each other, each after those that it refers to. Without
 * recursion, because a chain of references can be as long as there are files.
 */
class KnotFinder {
public:
    explicit KnotFinder(const std::vector<GraphFile>& files) : _files(files), _states(files.size()) {}

    /** Every file is in one knot; most are in one by themselves. */
    std::vector<std::vector<std::size_t>> run() {
        for (std::size_t file = 0; file < _files.size(); ++file) {
            if (_states[file].number == 0) visitFrom(file);
        }
        return std::move(_knots);
    }

private:
    struct State {
        std::size_t number = 0;  ///< in order of the visits, from 1 on; 0: not yet visited
        std::size_t lowest = 0;  ///< the lowest number that is known to be in the same knot
        std::size_t next = 0;    ///< the reference to follow next
        bool isOpen = false;     ///< not yet in a knot
    };

    void visitFrom(std::size_t start) {
        enter(start);
        while (!_way.empty()) {
            const std::size_t file = _way.back();
            State& state = _states[file];
            const std::vector<GraphReference>& references = _files[file].references;
            if (state.next == references.size()) {
                leave(file);
                continue;
            }
            const std::size_t target = references[state.next++].target;
            if (target == GraphReference::none) continue;
            if (_states[target].number == 0) {
                enter(target);
            } else if (_states[target].isOpen) {
                state.lowest = std::min(state.lowest, _states[target].number);
            }
        }
    }

    void enter(std::size_t file) {
        _states[file] = {++_visited, _visited, 0, true};
        _way.push_back(file);
        _open.push_back(file);
    }

    void leave(std::size_t file) {
        const State& state = _states[file];
        _way.pop_back();
        if (!_way.empty()) {
            State& above = _states[_way.back()];
            above.lowest = std::min(above.lowest, state.lowest);
        }
        if (state.lowest != state.number) return;
        const auto begin = std::find(_open.rbegin(), _open.rend(), file).base() - 1;
        for (auto i = begin; i != _open.end(); ++i) _states[*i].isOpen = false;
        _knots.emplace_back(begin, _open.end());
        _open.erase(begin, _open.end());
    }

    const std::vector<GraphFile>& _files;
    std::vector<State> _states;
    std::size_t _visited = 0;
    std::vector<std::size_t> _way;   ///< from where the visit began to the file that is visited
    std::vector<std::size_t> _open;  ///< visited files that are not in a knot yet
    std::vector<std::vector<std::size_t>> _knots;
};

/** A step on a way through a knot. */
struct Step {
    std::size_t from = GraphReference::none;
    std::uint64_t offset = 0;  ///< of the reference that is followed
};

/** The steps of a shortest way from a file back to itself through files of its knot, the last one first. */
std::vector<Step> wayBack(const std::vector<GraphFile>& files, const std::set<std::size_t>& knot, std::size_t start) {
    std::map<std::size_t, Step> reached;
    std::deque<std::size_t> open = {start};
    for (; !open.empty() && reached.count(start) == 0; open.pop_front()) {
        for (const GraphReference& reference : files[open.front()].references) {
            if (knot.count(reference.target) == 0) continue;
            const bool isNew = reached.try_emplace(reference.target, Step{open.front(), reference.offset}).second;
            if (isNew) open.push_back(reference.target);
        }
    }
    std::vector<Step> steps = {reached.at(start)};
    while (steps.back().from != start) steps.push_back(reached.at(steps.back().from));
    return steps;
}

Finding cycleOf(const ReferenceGraph& graph, const std::vector<Step>& steps, std::size_t start) {
    Finding finding;
    finding.kind = FindingKind::Cycle;
    finding.file = start;
    finding.offset = steps.back().offset;
    finding.files.push_back(start);
    std::string way;
    for (std::size_t i = steps.size() - 1; i-- > 0;) {
        finding.files.push_back(steps[i].from);
        if (finding.files.size() <= namesPerCycle + 1)
            way += (way.empty() ? " by way of " : ", ") + graph.files[steps[i].from].name;
    }
    if (finding.files.size() > namesPerCycle + 1)
        way += " and " + std::to_string(finding.files.size() - namesPerCycle - 1) + " more";
    finding.message = "refers to itself" + way + " (at byte " + std::to_string(*finding.offset) + ")";
    return finding;
}

}  // namespace

void orderForConversion(ReferenceGraph& graph) {
    std::size_t order = 0;
    for (const std::vector<std::size_t>& knot : KnotFinder(graph.files).run()) {
        const std::size_t first = *std::min_element(knot.begin(), knot.end());
        const bool isAlone = knot.size() == 1;
        const std::vector<GraphReference>& references = graph.files[first].references;
        const auto isOwn = [&](const GraphReference& reference) { return reference.target == first; };
        const bool isCycle = !isAlone || std::any_of(references.begin(), references.end(), isOwn);
        // Backwards: what was found last is referred to by what was found before.
        for (auto file = knot.rbegin(); file != knot.rend(); ++file) {
            graph.files[*file].isInCycle = isCycle;
            if (graph.files[*file].isSound) graph.files[*file].order = order++;
        }
        if (isCycle)
            graph.findings.push_back(cycleOf(graph, wayBack(graph.files, {knot.begin(), knot.end()}, first), first));
    }
}

}  // namespace veltrane::sceneutils::tool
