#include "JobCosts.h"
#include "MeasuredProgram.h"
#include "Table.h"
#include "TemporaryFolder.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;
using namespace veltrane::sceneutils::benchmarks;

namespace {

constexpr double bytesPerMegabyte = 1e6;
constexpr double millisecondsPerSecond = 1000.0;
constexpr unsigned largeTiles = 10000;
// Of a single tile not all files would be reached.
constexpr unsigned fewestTiles = 2;
constexpr unsigned mostTiles = 100000;
// Above, plain convert takes too long: each of its processes waits for those below it.
constexpr unsigned mostTilesForConvert = 1000;
constexpr unsigned jobCostsPerRound = 5;
constexpr const char* osgconvPath = "/usr/bin/osgconv";
// The library's own: references stay references, textures are only named.
constexpr const char* osgconvOptions = "keepExternalReferences=yes;preserveFace=yes;noTexturesInIVEFile";
constexpr const char* osgconvLoop =
    R"(while IFS= read -r name; do "$0" -O "$1" "$2/$name.flt" "$3/$name.ive" || exit; done < "$4")";

enum class Way : std::size_t { Osgconv, Library, Convert, JobsOne, JobsTwo, Again, Changed, Plan };

constexpr std::array<const char*, 8> wayNames = {"osgconv loop", "library",       "convert",          "--jobs 1",
                                                 "--jobs 2",     "nothing to do", "one tile changed", "plan"};

struct Arguments {
    std::vector<unsigned> tiles = {10, 100, 1000};
    bool large = false;
    unsigned repeats = 5;
    std::string csv;
    std::string folder = fs::temp_directory_path().string();
    std::string build;
};

/** What is measured. */
struct Programs {
    fs::path tool;
    fs::path conversionBenchmark;
    bool hasOsgconv = false;
};

using CostByWay = std::map<Way, ProgramCost>;

/** A sample database and all that was measured of it. */
struct Measurement {
    unsigned tiles = 0;
    fs::path folder;                 ///< of the database
    std::vector<std::string> files;  ///< as seen from there, without extension
    std::uintmax_t bytes = 0;        ///< of these
    std::vector<CostByWay> rounds;
    std::vector<JobCosts> jobs;
    std::map<Way, double> filesPerProcess;

    fs::path master() const { return folder / "master.flt"; }
};

const char* nameOf(Way way) {
    return wayNames[static_cast<std::size_t>(way)];
}

fs::path programIn(const fs::path& build, const std::string& name) {
    const fs::path program = build / name;
    if (access(program.c_str(), X_OK) == 0) return program;
    throw std::runtime_error(program.string() + ": is not there; build it, or name another build tree with --build");
}

Programs findPrograms(const std::string& build) {
    const fs::path tree =
        build.empty() ? fs::read_symlink("/proc/self/exe").parent_path().parent_path() : fs::canonical(build);
    Programs programs;
    programs.tool = programIn(tree, "apps/sceneutils/sceneutils");
    programs.conversionBenchmark = programIn(tree, "benchmarks/conversion_benchmark");
    programs.hasOsgconv = access(osgconvPath, X_OK) == 0;
    if (!programs.hasOsgconv) {
        std::cout << "Without the osgconv loop: " << osgconvPath
                  << " is not installed (Debian package openscenegraph).\n";
    }
    return programs;
}

/** When each output below a folder was written. */
std::map<fs::path, fs::file_time_type> outputsBelow(const fs::path& folder) {
    std::map<fs::path, fs::file_time_type> times;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().extension() == ".ive")
            times[entry.path()] = entry.last_write_time();
    }
    return times;
}

std::size_t countOutputs(const fs::path& folder) {
    return outputsBelow(folder).size();
}

std::size_t countChanges(const fs::path& folder, const std::map<fs::path, fs::file_time_type>& before) {
    const auto now = outputsBelow(folder);
    return static_cast<std::size_t>(std::count_if(
        now.begin(), now.end(), [&](const auto& output) { return before.at(output.first) != output.second; }));
}

/** Runs a database through all ways. */
class Round {
public:
    Round(const Programs& programs, const fs::path& folder, Measurement& measurement)
        : _programs(programs), _folder(folder), _measurement(measurement) {
        fs::create_directories(_folder);
        _measurement.rounds.emplace_back();
    }

    /** @param number of the round: each begins with another way */
    void run(unsigned number) {
        std::vector<std::function<void()>> turns = {[this] { runLibrary(); }, [this] { runOneJob(); },
                                                    [this] { runTwoJobs(); }, [this] { runPlan(); }};
        if (_measurement.tiles <= mostTilesForConvert)
            turns.insert(turns.begin() + 1, [this] { runConvert(Way::Convert, {}); });
        if (_programs.hasOsgconv) turns.insert(turns.begin(), [this] { runOsgconv(); });
        for (std::size_t i = 0; i < turns.size(); ++i) turns[(i + number) % turns.size()]();
    }

private:
    void runOsgconv() {
        const fs::path output = _folder / "osgconv";
        const fs::path list = _folder / "files.txt";
        std::ofstream names(list);
        for (const std::string& file : _measurement.files) {
            names << file << "\n";
            fs::create_directories((output / file).parent_path());
        }
        names.close();
        measure(Way::Osgconv, {"/bin/sh", "-c", osgconvLoop, osgconvPath, osgconvOptions, _measurement.folder.string(),
                               output.string(), list.string()});
        check(countOutputs(output) == _measurement.files.size(), Way::Osgconv, "has not written every file");
    }

    // It writes beside its inputs.
    void runLibrary() {
        const fs::path copy = _folder / "library";
        fs::copy(_measurement.folder, copy, fs::copy_options::recursive | fs::copy_options::create_hard_links);
        measure(Way::Library, {_programs.conversionBenchmark.string(), "--convert", (copy / "master.flt").string(),
                               "--way", "library"});
        check(countOutputs(copy) == _measurement.files.size(), Way::Library, "has not written every file");
    }

    fs::path runConvert(Way way, const std::vector<std::string>& options) {
        const fs::path folder = _folder / std::to_string(static_cast<std::size_t>(way));
        convertInto(folder, way, options);
        check(countOutputs(folder) == _measurement.files.size(), way, "has not written every file");
        return folder / "master.ive";
    }

    void convertInto(const fs::path& folder, Way way, const std::vector<std::string>& options) {
        std::vector<std::string> words = {_programs.tool.string(), "convert", _measurement.master().string(),
                                          (folder / "master.ive").string(), "--recurse"};
        words.insert(words.end(), options.begin(), options.end());
        measure(way, words);
    }

    void runOneJob() {
        const fs::path output = runConvert(Way::JobsOne, {"--jobs", "1"});
        _measurement.filesPerProcess[Way::JobsOne] = FinishedConversion(_programs.tool, output).filesPerProcess();
    }

    void runTwoJobs() {
        const fs::path output = runConvert(Way::JobsTwo, {"--jobs", "2"});
        const fs::path folder = output.parent_path();
        const auto before = outputsBelow(folder);
        convertInto(folder, Way::Again, {"--jobs", "2"});
        check(countChanges(folder, before) == 0, Way::Again, "has converted something");
        touchOneTile();
        convertInto(folder, Way::Changed, {"--jobs", "2"});
        check(countChanges(folder, before) == 1, Way::Changed, "has not converted just that");

        const FinishedConversion finished(_programs.tool, output);
        _measurement.filesPerProcess[Way::JobsTwo] = finished.filesPerProcess();
        for (unsigned i = 0; i < jobCostsPerRound; ++i) {
            _measurement.jobs.push_back(finished.measureJobs(log()));
        }
    }

    void touchOneTile() {
        const auto isTile = [](const std::string& file) { return file.find("/tile_") != std::string::npos; };
        const auto tile = std::find_if(_measurement.files.begin(), _measurement.files.end(), isTile);
        fs::last_write_time(_measurement.folder / (*tile + ".flt"), fs::file_time_type::clock::now());
    }

    void runPlan() {
        measure(Way::Plan, {_programs.tool.string(), "plan", _measurement.master().string(), "-o",
                            (_folder / "plan.json").string()});
    }

    void measure(Way way, const std::vector<std::string>& words) {
        const ProgramCost cost = measureProgram({words, {}}, log());
        _measurement.rounds.back()[way] = cost;
        std::cerr << _measurement.tiles << " tiles, " << nameOf(way) << ": " << cost.seconds << " s\n";
    }

    void check(bool isRight, Way way, const std::string& problem) const {
        if (!isRight) throw std::runtime_error(nameOf(way) + (" " + problem) + ":\n" + contentOf(log()));
    }

    fs::path log() const { return _folder / "log.txt"; }

    const Programs& _programs;
    const fs::path _folder;
    Measurement& _measurement;
};

Measurement makeDatabase(const Programs& programs, unsigned tiles, const fs::path& folder) {
    Measurement measurement;
    measurement.tiles = tiles;
    measurement.folder = folder / std::to_string(tiles);
    measureProgram(
        {{programs.tool.string(), "sample", measurement.folder.string(), "--tiles", std::to_string(tiles)}, {}},
        folder / "sample.txt");
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(measurement.folder)) {
        if (entry.path().extension() != ".flt") continue;
        measurement.bytes += entry.file_size();
        measurement.files.push_back(entry.path().lexically_relative(measurement.folder).replace_extension().string());
    }
    std::sort(measurement.files.begin(), measurement.files.end());
    return measurement;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

using Quantity = double ProgramCost::*;

double medianOf(const Measurement& measurement, Way way, Quantity quantity) {
    std::vector<double> values;
    for (const CostByWay& costs : measurement.rounds) values.push_back(costs.at(way).*quantity);
    return median(values);
}

/** A way against another, round by round; an empty cell if that one was not run. */
void addRatio(Table& table, const Measurement& measurement, Way way, Way reference, Quantity quantity) {
    std::vector<double> ratios;
    for (const CostByWay& costs : measurement.rounds) {
        const auto found = costs.find(reference);
        if (found != costs.end()) ratios.push_back(costs.at(way).*quantity / found->second.*quantity);
    }
    if (ratios.empty()) {
        table.cell("");
    } else {
        table.cell(median(ratios), 3);
    }
}

void addRunRow(Table& table, const Measurement& measurement, Way way) {
    const double seconds = medianOf(measurement, way, &ProgramCost::seconds);
    table.row().cell(measurement.tiles, 0).cell(static_cast<double>(measurement.files.size()), 0).cell(nameOf(way));
    table.cell(seconds, 3).cell(medianOf(measurement, way, &ProgramCost::processorSeconds), 3);
    table.cell(measurement.tiles / seconds, 1);
    table.cell(static_cast<double>(measurement.bytes) / bytesPerMegabyte / seconds, 2);
    table.cell(medianOf(measurement, way, &ProgramCost::peakMebibytes), 1);
    for (const Way reference : {Way::JobsOne, Way::Osgconv}) {
        for (const Quantity quantity : {&ProgramCost::seconds, &ProgramCost::processorSeconds}) {
            addRatio(table, measurement, way, reference, quantity);
        }
    }
}

Table runTable(const std::vector<Measurement>& measurements) {
    Table table({"tiles", "files", "way", "wall_s", "cpu_s", "tiles/s", "MB/s", "peak_MiB", "wall/jobs1", "cpu/jobs1",
                 "wall/loop", "cpu/loop"});
    for (const Measurement& measurement : measurements) {
        for (const auto& [way, cost] : measurement.rounds.front()) addRunRow(table, measurement, way);
    }
    return table;
}

/** One more tile in a process that has converted some. */
double secondsOfTile(const JobCosts& costs, Quantity quantity) {
    return (costs.allTiles.*quantity - costs.oneTile.*quantity) / static_cast<double>(costs.tiles - 1);
}

void addJobRow(Table& table, const Measurement& measurement, const char* time, Quantity quantity) {
    const auto medianOfJobs = [&](auto value) {
        std::vector<double> values;
        for (const JobCosts& costs : measurement.jobs) values.push_back(value(costs));
        return median(values);
    };
    const double nothing = medianOfJobs([&](const JobCosts& costs) { return costs.nothing.*quantity; });
    const double tile = medianOfJobs([&](const JobCosts& costs) { return secondsOfTile(costs, quantity); });
    const double start =
        medianOfJobs([&](const JobCosts& costs) { return costs.oneTile.*quantity - secondsOfTile(costs, quantity); });
    table.row().cell(measurement.tiles, 0).cell(time).cell(millisecondsPerSecond * nothing, 2);
    table.cell(millisecondsPerSecond * start, 2).cell(millisecondsPerSecond * tile, 2).cell(100.0 * start / tile, 1);
    for (const Way way : {Way::JobsOne, Way::JobsTwo}) {
        const double files = measurement.filesPerProcess.at(way);
        table.cell(files, 1).cell(millisecondsPerSecond * start / files, 3).cell(100.0 * start / files / tile, 1);
    }
}

Table jobTable(const std::vector<Measurement>& measurements) {
    Table table({"tiles", "time", "empty_ms", "start_ms", "tile_ms", "start_%", "files_1", "start_1_ms", "start_1_%",
                 "files_2", "start_2_ms", "start_2_%"});
    for (const Measurement& measurement : measurements) {
        addJobRow(table, measurement, "clock", &ProgramCost::seconds);
        addJobRow(table, measurement, "processor", &ProgramCost::processorSeconds);
    }
    return table;
}

void run(const Arguments& arguments) {
    const Programs programs = findPrograms(arguments.build);
    std::vector<unsigned> sizes = arguments.tiles;
    if (arguments.large) sizes.push_back(largeTiles);
    const TemporaryFolder folder(arguments.folder, "jobs_benchmark");

    std::vector<Measurement> measurements;
    for (const unsigned tiles : sizes) measurements.push_back(makeDatabase(programs, tiles, folder.path()));
    // In turns, so that what else the machine does falls on all of them alike. Nothing is removed before the end: the
    // file system would still be at it while the next one is measured.
    for (unsigned round = 0; round < arguments.repeats; ++round) {
        std::cerr << "Round " << round + 1 << " of " << arguments.repeats << "\n";
        for (std::size_t i = 0; i < measurements.size(); ++i) {
            const fs::path outputs = folder.path() / ("round" + std::to_string(round)) / std::to_string(i);
            Round(programs, outputs, measurements[i]).run(round);
        }
    }

    showTables({{"", runTable(measurements)},
                {"What the start of a process takes, and what a tile takes in it", jobTable(measurements)}},
               arguments.csv);
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Converts sample databases in jobs, without them, and with osgconv.");
    app.add_option("--tiles", arguments.tiles, "Sizes of the databases")
        ->delimiter(',')
        ->check(CLI::Range(fewestTiles, mostTiles))
        ->capture_default_str();
    app.add_flag("--large", arguments.large, "And one of 10000 tiles");
    app.add_option("--repeats", arguments.repeats, "How often each is converted each way; medians are shown")
        ->check(CLI::Range(1u, 1000u))
        ->capture_default_str();
    app.add_option("--csv", arguments.csv, "Also write the tables to this file");
    app.add_option("--folder", arguments.folder, "Where the databases and all outputs lie for the time of the run")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    app.add_option("--build", arguments.build, "The build tree whose programs are measured (this program's own)")
        ->check(CLI::ExistingDirectory);
    CLI11_PARSE(app, argc, argv);

    try {
        run(arguments);
    } catch (const std::exception& error) {
        std::cerr << "jobs_benchmark: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
