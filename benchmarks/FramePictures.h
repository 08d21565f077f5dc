#pragma once

#include <osg/Image>

#include <filesystem>

namespace veltrane::sceneutils::benchmarks {

/** In percent. Only pixels count that something was drawn to in either picture. */
struct PictureComparison {
    double drawn = 0.0;    ///< pixels of the first picture, of all pixels
    double differs = 0.0;  ///< pixels one of whose colours differs by more than 8 of 255
    double mean = 0.0;     ///< difference of a colour on average, of its whole range
};

/** Compares pictures of one size, three bytes a pixel. @throws std::runtime_error if one cannot be read */
PictureComparison comparePictures(const std::filesystem::path& picture, const std::filesystem::path& other);

/** @throws std::runtime_error if it cannot be written */
void writePicture(const osg::Image& picture, const std::filesystem::path& file);

}  // namespace veltrane::sceneutils::benchmarks
