#pragma once

#include "support/Pictures.h"

#include <osg/Image>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

/** Where pictures differ. */
namespace testing_support {

/** By how much the channel that differs most does. */
inline int differenceAt(const osg::Image& left, const osg::Image& right, int x, int y) {
    const Rgb one = pixelAt(left, x, y);
    const Rgb other = pixelAt(right, x, y);
    int difference = 0;
    for (std::size_t i = 0; i < one.size(); ++i) difference = std::max(difference, std::abs(one[i] - other[i]));
    return difference;
}

/** The pixels of two pictures of one size that differ by more than a tolerance, of 255. */
class DifferentPixels {
public:
    DifferentPixels(const osg::Image& left, const osg::Image& right, int tolerance = 0)
        : _width(left.s()), _height(left.t()) {
        forEachPixel(left, [&](int x, int y) { _differs.push_back(differenceAt(left, right, x, y) > tolerance); });
    }

    /** How many pixels the largest cluster has; those that touch at a side or a corner are of one cluster. */
    int largestCluster() const {
        std::vector<bool> open = _differs;
        int largest = 0;
        for (int y = 0; y < _height; ++y) {
            for (int x = 0; x < _width; ++x) largest = std::max(largest, takeCluster(x, y, open));
        }
        return largest;
    }

private:
    struct Pixel {
        int x, y;
    };

    /** Empties the cluster around a pixel and returns its size. */
    int takeCluster(int x, int y, std::vector<bool>& open) const {
        std::vector<Pixel> found;
        take(x, y, open, found);
        for (std::size_t i = 0; i < found.size(); ++i) {
            const Pixel pixel = found[i];
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) take(pixel.x + dx, pixel.y + dy, open, found);
            }
        }
        return static_cast<int>(found.size());
    }

    void take(int x, int y, std::vector<bool>& open, std::vector<Pixel>& found) const {
        if (x < 0 || x >= _width || y < 0 || y >= _height) return;
        const auto index = static_cast<std::size_t>(y * _width + x);
        if (!open[index]) return;
        open[index] = false;
        found.push_back({x, y});
    }

    int _width;
    int _height;
    std::vector<bool> _differs;  ///< row by row
};

/** White where two pictures differ, black elsewhere: to be looked at. */
inline osg::ref_ptr<osg::Image> makeDifferencePicture(const osg::Image& left, const osg::Image& right) {
    osg::ref_ptr<osg::Image> picture = new osg::Image;
    picture->allocateImage(left.s(), left.t(), 1, GL_RGB, GL_UNSIGNED_BYTE);
    forEachPixel(left, [&](int x, int y) {
        const unsigned char shade = pixelAt(left, x, y) == pixelAt(right, x, y) ? 0 : 255;
        std::fill_n(picture->data(static_cast<unsigned>(x), static_cast<unsigned>(y)), 3, shade);
    });
    return picture;
}

}  // namespace testing_support
