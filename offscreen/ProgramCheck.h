#pragma once

#include "OffscreenContext.h"

#include <osg/Node>
#include <osg/Program>
#include <osg/ref_ptr>

#include <string>
#include <vector>

namespace veltrane::sceneutils::offscreen {

/** A program that cannot be used, and why. */
struct ProgramFailure {
    osg::ref_ptr<const osg::Program> program;
    std::string name;  ///< the program's; may be empty
    std::string log;   ///< what the driver says, shader by shader; lines end in '\n', never empty
};

/**
 * Compiles and links programs as drawing would, but without drawing, and returns those that fail, in the given order.
 *
 * The context is current afterwards, and the programs stay compiled in it: what was checked is not compiled again when
 * it is drawn there, and what was drawn there is not compiled again here. Texts that depend on state defines are
 * checked without any. Programs without shaders stand for fixed-function state and do not fail. OpenSceneGraph's own
 * messages about failures are kept back meanwhile, those of other threads too.
 *
 * @param programs none may be null
 */
std::vector<ProgramFailure> checkPrograms(OffscreenContext& context,
                                          const std::vector<osg::ref_ptr<const osg::Program>>& programs);

/** The same for every program of a graph, each once, in the order in which a walk first meets them. */
std::vector<ProgramFailure> checkPrograms(OffscreenContext& context, osg::Node& graph);

/** The programs on the state sets of a graph, hidden nodes and drawables included, each once, as a walk meets them. */
std::vector<osg::ref_ptr<const osg::Program>> findPrograms(osg::Node& graph);

}  // namespace veltrane::sceneutils::offscreen
