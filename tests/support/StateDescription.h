#pragma once

#include <osg/StateSet>

#include <map>
#include <string>

namespace testing_support {

/**
 * Puts state sets into words, so that those of two graphs can be compared.
 *
 * Objects are numbered in the order in which they are first met, whatever their addresses: two graphs have the same
 * description if they hold the same values and share the same objects in the same places.
 */
class StateDescription {
public:
    /** A number for an object; 0 for null. Holds the object, so that no other gets its address. */
    std::string numberOf(const osg::Referenced* object);

    /** The state set's number and content. */
    std::string of(const osg::StateSet& state);

    /** Modes, attributes and uniforms with their override values, and what each of those holds. */
    std::string contentOf(const osg::StateSet& state);

    /** The parents of everything that `of` lists. */
    std::string parentsIn(const osg::StateSet& state);

private:
    std::string contentOf(const osg::StateSet::AttributeList& attributes);
    std::string parentsIn(const osg::StateSet::AttributeList& attributes);

    std::map<osg::ref_ptr<const osg::Referenced>, std::size_t> _numbers;
};

}  // namespace testing_support
