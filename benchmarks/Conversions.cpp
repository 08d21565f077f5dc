#include "Conversions.h"

#include "StepClock.h"

#include "convert/DatabaseConversion.h"

#include <sceneutils/CreatePagedLODVisitor.h>

#include <osgDB/Callbacks>
#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <stdexcept>
#include <string>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr const char* toolFolder = "converted";

/** Makes one folder of the doubled one that convert() asks for: of "/db/tiles//db/tiles/a.flt" "/db/tiles/a.flt". */
class SingleFolder : public osgDB::FindFileCallback {
public:
    std::string findDataFile(const std::string& name, const osgDB::Options* options,
                             osgDB::CaseSensitivity caseSensitivity) override {
        const std::string::size_type joint = name.find("//");
        if (joint == std::string::npos) return FindFileCallback::findDataFile(name, options, caseSensitivity);
        const std::string single = name.substr(joint + 1);
        return osgDB::fileExists(single) ? single : std::string();
    }
};

}  // namespace

void convertWithLibrary(const fs::path& master) {
    osgDB::Registry::instance()->setFindFileCallback(new SingleFolder);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);
    visitor.convert(master.string(), fs::path(master).replace_extension(".ive").string());
}

void convertWithTool(const fs::path& master) {
    tool::ConversionOptions options;
    options.input = master;
    options.output = outputFolder(Way::Tool, master) / "master.ive";
    options.recurse = true;
    const tool::ConversionPlan plan = [&] {
        const ScopedStep timed(Step::Planning);
        return tool::planConversion(options);
    }();
    const tool::ConversionReport report = tool::DatabaseConversion(plan, nullptr).run();
    if (report.filesFailed() != 0) throw std::runtime_error("the tool could not convert every file");
}

fs::path outputFolder(Way way, const fs::path& master) {
    const fs::path folder = master.parent_path();
    return way == Way::Tool ? folder / toolFolder : folder;
}

}  // namespace veltrane::sceneutils::benchmarks
