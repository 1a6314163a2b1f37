#include "rehearse/machine/DescribedDesktop.h"

#include "rehearse/watch/Balloons.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace rehearse {

using machine::TaskBar;

constexpr std::int64_t LargestScreen = 0xFFFF;

simwin::LONG PixelsIn(const TomlTable& table, std::string_view key, std::int64_t otherwise) {
    const std::int64_t pixels = table.NumberOf(key, otherwise);
    if (pixels < -LargestScreen || pixels > LargestScreen) {
        throw InputError(table.At(key), fmt::format("'{}' must be -65535 to 65535", key));
    }
    return static_cast<simwin::LONG>(pixels);
}

static TaskBar::Edge EdgeOf(const std::string& name) {
    if (name == "top") {
        return TaskBar::Edge::Top;
    }
    if (name == "left") {
        return TaskBar::Edge::Left;
    }
    return name == "right" ? TaskBar::Edge::Right : TaskBar::Edge::Bottom;
}

// Changes the bar as the table says.
void AmendBar(TaskBar& bar, const TomlTable& table) {
    if (table.Has("edge")) {
        bar.edge = EdgeOf(table.TextOf("edge"));
    }
    bar.size = PixelsIn(table, "size", bar.size);
    if (bar.size < 0) {
        throw InputError(table.At("size"), "'size' must not be below zero");
    }
    bar.isHidden = table.FlagOf("hidden", bar.isHidden);
    bar.isRightToLeft = table.FlagOf("rtl", bar.isRightToLeft);
    bar.isGone = table.FlagOf("gone");
    bar.rect.reset();
    const Value* rect = table.Find("rect");
    if (!rect) {
        return;
    }
    const bool isRect =
        rect->numbers.size() == 4 && std::all_of(rect->numbers.begin(), rect->numbers.end(),
                                                 [](auto n) { return n >= -LargestScreen && n <= LargestScreen; });
    if (!isRect) {
        throw InputError(rect->at, "'rect' must be left, top, right and bottom");
    }
    const auto at = [&](std::size_t i) { return static_cast<simwin::LONG>(rect->numbers[i]); };
    bar.rect = simwin::RECT{at(0), at(1), at(2), at(3)};
}

static simwin::COLORREF ColourIn(const TomlTable& table, std::string_view key, std::int64_t otherwise) {
    constexpr std::int64_t Largest = 0xFFFFFF;
    const std::int64_t rgb = table.NumberOf(key, otherwise);
    if (rgb < 0 || rgb > Largest) {
        throw InputError(table.At(key), fmt::format("'{}' must be a colour 0xRRGGBB", key));
    }
    return RgbOf(static_cast<simwin::COLORREF>(rgb)); // the same swap both ways
}

std::function<void(unsigned session)> SessionInputOf(const TomlTable& session) {
    const bool isHeld = session.TextOf("foreground") == "held";
    std::optional<simwin::POINT> place;
    if (const Value* cursor = session.Find("cursor")) {
        if (cursor->numbers.size() != 2) {
            throw InputError(cursor->at, "'cursor' must be x and y");
        }
        place =
            simwin::POINT{static_cast<simwin::LONG>(cursor->numbers[0]), static_cast<simwin::LONG>(cursor->numbers[1])};
    }
    return [isHeld, place](unsigned id) {
        machine::SetForegroundRule(id, isHeld ? machine::Foreground::Held : machine::Foreground::Free);
        if (place) {
            machine::SetCursor(id, *place);
        }
    };
}

void SetUpDesktop(const TomlTable& description) {
    if (const TomlTable* windows = description.TableOf("windows")) {
        TaskBar bar;
        if (const TomlTable* table = windows->TableOf("taskbar")) {
            AmendBar(bar, *table);
        }
        machine::SetTaskBar(bar);
        machine::Appearance appearance;
        if (windows->Is("theme", Text)) {
            appearance.theme = machine::Appearance::Theme::Broken;
        } else if (!windows->FlagOf("theme", true)) {
            appearance.theme = machine::Appearance::Theme::Off;
        }
        appearance.tooltipFade = windows->FlagOf("tooltip_fade", true);
        if (const TomlTable* colours = windows->TableOf("colours")) {
            constexpr std::int64_t InfoBack = 0xFFFFE1;
            appearance.infoText = ColourIn(*colours, "infotext", 0);
            appearance.infoBack = ColourIn(*colours, "infobk", InfoBack);
        }
        machine::SetAppearance(appearance);
    }
    for (const TomlTable& session : description.TablesOf("session")) {
        SessionInputOf(session)(static_cast<unsigned>(session.NumberOf("id", 1)));
    }
}

} // namespace rehearse
