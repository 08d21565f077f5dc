#include "Table.h"

#include <sceneutils/ShaderGenerator.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Material>
#include <osg/Texture2D>
#include <osgUtil/ShaderGen>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <pthread.h>
#include <time.h>

using namespace veltrane::sceneutils;
using benchmarks::Table;

namespace {

constexpr int childrenPerGroup = 10;                     // of a tree
constexpr int distinctStates = 16;                       // materials with textures, dealt out in turn
constexpr std::size_t stackSize = std::size_t(2) << 30;  // a walk 100,000 nodes deep; only what is used becomes memory

enum class Shape { Wide, Deep, Tree };
enum class Content { NoState, SharedStateSets, OwnStateSets, DrawableStateSets };
enum class Way { Generator, Visitor, Bare };

const std::map<Shape, std::string> shapeNames = {{Shape::Wide, "wide"}, {Shape::Deep, "deep"}, {Shape::Tree, "tree"}};
const std::map<Content, std::string> contentNames = {{Content::NoState, "none"},
                                                     {Content::SharedStateSets, "16 shared"},
                                                     {Content::OwnStateSets, "own"},
                                                     {Content::DrawableStateSets, "drawables'"}};

struct Case {
    int nodes;
    Shape shape;
    Content content;
};

/** State as models carry it: one of a few materials, and a texture on one or two units or none. */
class StateSets {
public:
    StateSets() {
        for (int i = 0; i < distinctStates; ++i) {
            _materials.push_back(new osg::Material);
            _shared.push_back(make(i));
        }
    }

    osg::ref_ptr<osg::StateSet> make(int index) const {
        const osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
        stateSet->setAttribute(_materials[static_cast<std::size_t>(index % distinctStates)]);
        for (int unit = 0; unit < index % 3; ++unit)
            stateSet->setTextureAttributeAndModes(static_cast<unsigned int>(unit), new osg::Texture2D);
        return stateSet;
    }

    osg::ref_ptr<osg::StateSet> shared(int index) const {
        return _shared[static_cast<std::size_t>(index % distinctStates)];
    }

private:
    std::vector<osg::ref_ptr<osg::Material>> _materials;
    std::vector<osg::ref_ptr<osg::StateSet>> _shared;
};

osg::ref_ptr<osg::Group> makeNode(const StateSets& stateSets, Content content, int index) {
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    if (content == Content::SharedStateSets) group->setStateSet(stateSets.shared(index));
    if (content == Content::OwnStateSets) group->setStateSet(stateSets.make(index));
    if (content == Content::DrawableStateSets) {
        const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        const osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        geometry->setStateSet(stateSets.make(index));
        geode->addDrawable(geometry);
        group->addChild(geode);
    }
    return group;
}

/** A graph of that many nodes below its root: all in one group, one below the other, or ten to a group. */
osg::ref_ptr<osg::Group> makeGraph(const Case& made) {
    const StateSets stateSets;
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    std::vector<osg::Group*> groups = {root.get()};
    for (int i = 0; i < made.nodes; ++i) {
        const osg::ref_ptr<osg::Group> node = makeNode(stateSets, made.content, i);
        const int parent = made.shape == Shape::Wide ? 0 : made.shape == Shape::Deep ? i : i / childrenPerGroup;
        groups[static_cast<std::size_t>(parent)]->addChild(node);
        groups.push_back(node);
    }
    return root;
}

class BareVisitor : public osg::NodeVisitor {
public:
    BareVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
};

void run(Way way, osg::Node& graph) {
    if (way == Way::Generator) {
        ShaderGenerator::instance()->process(&graph, false, true, true, true);
    } else if (way == Way::Visitor) {
        osgUtil::ShaderGenVisitor visitor;
        graph.accept(visitor);
    } else {
        BareVisitor visitor;
        graph.accept(visitor);
    }
}

/** Milliseconds of this thread's processor time. */
double timeOf(Way way, osg::Node& graph) {
    const auto now = [] {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
    };
    const double start = now();
    run(way, graph);
    return now() - start;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/** Medians of the first and the second run over a graph, each way over fresh graphs, the ways in turn. */
struct Times {
    std::map<Way, double> first;
    std::map<Way, double> second;
};

Times measure(const Case& measured, int repeats) {
    std::map<Way, std::vector<double>> first, second;
    for (int i = 0; i < repeats; ++i) {
        for (const Way way : {Way::Generator, Way::Visitor, Way::Bare}) {
            const osg::ref_ptr<osg::Group> graph = makeGraph(measured);
            first[way].push_back(timeOf(way, *graph));
            second[way].push_back(timeOf(way, *graph));
        }
    }
    Times times;
    for (const auto& [way, values] : first) times.first[way] = median(values);
    for (const auto& [way, values] : second) times.second[way] = median(values);
    return times;
}

struct Arguments {
    std::vector<int> nodes = {1000, 10000, 100000};
    int repeats = 5;
    std::string csv;
};

void addRow(Table& table, const Case& measured, const std::string& run, const std::map<Way, double>& ms,
            const std::map<Way, double>& smaller) {
    const double ours = ms.at(Way::Generator);
    table.row().cell(measured.nodes, 0).cell(shapeNames.at(measured.shape)).cell(contentNames.at(measured.content));
    table.cell(run).cell(ours, 3).cell(ms.at(Way::Visitor), 3).cell(ms.at(Way::Bare), 3);
    table.cell(ours / ms.at(Way::Visitor), 2).cell(ours / ms.at(Way::Bare), 2).cell(measured.nodes / ours / 1000.0, 2);
    if (smaller.empty()) {
        table.cell("");
    } else {
        table.cell(ours / smaller.at(Way::Generator), 1);
    }
}

void addRows(Table& table, Shape shape, Content content, const Arguments& arguments) {
    Times smaller;
    for (const int nodes : arguments.nodes) {
        const Case measured = {nodes, shape, content};
        const Times times = measure(measured, arguments.repeats);
        addRow(table, measured, "first", times.first, smaller.first);
        addRow(table, measured, "second", times.second, smaller.second);
        smaller = times;
    }
}

Table measureAll(const Arguments& arguments) {
    Table table({"nodes", "shape", "state", "run", "ours_ms", "visitor_ms", "bare_ms", "ours/visitor", "ours/bare",
                 "million_per_s", "growth"});
    for (const Shape shape : {Shape::Wide, Shape::Deep, Shape::Tree}) {
        for (const Content content :
             {Content::NoState, Content::SharedStateSets, Content::OwnStateSets, Content::DrawableStateSets})
            addRows(table, shape, content, arguments);
    }
    return table;
}

/** @return null if all is well */
void* measureAndShow(void* given) {
    const Arguments& arguments = *static_cast<const Arguments*>(given);
    try {
        run(Way::Generator, *makeGraph({1000, Shape::Wide, Content::OwnStateSets}));  // its programs are known now
        benchmarks::showTables({{"", measureAll(arguments)}}, arguments.csv);
    } catch (const std::exception& error) {
        std::cerr << "shader_benchmark: " << error.what() << "\n";
        return given;
    }
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Times shader generation against osgUtil::ShaderGenVisitor and against a walk that does nothing.");
    Arguments arguments;
    app.add_option("--nodes", arguments.nodes, "Numbers of nodes, ascending")->capture_default_str();
    app.add_option("--repeats", arguments.repeats, "Rounds, of which the medians are shown")->capture_default_str();
    app.add_option("--csv", arguments.csv, "Also write the table to this file");
    CLI11_PARSE(app, argc, argv);

    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize);
    if (pthread_create(&thread, &attributes, measureAndShow, &arguments) != 0) return 1;
    void* failed = nullptr;
    pthread_join(thread, &failed);
    return failed ? 1 : 0;
}
