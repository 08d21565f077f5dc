#include "FramePictures.h"

#include <osg/ref_ptr>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>

namespace fs = std::filesystem;

namespace veltrane::sceneutils::benchmarks {

namespace {

constexpr std::size_t channels = 3;
constexpr int mostRounding = 8;  // of 255
constexpr double wholeRange = 255.0;
constexpr double percent = 100.0;

using Color = std::array<int, channels>;

// What OpenSceneGraph's cameras clear with: (0.2, 0.2, 0.4).
constexpr Color background = {51, 51, 102};

Color colorAt(const osg::Image& picture, int column, int row) {
    const unsigned char* const data = picture.data(static_cast<unsigned int>(column), static_cast<unsigned int>(row));
    return {data[0], data[1], data[2]};
}

osg::ref_ptr<osg::Image> readPicture(const fs::path& file) {
    osg::ref_ptr<osg::Image> picture = osgDB::readRefImageFile(file.string());
    if (!picture || picture->getPixelSizeInBits() != 8 * channels)
        throw std::runtime_error(file.string() + ": is no picture of three bytes a pixel");
    return picture;
}

}  // namespace

PictureComparison comparePictures(const fs::path& picture, const fs::path& other) {
    const osg::ref_ptr<osg::Image> left = readPicture(picture), right = readPicture(other);
    double drawn = 0.0, inEither = 0.0, differing = 0.0, sum = 0.0;
    for (int row = 0; row < left->t(); ++row) {
        for (int column = 0; column < left->s(); ++column) {
            const Color one = colorAt(*left, column, row), two = colorAt(*right, column, row);
            if (one != background) drawn += 1.0;
            if (one == background && two == background) continue;
            inEither += 1.0;
            int largest = 0;
            for (std::size_t i = 0; i < channels; ++i) {
                const int difference = std::abs(one[i] - two[i]);
                largest = std::max(largest, difference);
                sum += difference;
            }
            if (largest > mostRounding) differing += 1.0;
        }
    }
    if (inEither == 0.0) return {};
    const double pixels = static_cast<double>(left->s()) * left->t();
    return {percent * drawn / pixels, percent * differing / inEither,
            percent * sum / (inEither * channels * wholeRange)};
}

void writePicture(const osg::Image& picture, const fs::path& file) {
    if (!osgDB::writeImageFile(picture, file.string())) throw std::runtime_error(file.string() + ": cannot be written");
}

}  // namespace veltrane::sceneutils::benchmarks
