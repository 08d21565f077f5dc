#pragma once

#include <osg/Image>
#include <osg/ref_ptr>
#include <osgDB/WriteFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

/** What tests want to know of pictures: RGBA, 8 bits each, the lowest row first. */
namespace testing_support {

/** Red, green, blue; 0 to 255. */
using Rgb = std::array<int, 3>;

constexpr Rgb red{255, 0, 0};
constexpr Rgb green{0, 255, 0};
constexpr Rgb blue{0, 0, 255};

/** The colour that OpenSceneGraph's cameras clear with: (0.2, 0.2, 0.4). */
constexpr Rgb background{51, 51, 102};

/** The colour at column x and row y, counted from the lower left corner. */
inline Rgb pixelAt(const osg::Image& picture, int x, int y) {
    const unsigned char* data = picture.data(static_cast<unsigned>(x), static_cast<unsigned>(y));
    return {data[0], data[1], data[2]};
}

inline Rgb centerOf(const osg::Image& picture) {
    return pixelAt(picture, picture.s() / 2, picture.t() / 2);
}

/** The transparency, 0 to 255, at column x and row y. */
inline int alphaAt(const osg::Image& picture, int x, int y) {
    return picture.data(static_cast<unsigned>(x), static_cast<unsigned>(y))[3];
}

/** Does something with each pixel's column and row. */
template <typename Function>
void forEachPixel(const osg::Image& picture, Function function) {
    for (int y = 0; y < picture.t(); ++y) {
        for (int x = 0; x < picture.s(); ++x) function(x, y);
    }
}

/** How many colours there are. */
inline std::size_t countColors(const osg::Image& picture) {
    std::set<Rgb> colors;
    forEachPixel(picture, [&](int x, int y) { colors.insert(pixelAt(picture, x, y)); });
    return colors.size();
}

/** The part of the pixels that are not of that colour, 0 to 1. */
inline double partOtherThan(const Rgb& color, const osg::Image& picture) {
    int count = 0;
    forEachPixel(picture, [&](int x, int y) { count += pixelAt(picture, x, y) != color ? 1 : 0; });
    return static_cast<double>(count) / (picture.s() * picture.t());
}

/** The mean of red, green and blue over all pixels, 0 to 255. */
inline double brightnessOf(const osg::Image& picture) {
    double sum = 0.0;
    forEachPixel(picture, [&](int x, int y) {
        for (const int channel : pixelAt(picture, x, y)) sum += channel;
    });
    return sum / (3.0 * picture.s() * picture.t());
}

/** How two pictures of one size differ in red, green and blue. */
struct PictureDifference {
    double mean = 0.0;  ///< of the absolute differences of all channels of all pixels, 0 to 255
    int largest = 0;    ///< of one channel of one pixel, 0 to 255
    int pixels = 0;     ///< how many pixels differ at all
};

inline std::ostream& operator<<(std::ostream& out, const PictureDifference& difference) {
    return out << "mean " << difference.mean << ", largest " << difference.largest << ", " << difference.pixels
               << " pixels";
}

inline PictureDifference differenceOf(const osg::Image& left, const osg::Image& right) {
    PictureDifference difference;
    double sum = 0.0;
    forEachPixel(left, [&](int x, int y) {
        const Rgb one = pixelAt(left, x, y);
        const Rgb other = pixelAt(right, x, y);
        if (one != other) ++difference.pixels;
        for (std::size_t i = 0; i < one.size(); ++i) {
            const int channel = std::abs(one[i] - other[i]);
            sum += channel;
            difference.largest = std::max(difference.largest, channel);
        }
    });
    difference.mean = sum / (3.0 * left.s() * left.t());
    return difference;
}

/** Pictures of one size beside each other, without transparency. */
inline osg::ref_ptr<osg::Image> sideBySide(const std::vector<osg::ref_ptr<osg::Image>>& pictures) {
    const int width = pictures.front()->s();
    const int height = pictures.front()->t();
    osg::ref_ptr<osg::Image> all = new osg::Image;
    all->allocateImage(width * static_cast<int>(pictures.size()), height, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        forEachPixel(*pictures[i], [&](int x, int y) {
            const unsigned int column = static_cast<unsigned>(static_cast<int>(i) * width + x);
            std::copy_n(pictures[i]->data(static_cast<unsigned>(x), static_cast<unsigned>(y)), 3,
                        all->data(column, static_cast<unsigned>(y)));
        });
    }
    return all;
}

/**
 * The pictures of one test. At the end of the scope they are written, side by side, to NAME.png in the folder that the
 * environment variable SCENEUTILS_PICTURES names; where a test fails without it, to the folder for temporary files.
 */
class ShownPictures {
public:
    explicit ShownPictures(std::string name) : _name(std::move(name)) {}
    ~ShownPictures() {
        const char* folder = std::getenv("SCENEUTILS_PICTURES");
        if (_pictures.empty() || (!folder && !testing::Test::HasFailure())) return;
        const std::filesystem::path path =
            (folder ? std::filesystem::path(folder) : std::filesystem::temp_directory_path() / "sceneutils-pictures") /
            (_name + ".png");
        std::error_code ignored;
        std::filesystem::create_directories(path.parent_path(), ignored);
        osgDB::writeImageFile(*sideBySide(_pictures), path.string());
        std::cout << "picture: " << path.string() << "\n";
    }
    ShownPictures(const ShownPictures&) = delete;
    ShownPictures& operator=(const ShownPictures&) = delete;

    /** Takes a picture in, to the right of the others, and gives it back. */
    osg::ref_ptr<osg::Image> add(osg::ref_ptr<osg::Image> picture) {
        _pictures.push_back(picture);
        return picture;
    }

private:
    std::string _name;
    std::vector<osg::ref_ptr<osg::Image>> _pictures;
};

}  // namespace testing_support
