#include "rehearse/expectations/DesktopExpectations.h"

#include "rehearse/host/Durations.h"
#include "rehearse/watch/Balloons.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

using machine::DrawnItem;
using machine::DrawnKind;

static void Compare(Wrongs& wrongs, const TomlTable& expect, const char* key, const std::string& is) {
    if (expect.Has(key) && expect.TextOf(key) != is) {
        wrongs.push_back(fmt::format("{} is '{}', not '{}'", key, is, expect.TextOf(key)));
    }
}

static void CompareNumber(Wrongs& wrongs, const TomlTable& expect, const char* key, std::int64_t is) {
    if (expect.Has(key) && expect.NumberOf(key) != is) {
        wrongs.push_back(fmt::format("{} is {}, not {}", key, is, expect.NumberOf(key)));
    }
}

static void CompareColour(Wrongs& wrongs, const TomlTable& expect, const char* key, std::uint32_t is) {
    if (expect.Has(key) && expect.NumberOf(key) != is) {
        wrongs.push_back(fmt::format("{} is 0x{:06X}, not 0x{:06X}", key, is, expect.NumberOf(key)));
    }
}

static bool IsKind(const TomlTable& wanted, const DrawnItem& item) {
    if (wanted.Has("text")) {
        return item.kind == DrawnKind::Text && item.text == wanted.TextOf("text");
    }
    if (wanted.Has("icon")) {
        return item.kind == DrawnKind::Icon && item.resource == wanted.NumberOf("icon");
    }
    if (wanted.Has("theme")) {
        return item.kind == DrawnKind::Theme && item.part == wanted.NumberOf("theme");
    }
    return item.kind == DrawnKind::Control;
}

static bool Meets(const TomlTable& wanted, const DrawnItem& item, simwin::LONG width) {
    const auto fits = [&](const char* key, std::int64_t is) { return !wanted.Has(key) || wanted.NumberOf(key) == is; };
    return IsKind(wanted, item) && fits("state", item.state) && fits("x", item.place.left) &&
           fits("y", item.place.top) && fits("width", item.place.right - item.place.left) &&
           fits("from_right", width - item.place.left) && fits("colour", RgbOf(item.colour)) &&
           (!wanted.Has("ends") || item.endsRight == (wanted.TextOf("ends") == "right"));
}

static std::string ItemText(const DrawnItem& item, simwin::LONG width) {
    static constexpr const char* Kinds[] = {"fill", "frame", "text", "icon", "theme", "control"};
    std::string what = Kinds[static_cast<unsigned>(item.kind)];
    if (item.kind == DrawnKind::Text) {
        what += " '" + item.text + "'";
    } else if (item.kind == DrawnKind::Icon) {
        what += fmt::format(" {}", item.resource);
    } else if (item.kind == DrawnKind::Theme) {
        what += fmt::format(" {} state {}", item.part, item.state);
    }
    return fmt::format("{} at {}, {} width {} from_right {} colour 0x{:06X}", what, item.place.left, item.place.top,
                       item.place.right - item.place.left, width - item.place.left, RgbOf(item.colour));
}

static void CompareDrawn(Wrongs& wrongs, const TomlTable& expect, const BalloonView& view) {
    const simwin::LONG width = view.place.right - view.place.left;
    for (const TomlTable& wanted : expect.TablesOf("drawn")) {
        const bool isMet = std::any_of(view.drawn.begin(), view.drawn.end(),
                                       [&](const DrawnItem& item) { return Meets(wanted, item, width); });
        if (isMet) {
            continue;
        }
        std::string items;
        for (const DrawnItem& item : view.drawn) {
            items += (items.empty() ? "" : "; ") + ItemText(item, width);
        }
        wrongs.push_back(fmt::format("nothing meets the entry of line {}: {}", wanted.at.line, items));
        return;
    }
}

// Judges an expectation about a balloon as it was at one moment.
static Wrongs WrongsOfView(const TomlTable& expect, const Balloon& balloon, const BalloonView& view) {
    Wrongs wrongs;
    Compare(wrongs, expect, "title", view.title);
    Compare(wrongs, expect, "text2", view.text2);
    Compare(wrongs, expect, "user", balloon.user);
    Compare(wrongs, expect, "look", view.look);
    CompareNumber(wrongs, expect, "icon", view.icon);
    CompareNumber(wrongs, expect, "time", static_cast<std::int64_t>(balloon.showTimeMs));
    CompareNumber(wrongs, expect, "session", balloon.session);
    CompareNumber(wrongs, expect, "x", view.place.left);
    CompareNumber(wrongs, expect, "y", view.place.top);
    CompareNumber(wrongs, expect, "right", view.place.right);
    CompareNumber(wrongs, expect, "bottom", view.place.bottom);
    CompareNumber(wrongs, expect, "width", view.place.right - view.place.left);
    CompareNumber(wrongs, expect, "height", view.place.bottom - view.place.top);
    CompareNumber(wrongs, expect, "diameter", view.diameter);
    CompareNumber(wrongs, expect, "icon_size", view.iconSize);
    CompareColour(wrongs, expect, "back", view.back);
    CompareColour(wrongs, expect, "frame", view.frame);
    CompareColour(wrongs, expect, "caption_colour", view.captionColour);
    CompareColour(wrongs, expect, "text_colour", view.textColour);
    CompareDrawn(wrongs, expect, view);
    return wrongs;
}

static Wrongs WrongsOfBalloon(const TomlTable& expect, const Balloon& balloon) {
    Wrongs wrongs = WrongsOfView(expect, balloon, balloon.first);
    Compare(wrongs, expect, "closed_by", balloon.closedBy);
    if (expect.Has("fade") && expect.FlagOf("fade") != balloon.isFaded) {
        wrongs.push_back(balloon.isFaded ? "it faded" : "it did not fade");
    }
    if (!IsAt(expect, "at", balloon.atMs)) {
        wrongs.push_back(fmt::format("it was there from {} on", TimeText(balloon.atMs)));
    }
    if (expect.Has("until") && !(balloon.untilMs && IsAt(expect, "until", *balloon.untilMs))) {
        wrongs.push_back(balloon.untilMs ? fmt::format("it was there until {}", TimeText(*balloon.untilMs))
                                         : "it still stands");
    }
    return wrongs;
}

static std::string Joined(const Wrongs& wrongs) {
    std::string text;
    for (const std::string& wrong : wrongs) {
        text += (text.empty() ? "" : ", ") + wrong;
    }
    return text;
}

static void JudgeBalloon(const TomlTable& expect, const Balloons& balloons, Wrongs& wrongs) {
    std::int64_t fits = 0;
    std::string others, texts;
    for (const Balloon& balloon : balloons.All()) {
        texts += (texts.empty() ? "'" : ", '") + balloon.first.text1 + "'";
        if (balloon.first.text1 != expect.TextOf("balloon")) {
            continue;
        }
        const Wrongs own = WrongsOfBalloon(expect, balloon);
        fits += own.empty();
        if (!own.empty()) {
            others += (others.empty() ? "" : "; of another: ") + Joined(own);
        }
    }
    if (expect.Has("count") ? fits == expect.NumberOf("count") : fits > 0) {
        return;
    }
    if (others.empty()) {
        others = texts.empty() ? "there was none at all" : "there were " + texts;
    }
    wrongs.push_back(fmt::format("{} such balloons; {}", fits, others));
}

static void JudgeShown(const TomlTable& expect, const Balloons& balloons, Wrongs& wrongs) {
    const std::string text = expect.TextOf("shown");
    std::string others;
    bool isShown = false, isMet = false;
    for (const Balloon& balloon : balloons.All()) {
        if (balloon.untilMs || balloon.now.text1 != text) {
            continue;
        }
        isShown = true;
        const Wrongs own = WrongsOfView(expect, balloon, balloon.now);
        isMet |= own.empty();
        if (!own.empty()) {
            others += (others.empty() ? "" : "; of another: ") + Joined(own);
        }
    }
    if (expect.FlagOf("gone")) {
        if (isShown) {
            wrongs.push_back("it is shown");
        }
    } else if (!isMet) {
        wrongs.push_back(isShown ? others : "no balloon with this text is shown");
    }
}

static void JudgeToolTip(const TomlTable& expect, Wrongs& wrongs) {
    const machine::Window* window = machine::FindForeignWindow(expect.TextOf("tooltip"));
    const bool isShown = window && window->visible;
    if (expect.FlagOf("gone") || !isShown) {
        if (isShown == expect.FlagOf("gone")) {
            wrongs.push_back(isShown ? "it is shown" : "it is not shown");
        }
        return;
    }
    CompareNumber(wrongs, expect, "x", window->rect.left);
    CompareNumber(wrongs, expect, "y", window->rect.top);
}

static void JudgeInput(const TomlTable& expect, Wrongs& wrongs) {
    std::int64_t fits = 0;
    std::string others;
    for (const machine::InputRecord& input : machine::Inputs()) {
        fits +=
            input.what == expect.TextOf("input") && (!expect.Has("window") || input.window == expect.TextOf("window"));
        others += fmt::format("{}{} to '{}'", others.empty() ? "" : ", ", input.what, input.window);
    }
    if (expect.Has("count") ? fits != expect.NumberOf("count") : fits == 0) {
        wrongs.push_back(fmt::format("{} of these; there were: {}", fits, others.empty() ? "none" : others));
    }
}

bool IsAboutDesktop(const TomlTable& expect) {
    return expect.Has("balloon") || expect.Has("shown") || expect.Has("tooltip") || expect.Has("input");
}

void JudgeDesktop(const TomlTable& expect, const Stage& stage, Wrongs& wrongs) {
    if (expect.Has("balloon")) {
        JudgeBalloon(expect, *stage.balloons, wrongs);
    } else if (expect.Has("shown")) {
        JudgeShown(expect, *stage.balloons, wrongs);
    } else if (expect.Has("tooltip")) {
        JudgeToolTip(expect, wrongs);
    } else {
        JudgeInput(expect, wrongs);
    }
}

// Every box of the tool is in front of all windows: MB_SYSTEMMODAL matters only if an expectation names it.
static bool HasFlags(const machine::MessageBoxRecord& box, simwin::UINT wanted) {
    const simwin::UINT counts = wanted & simwin::MB_SYSTEMMODAL ? ~0u : ~simwin::UINT{simwin::MB_SYSTEMMODAL};
    return (box.flags & counts) == wanted;
}

// The program that was started to edit the configuration.
static void JudgeEditor(const TomlTable& expect, Wrongs& wrongs) {
    const std::string product = machine::TheSetup().directory + "\\" + machine::TheSetup().executable;
    std::string others;
    for (const machine::Process* process : machine::AllProcesses()) {
        if (machine::EqualNoCase(process->imagePath, expect.TextOf("editor"))) {
            return;
        }
        if (!machine::EqualNoCase(process->imagePath, product)) {
            others += fmt::format("{}'{}'", others.empty() ? "" : ", ", process->imagePath);
        }
    }
    wrongs.push_back(fmt::format("it was not started; there were: {}", others.empty() ? "none" : others));
}

void JudgeSurroundings(const TomlTable& expect, Wrongs& wrongs) {
    if (expect.Has("editor")) {
        JudgeEditor(expect, wrongs);
        return;
    }
    const std::string text = expect.TextOf("message");
    std::size_t fits = 0;
    std::string others;
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        const bool isMeant =
            (text.empty() || box.text == text) &&
            (!expect.Has("contains") || box.text.find(expect.TextOf("contains")) != std::string::npos) &&
            (!expect.Has("flags") || HasFlags(box, static_cast<simwin::UINT>(expect.NumberOf("flags"))));
        fits += isMeant;
        others += fmt::format("{}'{}' (flags {})", others.empty() ? "" : ", ", box.text, box.flags);
    }
    if (expect.Has("count") ? fits != static_cast<std::size_t>(expect.NumberOf("count")) : fits == 0) {
        wrongs.push_back(fmt::format("{} such boxes; there were: {}", fits, others.empty() ? "none" : others));
    }
}

} // namespace rehearse
