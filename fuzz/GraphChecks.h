#pragma once

#include <osg/Group>
#include <osg/Vec3d>
#include <osg/observer_ptr>

#include <string>
#include <vector>

namespace fuzzing {

/** Something that a graph shows, in the world's coordinates. */
struct Place {
    enum class What { Vertex, Billboard, Light, Text };

    What what;
    osg::Node::NodeMask mask;  ///< what all masks on the way to it leave
    osg::Vec3d point;

    bool operator<(const Place& other) const;
};

/** All places of a graph, once for each path that leads to them, in the order of the paths. */
std::vector<Place> placesOf(osg::Node& root);

/** Throws BrokenPromise with the first of some sorted places that is not among the others. */
void promiseNoneLost(const std::vector<Place>& before, const std::vector<Place>& after);

/** Each node of a graph once, parents before children, whatever masks and switches say. */
std::vector<osg::Node*> nodesOf(osg::Node& root);

/** That there are no circles, that parents and children know of each other, and that nobody else is called a parent. */
void checkStructure(osg::Group& top);

/** That no bound is older than what it is the bound of. Only for graphs whose numbers are numbers. */
void checkBounds(osg::Node& root);

/** Sees to it that all bounds are known, so that one that is not renewed is noticed. */
void computeBounds(osg::Node& root);

/** The state sets of nodes and drawables that a node may have, with what is in them by value; to be compared. */
std::string describeStates(osg::Node& root);

/** Names, kinds and order of all nodes, with their places; to be compared. */
std::string describe(osg::Node& root);

/** All nodes of a graph, to see afterwards that all are gone. */
std::vector<osg::observer_ptr<osg::Node>> observe(osg::Node& root);

}  // namespace fuzzing
