#include "rehearse/report/Pictures.h"

#include "rehearse/description/Description.h"
#include "rehearse/host/Durations.h"
#include "rehearse/host/Files.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/drawing/IconPixels.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/sessions/Sessions.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

namespace rehearse {

using machine::DrawnItem;
using machine::DrawnKind;
using simwin::LONG;
using simwin::RECT;

constexpr LONG Around = 64, CaptionHeight = 24, BoxWidth = 480, BoxLine = 20;
constexpr const char* ScreenColour = "#2B5B84";
constexpr const char* BarColour = "#101418";
constexpr const char* WindowColour = "#E6E6E6";
constexpr const char* Fonts = "Segoe UI, Noto Sans, DejaVu Sans Condensed, sans-serif";
constexpr int CloseHot = 2;

static std::string Colour(simwin::COLORREF colour) {
    return fmt::format("#{:06X}", RgbOf(colour));
}

// As the text of an element. Characters that no XML holds become blanks.
static std::string Escaped(const std::string& ansi) {
    std::string text;
    for (const char c : machine::Utf8FromAnsi(ansi)) {
        if (c == '&') {
            text += "&amp;";
        } else if (c == '<') {
            text += "&lt;";
        } else if (c == '>') {
            text += "&gt;";
        } else if (static_cast<unsigned char>(c) < ' ') {
            text += ' ';
        } else {
            text += c;
        }
    }
    return text;
}

static std::string RectElement(const RECT& rect, const std::string& attributes) {
    return fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" {}/>\n", rect.left, rect.top,
                       rect.right - rect.left, rect.bottom - rect.top, attributes);
}

static std::string LineElement(const DrawnItem& item, const std::string& line, LONG top) {
    const LONG width = machine::TextSize(line, item.fontHeight).cx;
    if (width == 0) {
        return "";
    }
    const LONG left = item.endsRight ? item.place.right - width : item.place.left;
    return fmt::format("<text x=\"{}\" y=\"{}\" font-size=\"{}\" textLength=\"{}\" lengthAdjust=\"spacingAndGlyphs\" "
                       "xml:space=\"preserve\" fill=\"{}\"{}>{}</text>\n",
                       left, top + item.fontHeight, item.fontHeight, width, Colour(item.colour),
                       item.isBold ? " font-weight=\"bold\"" : "", Escaped(line));
}

static std::string TextElements(const DrawnItem& item) {
    std::string text;
    LONG top = item.place.top;
    for (const std::string& line : machine::Split(item.text, '\n')) {
        text += LineElement(item, line, top);
        top += item.fontHeight * 4 / 3;
    }
    return text;
}

static std::string IconElements(const DrawnItem& item) {
    const LONG size = item.place.right - item.place.left;
    const machine::IconPixels pixels = machine::PixelsOfIcon(item.resource, size);
    if (pixels.argb.empty()) {
        return "";
    }
    std::string text = fmt::format("<g transform=\"translate({} {}) scale({})\" shape-rendering=\"crispEdges\">\n",
                                   item.place.left, item.place.top, static_cast<double>(size) / pixels.size);
    for (int row = 0; row < pixels.size; ++row) {
        for (int column = 0; column < pixels.size;) {
            const int start = column;
            const auto at = [&](int x) {
                return pixels.argb[static_cast<std::size_t>(row) * static_cast<std::size_t>(pixels.size) +
                                   static_cast<std::size_t>(x)];
            };
            const std::uint32_t argb = at(start);
            while (column < pixels.size && at(column) == argb) {
                ++column;
            }
            if (argb >> 24 == 0) {
                continue;
            }
            const std::string opacity =
                argb >> 24 == 255 ? "" : fmt::format(" fill-opacity=\"{:.3f}\"", (argb >> 24) / 255.0);
            text += fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"1\" fill=\"#{:06X}\"{}/>\n", start, row,
                                column - start, argb & 0xFFFFFF, opacity);
        }
    }
    return text + "</g>\n";
}

// A close mark that no icon draws.
static std::string CloseElements(const RECT& place, bool isHot, bool hasFrame) {
    const LONG inset = (place.right - place.left) / 4;
    const LONG left = place.left + inset, right = place.right - inset;
    const LONG top = place.top + inset, bottom = place.bottom - inset;
    std::string text;
    if (isHot || hasFrame) {
        text += RectElement(place, isHot ? "rx=\"2\" fill=\"#C75050\"" : "fill=\"#D8D4C8\" stroke=\"#808080\"");
    }
    return text +
           fmt::format("<path d=\"M{} {}L{} {}M{} {}L{} {}\" stroke=\"{}\" stroke-width=\"1.5\" fill=\"none\"/>\n",
                       left, top, right, bottom, left, bottom, right, top, isHot ? "#FFFFFF" : "#404040");
}

static std::string ItemElements(const DrawnItem& item, bool isBalloon) {
    constexpr int ClosePart = 5;
    switch (item.kind) {
    case DrawnKind::Fill:
        return RectElement(item.place,
                           fmt::format("rx=\"{:.1f}\" fill=\"{}\"", item.diameter / 2.0, Colour(item.colour)));
    case DrawnKind::Frame:
        return fmt::format("<rect x=\"{}.5\" y=\"{}.5\" width=\"{}\" height=\"{}\" rx=\"{:.1f}\" fill=\"none\" "
                           "stroke=\"{}\"/>\n",
                           item.place.left, item.place.top, item.place.right - item.place.left - 1,
                           item.place.bottom - item.place.top - 1, item.diameter / 2.0, Colour(item.colour));
    case DrawnKind::Text:
        return TextElements(item);
    case DrawnKind::Icon:
        return IconElements(item);
    case DrawnKind::Control:
        return CloseElements(item.place, /*isHot=*/false, /*hasFrame=*/true);
    case DrawnKind::Theme:
        if (item.part == ClosePart) {
            return CloseElements(item.place, item.state == CloseHot, /*hasFrame=*/false);
        }
        return isBalloon ? RectElement(item.place, fmt::format("rx=\"{:.1f}\" fill=\"{}\"", item.diameter / 2.0,
                                                               Colour(item.colour)))
                         : "";
    }
    return "";
}

static std::string ListElements(const machine::DisplayList& drawn) {
    std::string text;
    for (const DrawnItem& item : drawn) {
        text += ItemElements(item, /*isBalloon=*/true);
    }
    return text;
}

static std::string TextsOf(const machine::DisplayList& drawn) {
    std::string texts;
    for (const DrawnItem& item : drawn) {
        if (item.kind == DrawnKind::Text) {
            texts += (texts.empty() ? "" : ": ") + machine::Utf8FromAnsi(item.text);
        }
    }
    return texts;
}

static RECT Clipped(const RECT& rect, const RECT& to) {
    return {std::max(rect.left, to.left), std::max(rect.top, to.top), std::min(rect.right, to.right),
            std::min(rect.bottom, to.bottom)};
}

// A part of a session's screen: its bar and other windows below, then the given items, in screen coordinates.
static std::string ScreenPart(unsigned session, const RECT& view, const std::string& front,
                              const std::string& caption) {
    const LONG width = view.right - view.left, height = view.bottom - view.top;
    std::string text =
        fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{}\" height=\"{}\" "
                    "viewBox=\"{} {} {} {}\" font-family=\"{}\">\n",
                    width, height + CaptionHeight, view.left, view.top, width, height + CaptionHeight, Fonts);
    text += RectElement(view, fmt::format("fill=\"{}\"", ScreenColour));
    std::vector<const machine::Window*> windows = machine::WindowsOfSession(session);
    std::reverse(windows.begin(), windows.end());
    for (const machine::Window* window : windows) {
        const RECT part = Clipped(window->rect, view);
        if (!window->visible || window->className == "Progman" || part.left >= part.right || part.top >= part.bottom ||
            window->className == BalloonClass) {
            continue;
        }
        text += RectElement(
            part, fmt::format("fill=\"{}\"", window->className == "Shell_TrayWnd" ? BarColour : WindowColour));
    }
    text += front;
    const RECT below = {view.left, view.bottom, view.right, view.bottom + CaptionHeight};
    text += RectElement(below, "fill=\"#FFFFFF\"");
    text += fmt::format("<text x=\"{}\" y=\"{}\" font-size=\"12\" fill=\"#000000\">{}</text>\n</svg>\n", view.left + 4,
                        view.bottom + 16, caption);
    return text;
}

static std::string Placed(const RECT& place, const std::string& elements) {
    return fmt::format("<g transform=\"translate({} {})\">\n{}</g>\n", place.left, place.top, elements);
}

static std::string BoxPicture(const machine::MessageBoxRecord& box) {
    DrawnItem line;
    line.kind = DrawnKind::Text;
    line.fontHeight = 12;
    line.text = box.text;
    const LONG height = machine::TextSize(box.text, line.fontHeight).cy + 4 * BoxLine;
    line.place = {16, BoxLine + 16, BoxWidth, height};
    std::string text = fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
                                   "viewBox=\"0 0 {0} {1}\" font-family=\"{2}\">\n",
                                   BoxWidth, height + CaptionHeight, Fonts);
    text += RectElement({0, 0, BoxWidth, height}, "fill=\"#F0F0F0\" stroke=\"#808080\"");
    text += fmt::format("<text x=\"8\" y=\"15\" font-size=\"12\" font-weight=\"bold\">{}</text>\n", Escaped(box.title));
    text += TextElements(line);
    text += fmt::format("<text x=\"4\" y=\"{}\" font-size=\"12\">{}, process {}, flags 0x{:X}</text>\n</svg>\n",
                        height + 16, TimeText(box.atMs), box.processId, box.flags);
    return text;
}

Pictures::Pictures(std::string folder, std::size_t mostKept) : m_mostKept(mostKept), m_folder(std::move(folder)) {
    std::string error;
    if (!m_folder.empty() && !MakeFolders(m_folder, error)) {
        throw InputError({m_folder, 0, 0}, "this folder cannot be made");
    }
}

void Pictures::Write(const std::string& name, const std::string& svg) {
    if (m_folder.empty()) {
        return;
    }
    const std::string path = InFolder(m_folder, name);
    std::ofstream stream(StreamPath(path), std::ios::binary);
    if (!(stream << svg << std::flush) && m_failed.empty()) {
        m_failed = path;
    }
}

void Pictures::Add(const Balloon& balloon, std::size_t index) {
    if (IsIdle() || balloon.untilMs) {
        return;
    }
    const std::string elements = ListElements(balloon.now.drawn);
    Shown& shown = m_shown[index];
    if (elements == shown.last) {
        return;
    }
    shown.last = elements;
    ++shown.count;
    const RECT& place = balloon.now.place;
    const RECT screen = {0, 0, machine::TheSetup().screenWidth, machine::TheSetup().screenHeight};
    const RECT view =
        Clipped({place.left - Around, place.top - Around, place.right + Around, place.bottom + Around}, screen);
    const std::string caption =
        fmt::format("{}, session {}, process {}", TimeText(machine::Now()), balloon.session, balloon.processId);
    const std::string name = shown.count == 1 ? "first" : fmt::format("{:02}", shown.count);
    const std::string svg = ScreenPart(balloon.session, view, Placed(place, elements), caption);
    Write(fmt::format("balloon-{:02}-{}.svg", index + 1, name), svg);
    if (m_kept.size() < m_mostKept) {
        m_kept.push_back({svg, machine::Now(), TextsOf(balloon.now.drawn), false});
    }
}

void Pictures::AddRest() {
    unsigned count = 0;
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        if (IsIdle()) {
            return;
        }
        const std::string svg = BoxPicture(box);
        Write(fmt::format("box-{:02}.svg", ++count), svg);
        if (count <= m_mostKept) {
            m_kept.push_back({svg, box.atMs, machine::Utf8FromAnsi(box.title + ": " + box.text), true});
        }
    }
    if (m_folder.empty()) {
        return;
    }
    const unsigned session = machine::ConsoleSession().value_or(1);
    std::string front;
    for (const machine::Window* window : machine::WindowsOfSession(session)) {
        if (window->visible && window->className == BalloonClass) {
            front += Placed(window->rect, ListElements(window->drawn));
        }
    }
    Write("desktop.svg", ScreenPart(session, {0, 0, machine::TheSetup().screenWidth, machine::TheSetup().screenHeight},
                                    front, fmt::format("{}, session {}", TimeText(machine::Now()), session)));
    if (!m_failed.empty()) {
        throw InputError({m_failed, 0, 0}, "this file cannot be written");
    }
}

} // namespace rehearse
