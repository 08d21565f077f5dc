#include "ChildMeasurement.h"
#include "DrawableCounter.h"
#include "FramePictures.h"
#include "FrameScenes.h"
#include "FrameTimes.h"
#include "Table.h"
#include "TemporaryFolder.h"
#include "Turns.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/ShaderGenerator.h>

#include <osg/Group>
#include <osg/Light>
#include <osg/Notify>

#include <CLI/CLI.hpp>

#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <time.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace veltrane::sceneutils;
using namespace veltrane::sceneutils::benchmarks;
using offscreen::SceneRenderer;

namespace {

constexpr double sunDistance = 1e6;
const osg::Vec3d towardsTheSun(-0.4, -0.6, 0.7);

// What pictures must be, in percent: else the times would mean nothing.
constexpr double leastDrawn = 0.1;
constexpr double mostDifferent = 1.0;       // drawn in another order, at places that were rounded in another way
constexpr double mostMeanByShaders = 10.0;  // the ambient light of OpenGL is not in the programs

struct Arguments {
    std::set<std::string> tables = {"optimize", "shaders", "paged"};
    std::vector<unsigned int> sampleTiles = {4, 16};
    std::vector<int> drawables = {1000, 10000};
    std::vector<unsigned int> tiles = {4, 64, 256};
    double maxRange = 10000.0;
    int repeats = 5;
    int frames = 20;
    std::string csv;
    std::string pictures;
    std::string folder = fs::temp_directory_path().string();
    std::string build;
};

enum class Pipeline { AsItIs, Generated };
enum class SmallThings { Show, LeaveOut };  ///< OpenSceneGraph leaves out what is smaller than two pixels

/** What is drawn, from where. */
struct Shot {
    fs::path file;  ///< empty: nothing
    Outlook outlook;
    Pipeline pipeline = Pipeline::AsItIs;
};

/** The same light wherever a scene ends: at a place, since generated programs take each light for one. */
void setSun(SceneRenderer& renderer, const osg::Vec3d& center) {
    osg::Light& sun = *renderer.viewer().getLight();
    renderer.viewer().setLightingMode(osg::View::SKY_LIGHT);
    sun.setPosition(osg::Vec4(center + towardsTheSun * sunDistance, 1.0f));
    sun.setAmbient(osg::Vec4(0.3f, 0.3f, 0.3f, 1.0f));
    sun.setDiffuse(osg::Vec4(0.9f, 0.9f, 0.9f, 1.0f));
}

osg::ref_ptr<osg::Node> readShot(const Shot& shot) {
    if (shot.file.empty()) return new osg::Group;
    osg::ref_ptr<osg::Node> scene = readScene(shot.file);
    if (shot.pipeline == Pipeline::Generated) ShaderGenerator::instance()->process(scene, false, true, true, true);
    return scene;
}

/** Draws until a frame shows all that is to be seen from there. */
void showFirst(SceneRenderer& renderer, osg::Node& scene, const Outlook& outlook) {
    renderer.viewer().setSceneData(&scene);
    setSun(renderer, outlook.target);
    renderer.setView(outlook.eye, outlook.target);
    const std::vector<std::string> missing = renderer.loadTiles();
    if (!missing.empty()) throw std::runtime_error(missing.front() + ": cannot be read");
    renderer.waitForDriver();
}

/** Cull and draw, in milliseconds. To be called in a fresh process. */
std::vector<double> measureFramesOf(const Shot& shot, int frames) {
    keepDriverOnOneThread();
    const osg::ref_ptr<osg::Node> scene = readShot(shot);
    SceneRenderer renderer(frameWidth, frameHeight);
    showSmallThings(renderer);
    showFirst(renderer, *scene, shot.outlook);
    const FrameTimes times = timeFrames(renderer, frames);
    return {times.cull, times.draw};
}

double processMilliseconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

/** What is measured of a database from the start of a process, by their places among its numbers. */
namespace start {
enum : std::size_t { first, processor, peak, rest, cull, draw };
}

/** To be called in a fresh process. */
std::vector<double> measureStart(const Shot& shot, int frames) {
    using Clock = std::chrono::steady_clock;
    keepDriverOnOneThread();
    const MemoryWatch memory;
    const double processorStart = processMilliseconds();
    const Clock::time_point start = Clock::now();
    const osg::ref_ptr<osg::Node> scene = readShot(shot);
    SceneRenderer renderer(frameWidth, frameHeight);
    showFirst(renderer, *scene, shot.outlook);
    const double first = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    const double processor = processMilliseconds() - processorStart;
    const double peak = memory.peak(), rest = memory.resident();
    const FrameTimes times = timeFrames(renderer, frames);
    return {first, processor, peak, rest, times.cull, times.draw};
}

/** The pictures that are compared before anything is measured. */
class PictureBook {
public:
    explicit PictureBook(fs::path folder) : _folder(std::move(folder)) { fs::create_directories(_folder); }

    fs::path add(const std::string& name, const Shot& shot, SmallThings smallThings) const {
        const fs::path file = _folder / (name + ".png");
        measureInChild([&] {
            keepDriverOnOneThread();
            const osg::ref_ptr<osg::Node> scene = readShot(shot);
            SceneRenderer renderer(frameWidth, frameHeight);
            if (smallThings == SmallThings::Show) showSmallThings(renderer);
            showFirst(renderer, *scene, shot.outlook);
            writePicture(*renderer.drawPicture(GL_RGB), file);
            return std::vector<double>();
        });
        return file;
    }

    static PictureComparison compare(const fs::path& picture, const fs::path& other) {
        const std::vector<double> numbers = measureInChild([&] {
            const PictureComparison comparison = comparePictures(picture, other);
            return std::vector<double>{comparison.drawn, comparison.differs, comparison.mean};
        });
        const PictureComparison comparison{numbers.at(0), numbers.at(1), numbers.at(2)};
        if (comparison.drawn < leastDrawn) throw std::runtime_error(picture.string() + ": is an empty picture");
        return comparison;
    }

private:
    fs::path _folder;
};

void requireAtMost(double limit, double difference, const std::string& what) {
    if (difference <= limit) return;
    throw std::runtime_error(what + ": does not show the same: " + std::to_string(difference) + " % differ");
}

double drawablesIn(const fs::path& file) {
    return measureInChild([&file] {
               DrawableCounter counter;
               readScene(file)->accept(counter);
               return std::vector<double>{static_cast<double>(counter.count)};
           })
        .at(0);
}

std::string asText(double number, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << number;
    return text.str();
}

/** A way to show what one outlook shows. */
struct Way {
    std::string name;
    Shot shot;
};

/** Of one outlook of a scene; the others are compared with the first one. */
struct Comparison {
    std::string scene;
    std::vector<Way> ways;
    std::function<void(const PictureComparison&, const std::string&)> check;
};

/** First looks whether all ways show the same. */
void addContenders(std::vector<Contender>& contenders, const Comparison& comparison, const PictureBook& book,
                   int frames) {
    const std::size_t rival = contenders.size();
    fs::path first;
    for (const auto& [way, shot] : comparison.ways) {
        const std::string name = comparison.scene + ", " + shot.outlook.name + ", " + way;
        const fs::path picture = book.add(name, shot, SmallThings::Show);
        if (first.empty()) first = picture;
        const PictureComparison seen = PictureBook::compare(picture, first);
        comparison.check(seen, name);

        Contender contender;
        contender.labels = {comparison.scene,      shot.outlook.name,      way, asText(drawablesIn(shot.file), 0),
                            asText(seen.drawn, 1), asText(seen.differs, 2)};
        contender.measure = [shot = shot, frames] {
            return measureInChild([&] { return measureFramesOf(shot, frames); });
        };
        contender.rival = rival;
        contenders.push_back(contender);
    }
}

double frameOf(const std::vector<double>& cullAndDraw) {
    return cullAndDraw.at(0) + cullAndDraw.at(1);
}

/** Measures, and adds the rows. */
Table measureFrameTable(std::vector<Contender> contenders, int repeats, const std::string& ratio) {
    measureInTurns(contenders, repeats);
    Table table({"scene", "view", "way", "drawables", "drawn_%", "differ_%", "cull_ms", "draw_ms", ratio});
    for (const Contender& contender : contenders) {
        table.row();
        for (const std::string& label : contender.labels) table.cell(label);
        for (const std::size_t number : {0u, 1u})
            table.cell(medianOf(contender, [number](const auto& numbers) { return numbers.at(number); }), 3);
        table.cell(ratioOf(contenders, contender, frameOf), 2);
    }
    return table;
}

Table measureOptimized(const std::vector<FrameScene>& scenes, const PictureBook& book, const Arguments& arguments) {
    std::vector<Contender> contenders;
    for (const FrameScene& scene : scenes) {
        for (const Outlook& outlook : scene.outlooks) {
            Comparison comparison{scene.name, {}, [](const PictureComparison& seen, const std::string& name) {
                                      requireAtMost(mostDifferent, seen.differs, name);
                                  }};
            for (const Arrangement& arrangement : scene.arrangements)
                comparison.ways.push_back({arrangement.name, {arrangement.file, outlook, Pipeline::AsItIs}});
            addContenders(contenders, comparison, book, arguments.frames);
        }
    }
    return measureFrameTable(contenders, arguments.repeats, "of before");
}

Table measureShaded(const std::vector<FrameScene>& scenes, const PictureBook& book, const Arguments& arguments) {
    std::vector<Contender> contenders;
    for (const FrameScene& scene : scenes) {
        const fs::path& file = scene.arrangements.front().file;
        for (const Outlook& outlook : scene.outlooks) {
            const Comparison comparison{scene.name,
                                        {{"fixed function", {file, outlook, Pipeline::AsItIs}},
                                         {"shaders", {file, outlook, Pipeline::Generated}}},
                                        [](const PictureComparison& seen, const std::string& name) {
                                            requireAtMost(mostMeanByShaders, seen.mean, name);
                                        }};
            addContenders(contenders, comparison, book, arguments.frames);
        }
    }
    return measureFrameTable(contenders, arguments.repeats, "of fixed");
}

double mebibytesBelow(const fs::path& path) {
    constexpr double bytesPerMebibyte = 1024.0 * 1024.0;
    if (!fs::is_directory(path)) return static_cast<double>(fs::file_size(path)) / bytesPerMebibyte;
    double bytes = 0.0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path))
        bytes += entry.is_regular_file() ? static_cast<double>(entry.file_size()) : 0.0;
    return bytes / bytesPerMebibyte;
}

/** A database that is one file lies beside others; a paged one has a folder of its own. */
double mebibytesOf(const Arrangement& arrangement) {
    return mebibytesBelow(arrangement.isPaged ? arrangement.file.parent_path() : arrangement.file);
}

/** What is seen from there of each arrangement, against what is seen of those that show no more than the others. */
std::vector<PictureComparison> compareArrangements(const FrameScene& database, const Outlook& outlook,
                                                   const PictureBook& book) {
    const std::string scene = database.name + " tiles, " + outlook.name + ", ";
    std::vector<fs::path> pictures;
    fs::path reference;
    for (const Arrangement& arrangement : database.arrangements) {
        const Shot shot{arrangement.file, outlook, Pipeline::AsItIs};
        pictures.push_back(book.add(scene + arrangement.name, shot, SmallThings::LeaveOut));
        if (reference.empty() && !arrangement.showsMore) reference = pictures.back();
    }
    std::vector<PictureComparison> seen;
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const Arrangement& arrangement = database.arrangements[i];
        seen.push_back(PictureBook::compare(pictures[i], reference));
        if (!arrangement.showsMore) requireAtMost(mostDifferent, seen.back().differs, scene + arrangement.name);
    }
    return seen;
}

void addStarts(std::vector<Contender>& contenders, const FrameScene& database, const PictureBook& book, int frames) {
    for (const Outlook& outlook : database.outlooks) {
        const std::size_t rival = contenders.size();
        const auto add = [&](const std::string& way, const Shot& shot, const std::vector<std::string>& seen) {
            Contender contender;
            contender.labels = {database.name, outlook.name, way};
            contender.labels.insert(contender.labels.end(), seen.begin(), seen.end());
            contender.measure = [shot, frames] { return measureInChild([&] { return measureStart(shot, frames); }); };
            contender.rival = rival;
            contenders.push_back(contender);
        };
        const std::vector<PictureComparison> seen = compareArrangements(database, outlook, book);
        for (std::size_t i = 0; i < seen.size(); ++i) {
            const Arrangement& arrangement = database.arrangements[i];
            add(arrangement.name, {arrangement.file, outlook, Pipeline::AsItIs},
                {asText(mebibytesOf(arrangement), 1), asText(seen[i].drawn, 1), asText(seen[i].differs, 2)});
        }
        add("nothing", {{}, outlook, Pipeline::AsItIs}, {"", "", ""});
    }
}

Table measurePaged(const std::vector<FrameScene>& databases, const PictureBook& book, const Arguments& arguments) {
    std::vector<Contender> contenders;
    for (const FrameScene& database : databases) addStarts(contenders, database, book, arguments.frames);
    measureInTurns(contenders, arguments.repeats);

    Table table({"tiles", "view", "way", "disk_MiB", "drawn_%", "differ_%", "first_ms", "first/one", "first_cpu_ms",
                 "peak_MiB", "rest_MiB", "rest/one", "cull_ms", "draw_ms"});
    for (const Contender& contender : contenders) {
        const auto number = [](std::size_t place) {
            return [place](const std::vector<double>& numbers) { return numbers.at(place); };
        };
        const auto median = [&](std::size_t place) { return medianOf(contender, number(place)); };
        const auto ratio = [&](std::size_t place) { return ratioOf(contenders, contender, number(place)); };
        table.row();
        for (const std::string& label : contender.labels) table.cell(label);
        table.cell(median(start::first), 1).cell(ratio(start::first), 2).cell(median(start::processor), 1);
        table.cell(median(start::peak), 1).cell(median(start::rest), 1).cell(ratio(start::rest), 2);
        table.cell(median(start::cull), 3).cell(median(start::draw), 3);
    }
    return table;
}

fs::path findTool(const std::string& build) {
    const fs::path tree =
        build.empty() ? fs::read_symlink("/proc/self/exe").parent_path().parent_path() : fs::canonical(build);
    const fs::path tool = tree / "apps" / "sceneutils" / "sceneutils";
    if (access(tool.c_str(), X_OK) == 0) return tool;
    throw std::runtime_error(tool.string() + ": is not there; build it, or name another build tree with --build");
}

/** Shows a table at once, so that nothing is lost when the next one fails. */
void show(const std::string& title, const Table& table, std::ostream& csv) {
    std::cout << title << "\n";
    table.print(std::cout);
    std::cout << std::endl;
    table.writeCsv(csv);
    csv << "\n";
}

void measureAll(const Arguments& arguments) {
    const TemporaryFolder folder(arguments.folder, "frame_benchmark");
    const SceneMaker maker(findTool(arguments.build), folder.path());
    const PictureBook book(arguments.pictures.empty() ? folder.path() / "pictures" : fs::path(arguments.pictures));
    std::ostringstream csv;

    const bool isOptimized = arguments.tables.count("optimize") != 0, isShaded = arguments.tables.count("shaders") != 0;
    std::vector<FrameScene> scenes;
    if (isOptimized || isShaded) {
        for (const unsigned int tiles : arguments.sampleTiles) scenes.push_back(maker.makeSample(tiles));
        for (const int drawables : arguments.drawables) scenes.push_back(maker.makeTown(drawables));
    }
    if (isOptimized) show("Optimised:", measureOptimized(scenes, book, arguments), csv);
    if (isShaded) show("Generated shaders:", measureShaded(scenes, book, arguments), csv);
    if (arguments.tables.count("paged") != 0) {
        std::vector<FrameScene> databases;
        for (const unsigned int tiles : arguments.tiles)
            databases.push_back(maker.makeDatabase(tiles, arguments.maxRange));
        show("One file and paged:", measurePaged(databases, book, arguments), csv);
    }
    if (arguments.csv.empty()) return;
    std::ofstream file(arguments.csv);
    file << csv.str();
    if (!file.flush()) throw std::runtime_error(arguments.csv + ": cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    CLI::App app(
        "Times frames of scenes before and after 'sceneutils optimize', with fixed function and generated shaders, and "
        "the first picture of databases in one file and paged.");
    app.add_option("--tables", arguments.tables, "What is measured: optimize, shaders, paged; all of them by default")
        ->check(CLI::IsMember({"optimize", "shaders", "paged"}));
    app.add_option("--sample-tiles", arguments.sampleTiles, "Sizes of the sample scenes of the first two tables")
        ->delimiter(',')
        ->check(CLI::Range(1u, 1000u))
        ->capture_default_str();
    app.add_option("--drawables", arguments.drawables, "Sizes of the towns of the first two tables")
        ->delimiter(',')
        ->check(CLI::Range(10, 1000000))
        ->capture_default_str();
    app.add_option("--tiles", arguments.tiles, "Sizes of the databases of the third table")
        ->delimiter(',')
        ->check(CLI::Range(1u, 10000u))
        ->capture_default_str();
    app.add_option("--max-range", arguments.maxRange, "Up to which distance a tile is seen, in metres")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--repeats", arguments.repeats, "Rounds, of which the medians are shown")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--frames", arguments.frames, "Frames in a round, of which the median is taken")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--csv", arguments.csv, "Also write the tables to this file");
    app.add_option("--pictures", arguments.pictures, "Keep the pictures that are compared in this folder");
    app.add_option("--folder", arguments.folder, "Where the scenes are made for the time of the run")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    app.add_option("--build", arguments.build, "The build tree whose tool makes the scenes (this program's own)")
        ->check(CLI::ExistingDirectory);
    CLI11_PARSE(app, argc, argv);
    osg::setNotifyLevel(osg::WARN);

    try {
        measureAll(arguments);
    } catch (const std::exception& error) {
        std::cerr << "frame_benchmark: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
