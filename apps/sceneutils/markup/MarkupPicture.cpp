#include "MarkupPicture.h"

#include <offscreen/Overlay.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>
#include <vector>

namespace veltrane::sceneutils::tool {

namespace {

using offscreen::Overlay;
using offscreen::OverlayLine;
using offscreen::PanelView;

constexpr double margin = 8.0;  // pixels, as all lengths here
constexpr double rowHeight = 18.0;
constexpr double swatchWidth = 24.0;
constexpr double gapBetweenEntries = 24.0;
constexpr double tickHeight = 8.0;
constexpr double filledPart = 0.94;   // of a panel, by what has to fit
constexpr double longestScale = 0.3;  // in widths of a panel
constexpr float boxLine = 2.0f;
constexpr float spokeLine = 1.0f;
constexpr float swatchLine = 4.0f;

const osg::Vec4 paper(0.93f, 0.93f, 0.93f, 1.0f);
const osg::Vec4 ink(0.0f, 0.0f, 0.0f, 1.0f);
const osg::Vec4 panelColor(0.5f, 0.5f, 0.5f, 1.0f);
const osg::Vec4 veil(0.5f, 0.5f, 0.5f, 0.3f);

/** What LODMarkup means by a colour. */
struct Meaning {
    osg::Vec4 color;
    const char* text = "";
    bool isSpoke = false;
};

const std::array<Meaning, 8> meanings = {{{{1, 0, 0, 1}, "radius of an LOD", false},
                                          {{1, 1, 0, 1}, "radius of a paged LOD", false},
                                          {{1, 1, 1, 1}, "LOD without a radius (5)", false},
                                          {{0, 1, 0, 1}, "end of a level of an LOD", false},
                                          {{0, 1, 1, 1}, "end of a level of a paged LOD", false},
                                          {{0, 0, 1, 1}, "spokes of an LOD", true},
                                          {{1, 0, 1, 1}, "spokes of a paged LOD", true},
                                          {{1, 0.5f, 0, 1}, "geode", false}}};

bool isSpoke(const FigureLine& line) {
    return std::any_of(meanings.begin(), meanings.end(),
                       [&](const Meaning& meaning) { return meaning.color == line.color && meaning.isSpoke; });
}

/** A view of the scene in a part of the picture: what is right, up and towards the eye in it. */
struct Panel {
    std::string title;
    osg::Vec3d right;
    osg::Vec3d up;
    PictureArea area;
    osg::Vec3d center;
    double unitsPerPixel = 1.0;

    osg::Vec2d project(const osg::Vec3d& point) const {
        const osg::Vec3d offset = point - center;
        return (area.low + area.high) / 2.0 + osg::Vec2d(offset * right, offset * up) / unitsPerPixel;
    }

    /** Of a view along an axis, against which neither `right` nor `up` point. */
    PictureArea project(const osg::BoundingBoxd& box) const { return {project(box._min), project(box._max)}; }
};

/** One entry of the legend: a line of its colour, if it has one, and a text. */
struct Entry {
    std::string text;
    const Meaning* meaning = nullptr;
    double width = 0.0;
    osg::Vec2d place;  // of its lower left corner
};

std::string asText(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

class MarkupPicture {
public:
    MarkupPicture(osg::Node* scene, const PictureContent& content, int width, int height)
        : _content(content), _width(width), _height(height), _overlay(width, height) {
        const double panelWidth = std::floor((_width - 3.0 * margin) / 2.0);
        _scaleWidth = std::floor(panelWidth * longestScale);
        makeEntries();
        const double legendHeight = arrangeEntries();
        makePanels(panelWidth, legendHeight);
        picture->addChild(makeBackground());
        for (const Panel& panel : _panels) addPanel(scene, panel);
        addLegend();
        picture->addChild(_overlay.camera());
    }

    osg::ref_ptr<osg::Group> picture = new osg::Group;

private:
    void makeEntries() {
        _entries.push_back({"", nullptr, _scaleWidth + gapBetweenEntries + Overlay::widthOf("0.00001 units"), {}});
        for (const Meaning& meaning : meanings) {
            if (!occurs(meaning.color)) continue;
            _entries.push_back({meaning.text, &meaning, swatchWidth + margin + Overlay::widthOf(meaning.text), {}});
        }
        if (_content.leftOut > 0) addNote(noteOfWhatIsLeftOut());
    }

    void addNote(const std::string& text) { _entries.push_back({text, nullptr, Overlay::widthOf(text), {}}); }

    std::string noteOfWhatIsLeftOut() const {
        return "not drawn: " + std::to_string(_content.leftOut) + " that reach " + asText(_content.smallestLeftOut) +
               (_content.leftOut > 1 ? " or more" : "");
    }

    bool occurs(const osg::Vec4& color) const {
        return std::any_of(_content.figures.begin(), _content.figures.end(), [&](const Figure& figure) {
            return std::any_of(figure.lines.begin(), figure.lines.end(),
                               [&](const FigureLine& line) { return line.color == color; });
        });
    }

    /** Row by row from the left, the first row on top. Returns the height of all rows. */
    double arrangeEntries() {
        double x = margin;
        double row = 0.0;
        for (Entry& entry : _entries) {
            if (x > margin && x + entry.width > _width - margin) {
                x = margin;
                ++row;
            }
            entry.place = {x, row};
            x += entry.width + gapBetweenEntries;
        }
        for (Entry& entry : _entries) entry.place.y() = margin + (row - entry.place.y()) * rowHeight;
        return margin + (row + 1.0) * rowHeight;
    }

    void makePanels(double panelWidth, double legendHeight) {
        const osg::Vec3d size = _content.box._max - _content.box._min;
        const double bottom = legendHeight + margin;
        const double top = _height - margin - rowHeight;
        const double needed = std::max({size.x() / panelWidth, size.y() / (top - bottom), size.z() / (top - bottom)});
        Panel panel;
        panel.center = (_content.box._min + _content.box._max) / 2.0;
        panel.unitsPerPixel = needed / filledPart;
        panel.right = osg::X_AXIS;
        panel.title = "from above: x to the right, y up";
        panel.up = osg::Y_AXIS;
        panel.area = {{margin, bottom}, {margin + panelWidth, top}};
        _panels.push_back(panel);
        panel.title = "from the south: x to the right, z up";
        panel.up = osg::Z_AXIS;
        panel.area = {{_width - margin - panelWidth, bottom}, {_width - margin, top}};
        _panels.push_back(panel);
    }

    /** What shows around the panels. */
    osg::ref_ptr<osg::Camera> makeBackground() const {
        PanelView view;
        view.width = static_cast<int>(_width);
        view.height = static_cast<int>(_height);
        return offscreen::makePanel(new osg::Group, view, paper);
    }

    void addPanel(osg::Node* scene, const Panel& panel) {
        PanelView view;
        view.left = static_cast<int>(panel.area.low.x());
        view.bottom = static_cast<int>(panel.area.low.y());
        view.width = static_cast<int>(panel.area.high.x() - panel.area.low.x());
        view.height = static_cast<int>(panel.area.high.y() - panel.area.low.y());
        view.center = panel.center;
        view.up = panel.up;
        view.towardsEye = panel.right ^ panel.up;
        view.unitsPerPixel = panel.unitsPerPixel;
        view.eyeDistance = (_content.box._max - _content.box._min).length();
        picture->addChild(offscreen::makePanel(scene, view, panelColor));

        _overlay.addArea(panel.area.low, panel.area.high, veil);
        addFigures(panel);
        addLabels(panel);
        _overlay.addText(panel.title, {panel.area.low.x(), panel.area.high.y() + (rowHeight - Overlay::textHeight) / 2},
                         ink);
    }

    /** Spokes below the boxes, which they would cross. */
    void addFigures(const Panel& panel) {
        std::vector<OverlayLine> spokes;
        std::vector<OverlayLine> boxes;
        for (const Figure& figure : _content.figures) {
            for (const FigureLine& line : figure.lines) {
                (isSpoke(line) ? spokes : boxes)
                    .push_back({panel.project(line.from), panel.project(line.to), line.color});
            }
        }
        _overlay.addLines(spokes, spokeLine);
        _overlay.addLines(boxes, boxLine);
    }

    void addLabels(const Panel& panel) {
        std::vector<BoxLabel> labels;
        for (const Figure& figure : _content.figures) {
            if (!figure.label.empty()) labels.push_back({figure.label, panel.project(figure.box)});
        }
        for (const PlacedLabel& label : placeLabels(labels, panel.area)) {
            _overlay.addArea(label.area.low, label.area.high, paper);
            _overlay.addText(label.text, label.area.low + osg::Vec2d(3.0, 3.0), ink);
        }
    }

    void addLegend() {
        addScale(_entries.front().place);
        for (auto entry = _entries.begin() + 1; entry != _entries.end(); ++entry) {
            osg::Vec2d place = entry->place;
            if (entry->meaning) {
                _overlay.addArea(place - osg::Vec2d(0.0, 1.0),
                                 place + osg::Vec2d(swatchWidth, Overlay::textHeight + 1.0),
                                 panelColor);  // on which the colour shows as it does in the panels
                const osg::Vec2d middle = place + osg::Vec2d(0.0, Overlay::textHeight / 2.0);
                _overlay.addLines({{middle, middle + osg::Vec2d(swatchWidth, 0.0), entry->meaning->color}}, swatchLine);
                place.x() += swatchWidth + margin;
            }
            _overlay.addText(entry->text, place, ink);
        }
    }

    void addScale(const osg::Vec2d& place) {
        const double unitsPerPixel = _panels.front().unitsPerPixel;
        const double length = roundLength(_scaleWidth * unitsPerPixel);
        const osg::Vec2d left = place + osg::Vec2d(0.0, Overlay::textHeight / 2.0);
        const osg::Vec2d right = left + osg::Vec2d(length / unitsPerPixel, 0.0);
        const osg::Vec2d tick(0.0, tickHeight / 2.0);
        _overlay.addLines({{left, right, ink}, {left - tick, left + tick, ink}, {right - tick, right + tick, ink}},
                          spokeLine);
        _overlay.addText(asText(length) + " units", {right.x() + margin, place.y()}, ink);
    }

    const PictureContent& _content;
    double _width;
    double _height;
    double _scaleWidth = 0.0;
    Overlay _overlay;
    std::vector<Panel> _panels;
    std::vector<Entry> _entries;
};

}  // namespace

osg::ref_ptr<osg::Group> makeMarkupPicture(osg::Node* scene, const PictureContent& content, int width, int height) {
    return MarkupPicture(scene, content, width, height).picture;
}

}  // namespace veltrane::sceneutils::tool
