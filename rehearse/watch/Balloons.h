// The balloons of a run: what was shown, where, for how long, how it changed and what ended it. Filled while the
// machine runs, from its windows and what is drawn on them; never from the product's memory.
#pragma once

#include "rehearse/watch/Timeline.h"

#include "simwin/desktop/Desktop.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rehearse {

inline constexpr const char* BalloonClass = "TarnHolveBalloonTipClass";

// What a user sees of it at one moment. Colours are 0xRRGGBB.
struct BalloonView {
    std::string title, text1, text2;
    int icon = 0; // the resource; 0: none
    simwin::RECT place{};
    std::string look; // "win10", "themed", "classic"
    simwin::LONG diameter = 0, iconSize = 0;
    std::uint32_t back = 0, frame = 0, captionColour = 0, textColour = 0;
    machine::DisplayList drawn;
};

struct BalloonUpdate {
    std::uint64_t atMs;
    std::string title, text1, text2;
};
struct BalloonMove {
    std::uint64_t atMs;
    simwin::LONG x, y;
};

struct Balloon {
    std::uint64_t window = 0;
    unsigned session = 0;
    std::string user;
    std::uint64_t processId = 0;
    std::uint64_t atMs = 0;
    std::optional<std::uint64_t> untilMs;
    std::uint64_t showTimeMs = 0; // of its first record
    BalloonView first, now;       // as it was first visible; as it is, or was last
    std::string closedBy;         // "time", "click", "newer", "end"; "" while it is open
    bool isFaded = false;
    std::vector<BalloonUpdate> updates;
    std::vector<BalloonMove> moves;
};

class Balloons {
public:
    // Called once, when the machine is built; undone with the machine. Changes are reported in the timeline.
    void Watch(Timeline& timeline);
    // Called when a balloon appears, changes its contents or closes. index: from 0, in the order of appearance.
    void OnChange(std::function<void(const Balloon& balloon, std::size_t index)> watcher) {
        m_watcher = std::move(watcher);
    }
    // What happens from now on does not belong to the run.
    void Close() { m_isClosed = true; }
    const std::vector<Balloon>& All() const { return m_all; }
    // The front balloon of a session, or of all; null for none.
    const Balloon* Front(std::optional<unsigned> session) const;

private:
    void OnWindow(const machine::Window& window, machine::WindowChange change);
    void Appear(const machine::Window& window);
    void Change(Balloon& balloon, const machine::Window& window);
    void Note(std::string what);
    void Tell(const Balloon& balloon);

    Timeline* m_timeline = nullptr;
    std::vector<Balloon> m_all;
    std::function<void(const Balloon&, std::size_t)> m_watcher;
    bool m_isClosed = false;
};

BalloonView ViewOf(const machine::Window& window);
std::uint32_t RgbOf(simwin::COLORREF colour);

} // namespace rehearse
