#include "FlightReferences.h"

#include "FileFinder.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::tool {

namespace {

constexpr const char* flightEnding = ".flt";
constexpr std::size_t deepestLevel = 100;

class ReferenceWalk {
public:
    explicit ReferenceWalk(bool followsReferences) : _followsReferences(followsReferences) {}

    void visit(const fs::path& path) {
        const fs::path file = fs::canonical(path);
        if (_whole.count(file) != 0) return;
        if (std::find(_open.begin(), _open.end(), file) != _open.end())
            throw FlightFileError(path.string() + ": refers to itself" + wayTo(file));

        if (_open.size() > deepestLevel)
            throw FlightFileError(path.string() + ": referred to over more than " + std::to_string(deepestLevel) +
                                  " levels");
        _open.push_back(file);
        for (const FlightReference& reference : scan(path).references) {
            if (!_followsReferences) break;
            const auto target = _finder.find(path.parent_path(), reference.name);
            if (target && toLowerCase(target->extension().string()) == flightEnding) visit(*target);
        }
        _open.pop_back();
        _whole.insert(file);
    }

private:
    static FlightFile scan(const fs::path& path) {
        try {
            return scanFlightFile(path);
        } catch (const FlightFileError& error) {
            throw FlightFileError(path.string() + ": " + error.what());
        }
    }

    std::string wayTo(const fs::path& file) const {
        std::string way;
        for (auto between = std::find(_open.begin(), _open.end(), file) + 1; between != _open.end(); ++between)
            way += (way.empty() ? " by way of " : ", ") + between->filename().string();
        return way;
    }

    bool _followsReferences;
    FileFinder _finder;
    std::vector<fs::path> _open;  ///< the files that lead to the one that is looked at
    std::set<fs::path> _whole;    ///< those that are done
};

}  // namespace

void checkFlightFile(const fs::path& path, bool withReferences) {
    ReferenceWalk(withReferences).visit(path);
}

}  // namespace veltrane::sceneutils::tool
