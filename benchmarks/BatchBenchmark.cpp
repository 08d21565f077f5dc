#include "ChildMeasurement.h"
#include "DrawableCounter.h"
#include "FrameTimes.h"
#include "Median.h"
#include "Table.h"
#include "ThreadTime.h"
#include "Town.h"

#include <sceneutils/FlattenUselessLODs.h>
#include <sceneutils/MyCopySharedSubgraphsVisitor.h>
#include <sceneutils/MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor.h>
#include <sceneutils/OptimizeBatches.h>
#include <sceneutils/RemoveNamesAndDescriptions.h>
#include <sceneutils/UnspatializeSmallAreas.h>

#include <osg/Group>
#include <osg/LOD>
#include <osg/Node>
#include <osg/Notify>
#include <osgUtil/Optimizer>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace veltrane::sceneutils;
using namespace veltrane::sceneutils::benchmarks;

namespace {

constexpr int placesPerModel = 100;    // of shared models
constexpr double smallRadius = 200.0;  // a block, but not a quarter
constexpr double largeRadius = 1e9;

using Node = osg::ref_ptr<osg::Node>;
using Group = osg::ref_ptr<osg::Group>;

Group makeSiblings(int count, const std::function<Node(int)>& make) {
    const Group root = new osg::Group;
    for (int i = 0; i < count; ++i) root->addChild(make(i));
    return root;
}

Group makeUselessLODs(int count) {
    const TownBuilder builder;
    return makeSiblings(count, [&builder](int i) {
        const osg::ref_ptr<osg::LOD> lod = new osg::LOD;
        lod->addChild(builder.makeModel(i), 0.0f, 20000.0f);
        return lod;
    });
}

Group makeTransforms(int count) {
    const TownBuilder builder;
    return makeSiblings(count, [&builder](int i) { return TownBuilder::makeTransform(builder.makeModel(i)); });
}

Group makeSharedModels(int count) {
    const TownBuilder builder;
    std::vector<Node> models;
    for (int i = 0; i < std::max(1, count / placesPerModel); ++i) models.push_back(builder.makeModel(i));
    return makeSiblings(count, [&models](int i) {
        return TownBuilder::makeTransform(models[static_cast<std::size_t>(i) % models.size()]);
    });
}

Group makeTwinSiblings(int count) {
    const TownBuilder builder;
    const Group left = makeSiblings(count / 2, [&builder](int i) { return builder.makeModel(i); });
    const Group right = makeSiblings(count / 2, [&left, count](int i) {
        return Node(left->getChild(static_cast<unsigned int>(count / 2 - 1 - i)));
    });
    return makeSiblings(2, [&left, &right](int i) { return Node(i == 0 ? left : right); });
}

void copyShared(osg::Node& graph) {
    MyCopySharedSubgraphsVisitor visitor(nullptr);
    graph.accept(visitor);
    visitor.copySharedNodes();
}

void optimizeBatches(osg::Node& graph, double radius) {
    OptimizeBatches optimizer;
    optimizer.setUnspatializeRadius(radius);
    optimizer.process(&graph);
}

void optimizeByOsg(osg::Node& graph, unsigned int options) {
    osgUtil::Optimizer().optimize(&graph, options);
}

struct Way {
    std::string name;
    std::function<Group(int)> make;
    std::function<void(osg::Node&)> run;
};

Group makeTown(int drawables) {
    return TownBuilder().makeTown(drawables);
}

/** What is done to a whole town. */
std::vector<Way> makeWholeWays() {
    return {
        {"optimizer ALL", makeTown, [](auto& graph) { optimizeByOsg(graph, osgUtil::Optimizer::ALL_OPTIMIZATIONS); }},
        {"optimizer DEFAULT", makeTown,
         [](auto& graph) { optimizeByOsg(graph, osgUtil::Optimizer::DEFAULT_OPTIMIZATIONS); }},
        {"batches, radius 0", makeTown, [](auto& graph) { optimizeBatches(graph, 0.0); }},
        {"batches, small radius", makeTown, [](auto& graph) { optimizeBatches(graph, smallRadius); }},
        {"batches, large radius", makeTown, [](auto& graph) { optimizeBatches(graph, largeRadius); }},
    };
}

std::vector<Way> makeWays() {
    std::vector<Way> ways = makeWholeWays();
    const std::vector<Way> steps = {
        {"step: useless LODs", makeUselessLODs, [](auto& graph) { FlattenUselessLODs::process(&graph, 0, 20000); }},
        {"step: names", makeTown, [](auto& graph) { RemoveNamesAndDescriptions::process(&graph); }},
        {"step: 100 places a model", makeSharedModels, copyShared},
        {"step: two large groups share", makeTwinSiblings, copyShared},
        {"step: small areas", makeTown, [](auto& graph) { UnspatializeSmallAreas::process(&graph, smallRadius); }},
        {"step: one large area", makeTown, [](auto& graph) { UnspatializeSmallAreas::process(&graph, largeRadius); }},
        {"limited transforms", makeTransforms,
         [](auto& graph) { MyFlattenStaticTransformsDuplicatingSharedSubgraphsVisitor::process(&graph, largeRadius); }},
    };
    ways.insert(ways.end(), steps.begin(), steps.end());
    return ways;
}

struct Measurement {
    double milliseconds;
    int drawablesLeft;
};

/** The median over fresh graphs. */
Measurement measure(const Way& way, int drawables, int repeats) {
    std::vector<double> times;
    DrawableCounter counter;
    for (int i = 0; i < repeats; ++i) {
        const Group graph = way.make(drawables);
        const double start = threadMilliseconds();
        way.run(*graph);
        times.push_back(threadMilliseconds() - start);
        if (i == 0) graph->accept(counter);
    }
    return {medianOf(times), counter.count};
}

/** In MiB. */
struct Memory {
    double graph;  ///< what the graph takes before
    double peak;   ///< by how much the process grows at most
    double kept;   ///< by how much the graph grows
};

/** Medians over fresh processes. */
Memory measureMemory(const Way& way, int drawables, int repeats) {
    std::vector<double> graphs, peaks, kepts;
    for (int i = 0; i < repeats; ++i) {
        const std::vector<double> numbers = measureInChild([&way, drawables] {
            const MemoryWatch building;
            const Group graph = way.make(drawables);
            const double built = building.kept();
            const MemoryWatch running;
            way.run(*graph);
            return std::vector<double>{built, running.peak(), running.kept()};
        });
        graphs.push_back(numbers.at(0));
        peaks.push_back(numbers.at(1));
        kepts.push_back(numbers.at(2));
    }
    return {medianOf(graphs), medianOf(peaks), medianOf(kepts)};
}

struct Arguments {
    std::vector<int> drawables = {1000, 10000, 100000};
    int repeats = 5;
    int frames = 20;
    std::set<std::string> tables = {"passes", "frames"};
    std::string csv;
};

Table measureAll(const Arguments& arguments) {
    Table table({"drawables", "way", "left", "ms", "of ALL", "growth", "graph_MiB", "peak_MiB", "kept_MiB"});
    const std::vector<Way> ways = makeWays();
    std::map<std::string, double> smaller;
    for (const int drawables : arguments.drawables) {
        double all = 0.0;
        for (const Way& way : ways) {
            const Measurement measured = measure(way, drawables, arguments.repeats);
            if (&way == &ways.front()) all = measured.milliseconds;
            table.row().cell(drawables, 0).cell(way.name).cell(measured.drawablesLeft, 0);
            table.cell(measured.milliseconds, 2).cell(measured.milliseconds / all, 2);
            const auto before = smaller.find(way.name);
            if (before == smaller.end()) {
                table.cell("");
            } else {
                table.cell(measured.milliseconds / before->second, 1);
            }
            smaller[way.name] = measured.milliseconds;
            const Memory memory = measureMemory(way, drawables, arguments.repeats);
            table.cell(memory.graph, 1).cell(memory.peak, 1).cell(memory.kept, 1);
        }
    }
    return table;
}

/** Cull, draw, cull, draw: of the whole and of the street. Medians over fresh processes. */
std::vector<double> measureViews(const Way& way, int drawables, const Arguments& arguments) {
    std::vector<std::vector<double>> columns(4);
    for (int i = 0; i < arguments.repeats; ++i) {
        for (const FrameView view : {FrameView::Whole, FrameView::Street}) {
            const std::vector<double> numbers = measureInChild([&way, drawables, view, &arguments] {
                const Group graph = way.make(drawables);
                way.run(*graph);
                const FrameTimes times = measureFrames(*graph, view, arguments.frames);
                return std::vector<double>{times.cull, times.draw};
            });
            const std::size_t first = view == FrameView::Whole ? 0 : 2;
            columns[first].push_back(numbers.at(0));
            columns[first + 1].push_back(numbers.at(1));
        }
    }
    std::vector<double> medians;
    for (const std::vector<double>& column : columns) medians.push_back(medianOf(column));
    return medians;
}

Table measureAllFrames(const Arguments& arguments) {
    Table table({"drawables", "way", "whole: cull_ms", "whole: draw_ms", "whole: of before", "street: cull_ms",
                 "street: draw_ms", "street: of before"});
    std::vector<Way> ways = {{"before", makeTown, [](auto&) {}}};
    for (const Way& way : makeWholeWays()) ways.push_back(way);
    for (const int drawables : arguments.drawables) {
        std::vector<double> before;
        for (const Way& way : ways) {
            const std::vector<double> times = measureViews(way, drawables, arguments);
            if (before.empty()) before = times;
            table.row().cell(drawables, 0).cell(way.name);
            for (const std::size_t view : {0u, 2u}) {
                table.cell(times[view], 3).cell(times[view + 1], 3);
                table.cell((times[view] + times[view + 1]) / (before[view] + before[view + 1]), 2);
            }
        }
    }
    return table;
}

void run(const Arguments& arguments) {
    std::vector<TitledTable> tables;
    if (arguments.tables.count("passes")) tables.push_back({"", measureAll(arguments)});
    if (arguments.tables.count("frames")) tables.push_back({"Frames", measureAllFrames(arguments)});
    showTables(tables, arguments.csv);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Times the optimisation of batches and its steps against osgUtil::Optimizer, over towns of that size.");
    Arguments arguments;
    app.add_option("--drawables", arguments.drawables, "Numbers of drawables, ascending")->capture_default_str();
    app.add_option("--repeats", arguments.repeats, "Rounds, of which the medians are shown")->capture_default_str();
    app.add_option("--csv", arguments.csv, "Also write the tables to this file");
    app.add_option("--frames", arguments.frames, "Frames in a round, of which the median is taken")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--tables", arguments.tables, "What is measured: passes, frames or both, which is the default")
        ->check(CLI::IsMember({"passes", "frames"}));
    CLI11_PARSE(app, argc, argv);
    osg::setNotifyLevel(osg::WARN);  // the optimizer writes a line for each drawable

    try {
        run(arguments);
    } catch (const std::exception& error) {
        std::cerr << "batch_benchmark: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
