#include "PictureLayout.h"

#include <offscreen/Overlay.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace veltrane::sceneutils::tool {

namespace {

using offscreen::Overlay;

constexpr int mostLabelsOfOneText = 3;
constexpr double gap = 3.0;  // pixels between a label's letters and what is beside them

double radiusOf(const osg::BoundingBoxd& box) {
    return box.valid() ? (box._max - box._min).length() / 2.0 : 0.0;
}

double smallestReach(const std::vector<Figure>& figures) {
    double smallest = std::numeric_limits<double>::infinity();
    for (const Figure& figure : figures) {
        if (figure.reach() > 0.0) smallest = std::min(smallest, figure.reach());
    }
    return smallest;
}

PictureArea areaFor(const std::string& text, const osg::Vec2d& low) {
    return {low, low + osg::Vec2d(Overlay::widthOf(text) + 2.0 * gap, Overlay::textHeight + 2.0 * gap)};
}

/** Inside the box's upper left corner, above it, inside the lower left corner, below it, and the same on the right. */
std::array<PictureArea, 8> placesFor(const BoxLabel& label) {
    const osg::Vec2d size = areaFor(label.text, {}).high;
    const double left = label.box.low.x();
    const double right = label.box.high.x() - size.x();
    const double top = label.box.high.y();
    const double bottom = label.box.low.y();
    const auto at = [&](double x, double y) { return areaFor(label.text, {std::floor(x), std::floor(y)}); };
    return {at(left, top - size.y()),  at(left, top),  at(left, bottom),  at(left, bottom - size.y()),
            at(right, top - size.y()), at(right, top), at(right, bottom), at(right, bottom - size.y())};
}

/** Whether a label says nothing new: its text stands there already, or at enough other boxes. */
bool isSaid(const BoxLabel& label, const std::vector<BoxLabel>& done) {
    const auto hasText = [&](const BoxLabel& other) { return other.text == label.text; };
    const auto isSameBox = [&](const BoxLabel& other) {
        return hasText(other) && (other.box.low - label.box.low).length() < 1.0 &&
               (other.box.high - label.box.high).length() < 1.0;
    };
    return std::count_if(done.begin(), done.end(), hasText) >= mostLabelsOfOneText ||
           std::any_of(done.begin(), done.end(), isSameBox);
}

}  // namespace

bool PictureArea::overlaps(const PictureArea& other) const {
    return low.x() < other.high.x() && other.low.x() < high.x() && low.y() < other.high.y() && other.low.y() < high.y();
}

bool PictureArea::contains(const PictureArea& other) const {
    return low.x() <= other.low.x() && low.y() <= other.low.y() && high.x() >= other.high.x() &&
           high.y() >= other.high.y();
}

PictureContent selectFigures(const std::vector<Figure>& figures, const osg::BoundingBoxd& scene, double farthest) {
    const double radius = radiusOf(scene);
    const double limit = farthest * (radius > 0.0 ? radius : smallestReach(figures));
    PictureContent content;
    content.box = scene;
    content.smallestLeftOut = std::numeric_limits<double>::infinity();
    for (const Figure& figure : figures) {
        const double reach = figure.reach();
        if (std::isfinite(reach) && reach <= limit) {
            content.figures.push_back(figure);
            content.box.expandBy(figure.box);
        } else {
            ++content.leftOut;
            content.smallestLeftOut = std::min(content.smallestLeftOut, reach);
        }
    }
    return content;
}

double roundLength(double longest) {
    const double power = std::pow(10.0, std::floor(std::log10(longest)));
    for (const double factor : {5.0, 2.0}) {
        if (factor * power <= longest) return factor * power;
    }
    return power;
}

std::vector<PlacedLabel> placeLabels(std::vector<BoxLabel> labels, const PictureArea& panel) {
    std::stable_sort(labels.begin(), labels.end(), [](const BoxLabel& one, const BoxLabel& other) {
        return (one.box.high - one.box.low).length() > (other.box.high - other.box.low).length();
    });
    std::vector<PlacedLabel> placed;
    std::vector<BoxLabel> done;
    for (const BoxLabel& label : labels) {
        if (isSaid(label, done)) continue;
        for (const PictureArea& place : placesFor(label)) {
            const bool hides = std::any_of(placed.begin(), placed.end(),
                                           [&](const PlacedLabel& other) { return other.area.overlaps(place); });
            if (hides || !panel.contains(place)) continue;
            placed.push_back({label.text, place});
            done.push_back(label);
            break;
        }
    }
    return placed;
}

}  // namespace veltrane::sceneutils::tool
