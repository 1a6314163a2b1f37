#include "rehearse/watch/Balloons.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

using machine::DrawnItem;
using machine::DrawnKind;

constexpr int CloseIcon = 311, CloseHotIcon = 312;
constexpr int BalloonPart = 3;
constexpr const char* Marker = " !! ";
constexpr const char* MarkerGap = "      ";

static bool IsCloseIcon(const DrawnItem& item) {
    return item.kind == DrawnKind::Icon && (item.resource == CloseIcon || item.resource == CloseHotIcon);
}

// A line that comes from a text with a marker: two texts on one line, or one with a gap.
static void TakeBody(BalloonView& view, const std::vector<const DrawnItem*>& texts) {
    std::size_t next = 1;
    if (texts.size() > next) {
        view.text1 = texts[next]->text;
        view.textColour = RgbOf(texts[next]->colour);
        const DrawnItem* first = texts[next++];
        if (texts.size() > next && texts[next]->endsRight && texts[next]->place.top == first->place.top) {
            view.text1 += Marker + texts[next++]->text;
        } else if (const std::size_t gap = view.text1.find(MarkerGap); gap != std::string::npos) {
            view.text1.replace(gap, std::char_traits<char>::length(MarkerGap), Marker);
        }
    }
    if (texts.size() > next) {
        view.text2 = texts[next]->text;
    }
}

static bool IsSameText(const BalloonView& a, const BalloonView& b) {
    return a.title == b.title && a.text1 == b.text1 && a.text2 == b.text2;
}

static const char* FarewellName(const machine::Window& window) {
    switch (window.farewell) {
    case machine::Farewell::Time:
        return "time";
    case machine::Farewell::Click:
        return "click";
    case machine::Farewell::Close:
        return "newer";
    case machine::Farewell::None:
        break;
    }
    return "end";
}

std::uint32_t RgbOf(simwin::COLORREF colour) {
    return (colour & 0xFF) << 16 | (colour & 0xFF00) | (colour >> 16 & 0xFF);
}

BalloonView ViewOf(const machine::Window& window) {
    BalloonView view;
    view.place = window.rect;
    view.drawn = window.drawn;
    view.look = "classic";
    std::vector<const DrawnItem*> texts;
    for (const DrawnItem& item : window.drawn) {
        if (item.kind == DrawnKind::Theme && item.part == BalloonPart) {
            view.look = "themed";
        }
        if (IsCloseIcon(item)) {
            view.look = "win10";
        }
        if (item.kind == DrawnKind::Fill || (item.kind == DrawnKind::Theme && item.part == BalloonPart)) {
            view.back = RgbOf(item.colour);
            view.diameter = item.diameter;
        } else if (item.kind == DrawnKind::Frame) {
            view.frame = RgbOf(item.colour);
        } else if (item.kind == DrawnKind::Icon && !IsCloseIcon(item)) {
            view.icon = item.resource;
            view.iconSize = item.place.right - item.place.left;
        } else if (item.kind == DrawnKind::Text) {
            texts.push_back(&item);
        }
    }
    if (texts.empty()) {
        return view;
    }
    view.title = texts[0]->text;
    view.captionColour = RgbOf(texts[0]->colour);
    TakeBody(view, texts);
    return view;
}

void Balloons::Watch(Timeline& timeline) {
    m_timeline = &timeline;
    machine::WatchWindows([this](const machine::Window& window, machine::WindowChange change) {
        if (!m_isClosed && window.className == BalloonClass) {
            OnWindow(window, change);
        }
    });
}

const Balloon* Balloons::Front(std::optional<unsigned> session) const {
    for (auto balloon = m_all.rbegin(); balloon != m_all.rend(); ++balloon) {
        if (!balloon->untilMs && (!session || balloon->session == *session)) {
            return &*balloon;
        }
    }
    return nullptr;
}

void Balloons::Note(std::string what) {
    m_timeline->Add({machine::Now(), false, std::move(what), "", "", "", ""});
}

void Balloons::Tell(const Balloon& balloon) {
    if (m_watcher) {
        m_watcher(balloon, static_cast<std::size_t>(&balloon - m_all.data()));
    }
}

// A balloon hidden only for a moment, to get narrower, has not closed.
void Balloons::OnWindow(const machine::Window& window, machine::WindowChange change) {
    const auto handle = reinterpret_cast<std::uint64_t>(window.handle);
    const auto known =
        std::find_if(m_all.rbegin(), m_all.rend(), [&](const Balloon& balloon) { return balloon.window == handle; });
    if (known == m_all.rend()) {
        if (window.visible && !window.drawn.empty()) {
            Appear(window);
        }
        return;
    }
    Balloon& balloon = *known;
    const bool isGone = !window.visible || change == machine::WindowChange::Gone;
    if (isGone && balloon.untilMs) {
        return;
    }
    if (isGone) {
        balloon.untilMs = machine::Now();
        balloon.closedBy = FarewellName(window);
        Note(fmt::format("the balloon '{}' goes ({})", balloon.now.text1, balloon.closedBy));
        Tell(balloon);
        return;
    }
    balloon.untilMs.reset();
    balloon.closedBy.clear();
    Change(balloon, window);
}

void Balloons::Appear(const machine::Window& window) {
    Balloon balloon;
    balloon.window = reinterpret_cast<std::uint64_t>(window.handle);
    balloon.session = window.session;
    balloon.user = window.process ? window.process->user : "";
    balloon.processId = window.process ? window.process->id : 0;
    balloon.atMs = machine::Now();
    balloon.showTimeMs = window.timerMs.value_or(0);
    balloon.first = balloon.now = ViewOf(window);
    Note(fmt::format("shows a balloon in session {}: '{}', '{}'", balloon.session, balloon.first.title,
                     balloon.first.text1));
    m_all.push_back(std::move(balloon));
    Tell(m_all.back());
}

void Balloons::Change(Balloon& balloon, const machine::Window& window) {
    const std::uint64_t now = machine::Now();
    const BalloonView before = std::move(balloon.now);
    balloon.now = ViewOf(window);
    balloon.isFaded |= window.alpha < 255;
    const BalloonView& view = balloon.now;
    if (before.place.left != view.place.left || before.place.top != view.place.top) {
        if (balloon.moves.empty() || balloon.moves.back().atMs != now) {
            balloon.moves.push_back({now, 0, 0});
        }
        balloon.moves.back() = {now, view.place.left, view.place.top};
    }
    if (!IsSameText(before, view)) {
        if (balloon.updates.empty() || balloon.updates.back().atMs != now) {
            balloon.updates.push_back({now, {}, {}, {}});
        }
        balloon.updates.back() = {now, view.title, view.text1, view.text2};
        Note(fmt::format("changes its balloon to '{}', '{}'", view.title, view.text1));
    }
    Tell(balloon);
}

} // namespace rehearse
