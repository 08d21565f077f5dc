#pragma once

#include "OffscreenContext.h"

#include <osg/BoundingBox>
#include <osg/Image>
#include <osg/Node>
#include <osg/Vec3d>
#include <osg/ref_ptr>
#include <osgViewer/Viewer>

#include <functional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::offscreen {

class TilePager;

/** The box around all drawables of a scene that no node mask hides, and around the spheres of tiles that are not
 * loaded. Invalid if there is nothing. */
osg::BoundingBox extentOf(osg::Node* scene);

/**
 * Draws graphs as a viewer shows them, with a headlight and OpenSceneGraph's settings, into pictures.
 *
 * What it draws depends on the graph alone: the simulation time stands still at 0, and tiles are loaded when it is
 * asked to. Use it on one thread.
 */
class SceneRenderer {
public:
    /** The vertical angle of view, in degrees. */
    static constexpr double fieldOfView = 30.0;

    /**
     * @param width,height of the pictures in pixels, at least 1
     * @throws OffscreenError if there is no driver, or none for pictures of that size
     */
    SceneRenderer(int width, int height);
    ~SceneRenderer();
    SceneRenderer(const SceneRenderer&) = delete;
    SceneRenderer& operator=(const SceneRenderer&) = delete;

    /** Sets what is done to each tile when it is loaded; in another thread, before the tile is drawn. */
    void setTilePreparation(std::function<void(osg::Node&)> prepare);

    /** Sets what is drawn and looks at it as setHomeView() does. @param scene null: nothing */
    void setScene(osg::Node* scene);

    /** Puts the eye at `eye`, looking at `target`; both must differ. Up is z, or y when the line of sight is along z.
     */
    void setView(const osg::Vec3d& eye, const osg::Vec3d& target);

    /** Looks at all of the scene from the south (-y), 30 degrees above it. False, and no change, if it has no
     * extent or one that is not finite. */
    bool setHomeView();

    /** Lights the scene by a sun in the south-west, 44 degrees high, in place of the headlight. */
    void setSunlight();

    /** Draws once. */
    void drawFrame();

    /** Waits until the driver has drawn all of what it was told to. */
    void waitForDriver();

    /**
     * Draws once and returns the picture: 8 bits a channel, the lowest row first.
     * @param format GL_RGBA or GL_RGB
     */
    osg::ref_ptr<osg::Image> drawPicture(GLenum format = GL_RGBA);

    /**
     * Draws until all the tiles that this view shows are loaded. Without this call none is.
     * @return the names of those that could not be, each once
     */
    std::vector<std::string> loadTiles();

    /** The tiles that loadTiles() left out because they hang below themselves, each once: they would never end. */
    const std::vector<std::string>& tilesBelowThemselves() const;

    const OffscreenContext& context() const { return *_context; }

    /** The viewer that does the work, for what has no operation here. */
    osgViewer::Viewer& viewer() { return _viewer; }

private:
    osg::ref_ptr<OffscreenContext> _context;
    osg::ref_ptr<TilePager> _pager;
    osgViewer::Viewer _viewer;
};

}  // namespace veltrane::sceneutils::offscreen
