#include "Conversions.h"
#include "FreshProcess.h"
#include "Table.h"
#include "TemporaryFolder.h"

#include "sample/SampleDatabase.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace veltrane::sceneutils;
using namespace veltrane::sceneutils::benchmarks;

namespace {

constexpr unsigned referenceTiles = 100;
// Of a single tile not all files would be reached, and all that are there are counted.
constexpr unsigned fewestTiles = 2;
constexpr std::array<Way, 3> allWays = {Way::Library, Way::Tool, Way::Floor};

struct Arguments {
    std::vector<unsigned> tiles = {10, 100, 1000};
    bool large = false;
    unsigned repeats = 5;
    std::string csv;
    std::string folder = fs::temp_directory_path().string();
    // What this program starts itself with.
    std::string sample;
    std::string convert;
    std::string way;
};

using CostByWay = std::array<Cost, allWays.size()>;

/** All that was measured of one database. */
struct Measurement {
    unsigned tiles = 0;
    fs::path master;
    std::size_t files = 0;
    std::vector<CostByWay> rounds;
};

/** The sizes of all files below the folder that have the extension. */
std::map<fs::path, std::uintmax_t> sizesOf(const fs::path& folder, const std::string& extension) {
    std::map<fs::path, std::uintmax_t> sizes;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == extension) sizes[entry.path()] = entry.file_size();
    }
    return sizes;
}

std::size_t countFiles(const fs::path& folder, const std::string& extension) {
    const auto isCounted = [&](const fs::directory_entry& entry) { return entry.path().extension() == extension; };
    return static_cast<std::size_t>(std::count_if(fs::recursive_directory_iterator(folder), {}, isCounted));
}

void removeOutputs(Way way, const fs::path& master) {
    if (way == Way::Tool) {
        fs::remove_all(outputFolder(way, master));
        return;
    }
    std::vector<fs::path> outputs;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(outputFolder(way, master))) {
        if (entry.path().extension() == ".ive") outputs.push_back(entry.path());
    }
    for (const fs::path& output : outputs) fs::remove(output);
}

const char* nameOf(Way way) {
    return wayNames[static_cast<std::size_t>(way)];
}

Cost convertOnce(Way way, const fs::path& master, std::size_t files) {
    const Cost cost = runInFreshProcess({"--convert", master.string(), "--way", nameOf(way)});
    const std::size_t written = countFiles(outputFolder(way, master), ".ive");
    if (written != files) {
        throw std::runtime_error(std::string(nameOf(way)) + " wrote " + std::to_string(written) + " files, not " +
                                 std::to_string(files));
    }
    removeOutputs(way, master);
    return cost;
}

std::map<fs::path, std::uintmax_t> outputSizesOf(Way way, const fs::path& master) {
    runInFreshProcess({"--convert", master.string(), "--way", nameOf(way)});
    auto sizes = sizesOf(outputFolder(way, master), ".ive");
    removeOutputs(way, master);
    return sizes;
}

/**
 * What the floor leaves out must not be what the files need. Only sizes can be compared: where the optimiser puts a
 * picture in a texture atlas follows from addresses in memory, and the texture coordinates from that.
 */
void checkThatFloorWritesTheSame(const fs::path& master) {
    if (outputSizesOf(Way::Floor, master) == outputSizesOf(Way::Library, master)) return;
    throw std::runtime_error("the floor writes other files than the library; its times would mean nothing");
}

Measurement makeDatabase(unsigned tiles, const fs::path& folder) {
    const fs::path database = folder / std::to_string(tiles);
    runInFreshProcess({"--sample", database.string(), "--tiles", std::to_string(tiles)});
    Measurement measurement;
    measurement.tiles = tiles;
    measurement.master = database / "master.flt";
    measurement.files = countFiles(database, ".flt");
    if (tiles <= referenceTiles) checkThatFloorWritesTheSame(measurement.master);
    return measurement;
}

/** Converts every way. */
CostByWay measureOnce(const Measurement& measurement) {
    CostByWay costs;
    for (const Way way : allWays) {
        Cost& cost = costs[static_cast<std::size_t>(way)];
        cost = convertOnce(way, measurement.master, measurement.files);
        std::cerr << measurement.tiles << " tiles, " << nameOf(way) << ": " << cost.processorSeconds << " s\n";
    }
    return costs;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <typename Quantity>
double medianOf(const Measurement& measurement, Quantity quantity) {
    std::vector<double> values;
    for (const CostByWay& costs : measurement.rounds) values.push_back(quantity(costs));
    return median(values);
}

template <typename Quantity>
double medianOf(const Measurement& measurement, Way way, Quantity quantity) {
    return medianOf(measurement,
                    [&](const CostByWay& costs) { return quantity(costs[static_cast<std::size_t>(way)]); });
}

double millisecondsPerTile(const Measurement& measurement, std::size_t round, Way way) {
    return 1000.0 * measurement.rounds[round][static_cast<std::size_t>(way)].processorSeconds / measurement.tiles;
}

double peak(const Measurement& measurement, std::size_t round, Way way) {
    return measurement.rounds[round][static_cast<std::size_t>(way)].peakMebibytes;
}

/** A quantity against the same of the reference database in the same round. */
template <typename Quantity>
void addRatio(Table& table, const Measurement& measurement, const Measurement* reference, Way way, Quantity quantity) {
    if (!reference) {
        table.cell("");
        return;
    }
    std::vector<double> ratios;
    for (std::size_t round = 0; round < measurement.rounds.size(); ++round) {
        ratios.push_back(quantity(measurement, round, way) / quantity(*reference, round, way));
    }
    table.cell(median(ratios), 2);
}

void addCostRow(Table& table, const Measurement& measurement, const Measurement* reference, Way way) {
    const double seconds = medianOf(measurement, way, [](const Cost& cost) { return cost.processorSeconds; });
    table.row().cell(measurement.tiles, 0).cell(static_cast<double>(measurement.files), 0).cell(nameOf(way));
    table.cell(medianOf(measurement, way, [](const Cost& cost) { return cost.seconds; }), 3).cell(seconds, 3);
    table.cell(1000.0 * seconds / static_cast<double>(measurement.files), 3);
    table.cell(1000.0 * seconds / measurement.tiles, 3);
    addRatio(table, measurement, reference, way, millisecondsPerTile);
    table.cell(medianOf(measurement, way, [](const Cost& cost) { return cost.peakMebibytes; }), 1);
    addRatio(table, measurement, reference, way, peak);
    const auto addShare = [&](auto quantity) {
        table.cell(medianOf(measurement, way,
                            [&](const Cost& cost) { return 100.0 * quantity(cost) / cost.processorSeconds; }),
                   2);
    };
    for (std::size_t step = 0; step < stepNames.size(); ++step) {
        addShare([step](const Cost& cost) { return cost.steps[step]; });
    }
    addShare([](const Cost& cost) { return cost.rest(); });
}

Table costTable(const std::vector<Measurement>& measurements) {
    std::vector<std::string> columns = {"tiles",   "files",   "way",         "wall_s",   "cpu_s",
                                        "ms/file", "ms/tile", "tile_vs_100", "peak_MiB", "peak_vs_100"};
    for (const char* step : stepNames) columns.push_back(std::string(step) + "_%");
    columns.push_back("rest_%");
    Table table(columns);

    const auto reference = std::find_if(measurements.begin(), measurements.end(),
                                        [](const Measurement& m) { return m.tiles == referenceTiles; });
    for (const Measurement& measurement : measurements) {
        for (const Way way : allWays) {
            addCostRow(table, measurement, reference == measurements.end() ? nullptr : &*reference, way);
        }
    }
    return table;
}

/** Compares a way with the floor, round by round. */
Table ownShareTable(const std::vector<Measurement>& measurements) {
    Table table({"tiles", "way", "whole_run_%", "own_%", "shading_%", "other_%"});
    const auto stepOf = [](const Cost& cost, Step step) { return cost.steps[static_cast<std::size_t>(step)]; };
    for (const Measurement& measurement : measurements) {
        for (const Way way : {Way::Library, Way::Tool}) {
            const auto excess = [&](auto quantity) {
                return medianOf(measurement, [&](const CostByWay& costs) {
                    const Cost& cost = costs[static_cast<std::size_t>(way)];
                    const Cost& floor = costs[static_cast<std::size_t>(Way::Floor)];
                    return 100.0 * (quantity(cost) - quantity(floor)) / cost.processorSeconds;
                });
            };
            const auto shading = [&](const Cost& cost) { return stepOf(cost, Step::Shading); };
            const auto other = [&](const Cost& cost) {
                return stepOf(cost, Step::Planning) + stepOf(cost, Step::Filtering) + cost.rest();
            };
            table.row().cell(measurement.tiles, 0).cell(nameOf(way));
            table.cell(excess([](const Cost& cost) { return cost.processorSeconds; }), 2);
            table.cell(excess([&](const Cost& cost) { return shading(cost) + other(cost); }), 2);
            table.cell(excess(shading), 2).cell(excess(other), 2);
        }
    }
    return table;
}

void compareAll(const Arguments& arguments) {
    std::vector<unsigned> sizes = arguments.tiles;
    if (arguments.large) sizes.push_back(10000);
    const TemporaryFolder folder(arguments.folder, "conversion_benchmark");

    std::vector<Measurement> measurements;
    for (const unsigned tiles : sizes) measurements.push_back(makeDatabase(tiles, folder.path()));
    // In turns, so that what else the machine does falls on all of them alike.
    for (unsigned round = 0; round < arguments.repeats; ++round) {
        std::cerr << "Round " << round + 1 << " of " << arguments.repeats << "\n";
        for (Measurement& measurement : measurements) measurement.rounds.push_back(measureOnce(measurement));
    }

    showTables({{"", costTable(measurements)},
                {"More than the floor, as a share of the whole run", ownShareTable(measurements)}},
               arguments.csv);
}

void run(const Arguments& arguments) {
    if (!arguments.sample.empty()) {
        tool::SampleOptions options;
        options.tiles = arguments.tiles.front();
        tool::writeSampleDatabase(arguments.sample, options);
    } else if (!arguments.convert.empty()) {
        const auto way = std::find(wayNames.begin(), wayNames.end(), arguments.way);
        convertAndPrintCost(allWays[static_cast<std::size_t>(way - wayNames.begin())], arguments.convert);
    } else {
        compareAll(arguments);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Converts sample databases with the library, with the tool, and with OpenSceneGraph alone.");
    app.add_option("--tiles", arguments.tiles, "Sizes of the databases")
        ->delimiter(',')
        ->check(CLI::Range(fewestTiles, tool::SampleOptions::maxTiles))
        ->capture_default_str();
    app.add_flag("--large", arguments.large, "And one of 10000 tiles");
    app.add_option("--repeats", arguments.repeats, "How often each is converted each way; medians are shown")
        ->check(CLI::Range(1u, 1000u))
        ->capture_default_str();
    app.add_option("--csv", arguments.csv, "Also write the tables to this file");
    app.add_option("--folder", arguments.folder, "Where the databases are made for the time of the run")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    app.add_option("--sample", arguments.sample, "Only make a database of so many tiles, in this folder");
    app.add_option(
        "--convert", arguments.convert,
        "Only convert the database of this master (for a profiler), and print seconds, processor seconds, MiB "
        "processor seconds and those of each step");
    app.add_option("--way", arguments.way, "The way of --convert")
        ->check(CLI::IsMember(std::vector<std::string>(wayNames.begin(), wayNames.end())))
        ->default_str("library");
    CLI11_PARSE(app, argc, argv);

    try {
        run(arguments);
    } catch (const std::exception& error) {
        std::cerr << "conversion_benchmark: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
