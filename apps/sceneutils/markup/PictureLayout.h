#pragma once

#include "Figures.h"

#include <osg/BoundingBox>
#include <osg/Vec2d>

#include <cstddef>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** What of a markup is in a picture of it. */
struct PictureContent {
    std::vector<Figure> figures;
    osg::BoundingBoxd box;         ///< around all that the picture has to show; invalid if there is nothing
    std::size_t leftOut = 0;       ///< how many figures are not in the picture because they are too large
    double smallestLeftOut = 0.0;  ///< the reach of the smallest of them
};

/**
 * Leaves out figures that would make the scene a dot: those that reach further than `farthest` radii of the scene's
 * box, or, if the scene has no extent, of the smallest figure.
 */
PictureContent selectFigures(const std::vector<Figure>& figures, const osg::BoundingBoxd& scene, double farthest);

/** The longest length of the form 1, 2 or 5 times a power of ten that is not longer than `longest`, which is greater
 * than 0. */
double roundLength(double longest);

/** An area of a picture, in pixels from its lower left corner. */
struct PictureArea {
    osg::Vec2d low;
    osg::Vec2d high;

    bool overlaps(const PictureArea& other) const;
    bool contains(const PictureArea& other) const;
};

/** A text and the box in the picture that it belongs to. */
struct BoxLabel {
    std::string text;
    PictureArea box;
};

/** A text with its place. */
struct PlacedLabel {
    std::string text;
    PictureArea area;
};

/**
 * Finds places for labels at the corners of their boxes where they hide no other label; of larger boxes first. What
 * finds no place is left out. A text that several boxes have appears at three of them, and once at the same place.
 * @param panel in which all labels have to be
 */
std::vector<PlacedLabel> placeLabels(std::vector<BoxLabel> labels, const PictureArea& panel);

}  // namespace veltrane::sceneutils::tool
