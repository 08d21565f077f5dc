#pragma once

#include <sceneutils/SimpleGeometryGenerator.h>

#include <osg/LOD>
#include <osg/Vec4f>
#include <osgText/Font>

namespace veltrane::sceneutils {

/** The colours in which one kind of LOD is drawn. */
struct LODColors {
    osg::Vec4f radius;
    osg::Vec4f range;
    osg::Vec4f spokes;
};

extern const LODColors plainLODColors;
extern const LODColors pagedLODColors;

/** The font of labels, looked for when the first one needs it: a search that finds nothing takes long. */
class LabelFont {
public:
    /** Null if it cannot be read: labels have OpenSceneGraph's own font then. */
    osgText::Font* get();

private:
    bool _isRead = false;
    osg::ref_ptr<osgText::Font> _font;
};

/** Draws cubes for an LOD's radius and the ends of all its ranges. */
void drawLOD(const osg::LOD& lod, const LODColors& colors, SimpleGeometryGenerator& generator);

/** Draws squares with labels for an LOD's radius and the end of the range of its child `level`. */
void drawLODLevel(const osg::LOD& lod, unsigned int level, LabelFont& font, SimpleGeometryGenerator& generator);

}  // namespace veltrane::sceneutils
