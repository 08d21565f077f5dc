#include "Table.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/Geode>
#include <osg/Geometry>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include <time.h>

using namespace veltrane::sceneutils;
using benchmarks::Table;
using offscreen::SceneRenderer;

namespace {

constexpr int pictureSize = 256;
constexpr int linesAfterAFrame = 1000;

/** Seconds of this process's processor time, the driver's threads included. */
double now() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double secondsOf(const std::function<void()>& work) {
    const double start = now();
    work();
    return now() - start;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

osg::Vec3f endOf(int line) {
    return {static_cast<float>(line % 1000), static_cast<float>(line / 1000), 1.0f};
}

void addLines(SimpleGeometryGenerator& generator, int from, int count) {
    for (int i = from; i < from + count; ++i)
        generator.addLine(endOf(i), endOf(i) + osg::Vec3f(0.5f, 0.5f, 0.0f), osg::Vec4f(1, 0, 0, 1));
}

/** The floor: the same lists, filled by hand. */
osg::ref_ptr<osg::Geometry> makeBareLines(int count) {
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(osg::Array::BIND_PER_VERTEX);
    const osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    const osg::ref_ptr<osg::DrawElementsUInt> lines = new osg::DrawElementsUInt(GL_LINES);
    const osg::ref_ptr<osg::DrawElementsUInt> points = new osg::DrawElementsUInt(GL_POINTS);
    for (int i = 0; i < count; ++i) {
        const auto next = static_cast<unsigned int>(vertices->size());
        for (const osg::ref_ptr<osg::DrawElementsUInt>& list : {lines, points}) {
            list->push_back(next);
            list->push_back(next + 1);
        }
        colors->push_back(osg::Vec4f(1, 0, 0, 1));
        colors->push_back(osg::Vec4f(1, 0, 0, 1));
        vertices->push_back(endOf(i));
        vertices->push_back(endOf(i) + osg::Vec3f(0.5f, 0.5f, 0.0f));
        normals->push_back(osg::Vec3f(0, 0, 1));
    }
    const osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colors);
    geometry->setNormalArray(normals);
    geometry->addPrimitiveSet(lines);
    geometry->addPrimitiveSet(points);
    return geometry;
}

/** Seconds, as medians over the rounds. */
struct Times {
    std::vector<double> adding;      ///< all lines, one by one
    std::vector<double> floor;       ///< the same by hand
    std::vector<double> oneMore;     ///< a line after a frame has been drawn
    std::vector<double> frame;       ///< nothing has changed
    std::vector<double> frameAfter;  ///< lines were added
};

void measureRound(int lines, Times& times) {
    osg::ref_ptr<osg::Geometry> bare;
    times.floor.push_back(secondsOf([&] { bare = makeBareLines(lines); }));
    bare = nullptr;

    const osg::ref_ptr<SimpleGeometryGenerator> generator = new SimpleGeometryGenerator;
    times.adding.push_back(secondsOf([&] { addLines(*generator, 0, lines); }));
    addLines(*generator, lines, linesAfterAFrame);  // so that no list has to grow in what comes

    SceneRenderer renderer(pictureSize, pictureSize);
    renderer.setScene(generator);
    const auto frame = [&] {
        return secondsOf([&] {
            renderer.drawFrame();
            renderer.waitForDriver();
        });
    };
    frame();
    frame();
    times.frame.push_back(frame());
    times.oneMore.push_back(secondsOf([&] { addLines(*generator, 0, linesAfterAFrame); }) / linesAfterAFrame);
    times.frameAfter.push_back(frame());
}

struct Arguments {
    std::vector<int> lines = {10000, 100000, 1000000};
    int repeats = 5;
    std::string csv;
};

Table measureAll(const Arguments& arguments) {
    Table table({"lines", "ours_ms", "floor_ms", "ours/floor", "ns_per_line", "growth", "one_more_ns", "frame_ms",
                 "frame_after_ms"});
    double smaller = 0.0;
    for (const int lines : arguments.lines) {
        Times times;
        for (int i = 0; i < arguments.repeats; ++i) measureRound(lines, times);
        const double ours = median(times.adding);
        const double floor = median(times.floor);
        table.row().cell(lines, 0).cell(ours * 1e3, 2).cell(floor * 1e3, 2).cell(ours / floor, 2);
        table.cell(ours / lines * 1e9, 0);
        if (smaller > 0.0) {
            table.cell(ours / smaller, 1);
        } else {
            table.cell("");
        }
        table.cell(median(times.oneMore) * 1e9, 0);
        table.cell(median(times.frame) * 1e3, 2).cell(median(times.frameAfter) * 1e3, 2);
        smaller = ours;
    }
    return table;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Times adding lines to a SimpleGeometryGenerator against filling the same lists by hand.");
    Arguments arguments;
    app.add_option("--lines", arguments.lines, "Numbers of lines, ascending")->capture_default_str();
    app.add_option("--repeats", arguments.repeats, "Rounds, of which the medians are shown")->capture_default_str();
    app.add_option("--csv", arguments.csv, "Also write the table to this file");
    CLI11_PARSE(app, argc, argv);

    try {
        benchmarks::showTables({{"", measureAll(arguments)}}, arguments.csv);
    } catch (const std::exception& error) {
        std::cerr << "debug_geometry_benchmark: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
