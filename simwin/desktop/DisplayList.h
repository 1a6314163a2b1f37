// What a window or a bitmap shows, item by item in the order of drawing: the machine has no pixels. Read by tests and
// by the rehearsal, which judges texts, places and colours and makes pictures of them.
#pragma once

#include "simwin/kernel/types.h"

#include <cstdint>
#include <string>
#include <vector>

namespace machine {

enum class DrawnKind : std::uint8_t { Fill, Frame, Text, Icon, Theme, Control };

struct DrawnItem {
    DrawnKind kind = DrawnKind::Fill;
    simwin::RECT place{}; // pixels of what is drawn on, the right and lower edge excluded
    simwin::COLORREF colour = 0;
    std::string text;
    simwin::LONG fontHeight = 0; // pixels, positive
    bool isBold = false;
    bool endsRight = false;    // drawn flush right
    int resource = 0;          // an icon's group
    int part = 0, state = 0;   // of a theme
    simwin::LONG diameter = 0; // of the corners
};
using DisplayList = std::vector<DrawnItem>;

// A rectangle with round corners, as windows and outlines have them.
struct RoundShape {
    simwin::RECT rect{};
    simwin::LONG diameter = 0;
    bool Contains(simwin::POINT point) const;
};

// What texts measure: a font of height -h has characters of width (h + 1) / 2 and lines of h * 4 / 3 pixels.
simwin::SIZE TextSize(const std::string& text, simwin::LONG fontHeight);

} // namespace machine
