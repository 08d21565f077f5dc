#include "ChildReplacer.h"

namespace veltrane::sceneutils {

namespace {

constexpr unsigned int searchableSize = 16;  // children; below, a search costs less than a table

}  // namespace

bool ChildReplacer::replace(osg::Group& parent, osg::Node& child, osg::Node& replacement) {
    if (parent.getNumChildren() < searchableSize) return parent.replaceChild(&child, &replacement);

    Places& places = placesIn(parent);
    const auto found = places.find(&child);
    if (found == places.end() || found->second.empty()) return false;
    const unsigned int index = found->second.back();
    found->second.pop_back();
    return parent.setChild(index, &replacement);
}

void ChildReplacer::replaceAll(osg::Group& parent, osg::Node& child, osg::Node& replacement) {
    while (replace(parent, child, replacement)) {
    }
}

ChildReplacer::Places& ChildReplacer::placesIn(osg::Group& parent) {
    Table& table = _tables[&parent];
    if (table.parent.valid()) return table.places;

    table.parent = &parent;
    table.places.clear();
    table.places.reserve(parent.getNumChildren());
    for (unsigned int i = parent.getNumChildren(); i-- > 0;) table.places[parent.getChild(i)].push_back(i);
    return table.places;
}

}  // namespace veltrane::sceneutils
