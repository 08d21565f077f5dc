#pragma once

#include <osg/Image>

#include <filesystem>

namespace veltrane::sceneutils::benchmarks {

/** In percent of all pixels. */
struct PictureComparison {
    double drawn = 0.0;    ///< of the first picture: are not of the colour of an empty one
    double differs = 0.0;  ///< one of the three colours differs by more than rounding and lighting make of it
    double mean = 0.0;     ///< of all differences, in percent of the whole range of a colour
};

/** Compares pictures of one size, three bytes a pixel. @throws std::runtime_error if one cannot be read */
PictureComparison comparePictures(const std::filesystem::path& picture, const std::filesystem::path& other);

/** @throws std::runtime_error if it cannot be written */
void writePicture(const osg::Image& picture, const std::filesystem::path& file);

}  // namespace veltrane::sceneutils::benchmarks
