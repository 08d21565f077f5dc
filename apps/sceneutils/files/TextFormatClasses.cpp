#include "TextFormatClasses.h"

#include <osgDB/DotOsgWrapper>
#include <osgDB/Output>
#include <osgDB/Registry>

#include <ostream>
#include <set>
#include <streambuf>

namespace veltrane::sceneutils::tool {

namespace {

/** Takes all that is written, and keeps nothing. */
class Nowhere : public std::streambuf {
protected:
    int_type overflow(int_type byte) override { return traits_type::not_eof(byte); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// Nothing tells what the writer knows but to let it write: an object of the class without any content.
bool canBeWritten(const osg::Object& object) {
    const osg::ref_ptr<osg::Object> empty = object.cloneType();
    if (!empty) return false;
    Nowhere nowhere;
    osgDB::Output output;
    static_cast<std::ios&>(output).rdbuf(&nowhere);
    return osgDB::Registry::instance()->getDeprecatedDotOsgObjectWrapperManager()->writeObject(*empty, output);
}

class ClassCheck : public osg::NodeVisitor {
public:
    ClassCheck() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    using osg::NodeVisitor::apply;

    void apply(osg::Node& node) override {
        if (!_seen.insert(&node).second) return;
        check(node);
        if (node.getStateSet()) check(*node.getStateSet());
        traverse(node);
    }

    std::string unknown;

private:
    void check(const osg::StateSet& stateSet) {
        if (!_seen.insert(&stateSet).second) return;
        for (const auto& [type, attribute] : stateSet.getAttributeList()) check(*attribute.first);
        for (const osg::StateSet::AttributeList& unit : stateSet.getTextureAttributeList()) {
            for (const auto& [type, attribute] : unit) check(*attribute.first);
        }
    }

    void check(const osg::Object& object) {
        const std::string name = object.getCompoundClassName();
        if (_checked.insert(name).second && unknown.empty() && !canBeWritten(object)) unknown = name;
    }

    std::set<const osg::Object*> _seen;
    std::set<std::string> _checked;
};

}  // namespace

std::string classUnknownToTextFormat(osg::Node& graph) {
    ClassCheck check;
    graph.accept(check);
    return check.unknown;
}

}  // namespace veltrane::sceneutils::tool
