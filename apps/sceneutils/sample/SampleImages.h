#pragma once

#include "SampleNoise.h"

#include <osg/Image>
#include <osg/Vec4d>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>

/** The pictures of a sample database: every texture is one of a few kinds, in as many variants as are asked for. */
namespace veltrane::sceneutils::tool::sample {

/** In the order in which a database with few textures gets them. */
enum class ImageKind : unsigned { Grass, Facade, Sign, Door, Tree, Rock };

struct ImageKindTraits {
    const char* name;
    int size;         ///< width and height in pixels
    bool hasAlpha;    ///< with see-through parts
    bool isRepeated;  ///< tiles without a seam, and is meant to
};

inline constexpr std::array<ImageKindTraits, 6> imageKinds = {{{"grass", 128, false, true},
                                                               {"facade", 128, false, true},
                                                               {"sign", 32, false, false},
                                                               {"door", 32, false, false},
                                                               {"tree", 64, true, false},
                                                               {"rock", 256, false, true}}};

inline const ImageKindTraits& traitsOf(ImageKind kind) {
    return imageKinds[static_cast<unsigned>(kind)];
}

/** Paints one picture; x and y run from 0 to 1 over it. */
class ImagePainter {
public:
    ImagePainter(ImageKind kind, std::uint64_t seed) : _kind(kind), _seed(seed), _tint(tintOf(seed)) {}

    osg::Vec4d colorAt(double x, double y) const {
        switch (_kind) {
            case ImageKind::Grass:
                return shaded(osg::Vec4d(0.35, 0.55, 0.22, 1.0), 0.5 + 0.5 * grain(x, y, 16));
            case ImageKind::Rock:
                return shaded(osg::Vec4d(0.62, 0.58, 0.54, 1.0), 0.4 + 0.4 * grain(x, y, 8) + 0.2 * grain(x, y, 64));
            case ImageKind::Facade:
                return facadeAt(x, y);
            case ImageKind::Sign:
                return signAt(x, y);
            case ImageKind::Door:
                return doorAt(x, y);
            case ImageKind::Tree:
                return treeAt(x, y);
        }
        return osg::Vec4d(1.0, 0.0, 1.0, 1.0);
    }

private:
    static osg::Vec4d tintOf(std::uint64_t seed) {
        Dice dice(seed);
        const double red = dice.between(0.75, 1.0);
        const double green = dice.between(0.75, 1.0);
        return osg::Vec4d(red, green, dice.between(0.75, 1.0), 1.0);
    }

    static bool isWithin(double value, double low, double high) { return value >= low && value < high; }

    double grain(double x, double y, std::int64_t cells) const {
        const auto scale = static_cast<double>(cells);
        return smoothNoise(_seed, x * scale, y * scale, cells);
    }

    osg::Vec4d shaded(const osg::Vec4d& color, double light) const {
        const osg::Vec4d tinted = osg::componentMultiply(color, _tint) * light;
        return osg::Vec4d(tinted.x(), tinted.y(), tinted.z(), color.w());
    }

    osg::Vec4d facadeAt(double x, double y) const {
        constexpr double windows = 4.0;
        const double column = std::floor(x * windows);
        const double floor = std::floor(y * windows);
        const bool inWindow = isWithin(x * windows - column, 0.25, 0.75) && isWithin(y * windows - floor, 0.3, 0.8);
        if (!inWindow) return shaded(osg::Vec4d(0.85, 0.78, 0.68, 1.0), 0.8 + 0.2 * grain(x, y, 32));
        const bool isLit = scramble(seedOf(_seed, static_cast<std::uint64_t>(floor * windows + column))) % 3 == 0;
        return isLit ? osg::Vec4d(0.98, 0.88, 0.5, 1.0) : osg::Vec4d(0.18, 0.24, 0.34, 1.0);
    }

    osg::Vec4d signAt(double x, double y) const {
        if (!isWithin(x, 0.1, 0.9) || !isWithin(y, 0.1, 0.9)) return osg::Vec4d(0.95, 0.95, 0.95, 1.0);
        const bool isStripe = static_cast<int>(std::floor(y * 8.0)) % 2 == 0 && isWithin(x, 0.2, 0.8);
        return isStripe ? osg::Vec4d(0.95, 0.95, 0.95, 1.0) : shaded(osg::Vec4d(0.1, 0.25, 0.7, 1.0), 1.0);
    }

    osg::Vec4d doorAt(double x, double y) const {
        const bool isKnob = isWithin(x, 0.8, 0.9) && isWithin(y, 0.45, 0.55);
        if (isKnob) return osg::Vec4d(0.9, 0.8, 0.3, 1.0);
        const bool isPanel = isWithin(x, 0.2, 0.7) && (isWithin(y, 0.1, 0.45) || isWithin(y, 0.55, 0.9));
        return shaded(osg::Vec4d(0.5, 0.3, 0.18, 1.0), isPanel ? 0.7 : 1.0);
    }

    osg::Vec4d treeAt(double x, double y) const {
        const double acrossCrown = (x - 0.5) / 0.42;
        const double upCrown = (y - 0.62) / 0.34;
        const double leaves = grain(x, y, 16);
        if (acrossCrown * acrossCrown + upCrown * upCrown + 0.5 * leaves < 1.0)
            return shaded(osg::Vec4d(0.2, 0.5, 0.16, 1.0), 0.6 + 0.4 * leaves);
        const bool isTrunk = isWithin(x, 0.45, 0.55) && y < 0.5;
        return shaded(osg::Vec4d(0.4, 0.28, 0.16, isTrunk ? 1.0 : 0.0), 1.0);
    }

    ImageKind _kind;
    std::uint64_t _seed;
    osg::Vec4d _tint;
};

/** The picture of that kind that belongs to that seed. */
inline osg::ref_ptr<osg::Image> makeImage(ImageKind kind, std::uint64_t seed) {
    const ImageKindTraits& traits = traitsOf(kind);
    const ImagePainter painter(kind, seed);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(traits.size, traits.size, 1, traits.hasAlpha ? GL_RGBA : GL_RGB, GL_UNSIGNED_BYTE);
    for (int row = 0; row < traits.size; ++row)
        for (int column = 0; column < traits.size; ++column) {
            const osg::Vec4d color = painter.colorAt((column + 0.5) / traits.size, (row + 0.5) / traits.size);
            unsigned char* pixel = image->data(static_cast<unsigned>(column), static_cast<unsigned>(row));
            for (unsigned channel = 0; channel < (traits.hasAlpha ? 4u : 3u); ++channel)
                pixel[channel] = static_cast<unsigned char>(std::lround(std::clamp(color[channel], 0.0, 1.0) * 255.0));
        }
    return image;
}

}  // namespace veltrane::sceneutils::tool::sample
