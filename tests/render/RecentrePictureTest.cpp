#include "support/Graphs.h"

#include <offscreen/SceneRenderer.h>
#include <sceneutils/BubbleUpTransform.h>

#include <gtest/gtest.h>

#include <osg/Group>
#include <osg/Image>
#include <osgDB/WriteFile>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

using namespace testing_support;
using veltrane::sceneutils::BubbleUpTransform;
using veltrane::sceneutils::offscreen::SceneRenderer;

namespace {

const osg::Vec3 place(100000.0f, 0.0f, 0.0f);  // 100 km from the origin
constexpr float tile = 1.0f / 64.0f;           // 1.6 cm: a whole number of steps of a coordinate there
constexpr int tilesPerSide = 64;
constexpr double distance = 5.0;
constexpr double millimetre = 0.001;
constexpr int frames = 20;

/** A wall of squares of one tile's width, every other one white, seen from the south. */
osg::ref_ptr<osg::Group> makeWall(const osg::Vec3& corner) {
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    for (int row = 0; row < tilesPerSide; ++row) {
        for (int column = row % 2; column < tilesPerSide; column += 2) {
            for (const auto& [x, z] : {std::pair(0, 0), std::pair(1, 0), std::pair(1, 1), std::pair(0, 1)})
                vertices->push_back(corner +
                                    osg::Vec3(static_cast<float>(column + x), 0, static_cast<float>(row + z)) * tile);
        }
    }
    const osg::ref_ptr<osg::Geometry> wall = new osg::Geometry;
    wall->setVertexArray(vertices);
    wall->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, static_cast<int>(vertices->size())));
    wall->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(makeGeode(wall));
    return group;
}

/** The pictures of an eye that moves to the right by a millimetre a frame. */
std::vector<osg::ref_ptr<osg::Image>> film(osg::Node& scene, const osg::Vec3d& corner) {
    SceneRenderer renderer(768, 768);
    renderer.setScene(&scene);
    const osg::Vec3d middle = corner + osg::Vec3d(0.5, 0.0, 0.5);
    std::vector<osg::ref_ptr<osg::Image>> pictures;
    for (int frame = 0; frame < frames; ++frame) {
        const osg::Vec3d moved = middle + osg::Vec3d(millimetre * frame, 0.0, 0.0);
        renderer.setView(moved - osg::Vec3d(0.0, distance, 0.0), moved);
        pictures.push_back(renderer.drawPicture(GL_RGB));
    }
    return pictures;
}

/** By how much a pixel differs in the mean, of 255. */
double differenceOf(const osg::Image& one, const osg::Image& other) {
    double sum = 0.0;
    const unsigned int bytes = one.getTotalSizeInBytes();
    for (unsigned int i = 0; i < bytes; ++i) sum += std::abs(int(one.data()[i]) - int(other.data()[i]));
    return sum / bytes;
}

double meanDifference(const std::vector<osg::ref_ptr<osg::Image>>& film,
                      const std::vector<osg::ref_ptr<osg::Image>>& other) {
    double sum = 0.0;
    for (std::size_t i = 0; i < film.size(); ++i) sum += differenceOf(*film[i], *other[i]);
    return sum / static_cast<double>(film.size());
}

/** From one picture to the next. */
double meanStep(const std::vector<osg::ref_ptr<osg::Image>>& film) {
    return meanDifference({film.begin() + 1, film.end()}, {film.begin(), film.end() - 1});
}

double largestStep(const std::vector<osg::ref_ptr<osg::Image>>& film) {
    double largest = 0.0;
    for (std::size_t i = 1; i < film.size(); ++i) largest = std::max(largest, differenceOf(*film[i - 1], *film[i]));
    return largest;
}

/** Keeps the pictures if someone wants to look at them. */
void keep(const std::vector<osg::ref_ptr<osg::Image>>& film, const std::string& name) {
    const char* folder = std::getenv("SCENEUTILS_KEEP_PICTURES");
    if (!folder) return;
    for (std::size_t i = 0; i < film.size(); ++i)
        osgDB::writeImageFile(*film[i], std::string(folder) + "/" + name + std::to_string(i) + ".png");
}

}  // namespace

// What the millimetre alone makes is seen where the same wall stands at the origin.
TEST(RecentrePicture, ADistantModelTremblesAndARecentredOneDoesNot) {
    const osg::ref_ptr<osg::Group> farWall = makeWall(place);
    BubbleUpTransform visitor;

    const auto atOrigin = film(*makeWall(osg::Vec3()), osg::Vec3d());
    const auto untouched = film(*farWall, place);
    const osg::ref_ptr<osg::Group> recentred = visitor.createTransformForGeodes(farWall, 0.0);
    const auto steady = film(*recentred, place);
    keep(atOrigin, "origin");
    keep(untouched, "untouched");
    keep(steady, "recentred");

    std::cout << "mean and largest change of a pixel from frame to frame, of 255: at the origin " << meanStep(atOrigin)
              << ", " << largestStep(atOrigin) << "; untouched " << meanStep(untouched) << ", "
              << largestStep(untouched) << "; recentred " << meanStep(steady) << ", " << largestStep(steady)
              << "\nmean difference from the picture at the origin: untouched " << meanDifference(untouched, atOrigin)
              << "; recentred " << meanDifference(steady, atOrigin) << "\n";
    EXPECT_LT(meanDifference(steady, atOrigin), 0.5);
    EXPECT_GT(meanDifference(untouched, atOrigin), 2.0);
    EXPECT_LT(largestStep(steady), 1.5 * largestStep(atOrigin));
    EXPECT_GT(largestStep(untouched), 3.0 * largestStep(atOrigin));
}
