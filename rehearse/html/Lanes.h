// How each port stood over the time of a run: its name, whether it was there, ran, had a problem, was held open. Filled
// while the machine runs, from its own device tree.
#pragma once

#include "rehearse/watch/PortWatch.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace rehearse::html {

enum class LaneState { Away, Stopped, Problem, Nameless, Named };

// From its time to that of the next stretch, or to the end of the run.
struct Stretch {
    std::uint64_t fromMs = 0;
    LaneState state = LaneState::Away;
    std::string name; // of a named one
    unsigned problem = 0;
    std::string heldBy; // path of a program; "" nobody

    bool IsLike(const Stretch& other) const {
        return state == other.state && name == other.name && problem == other.problem && heldBy == other.heldBy;
    }
};

class Lanes {
public:
    // Called once, before the machine runs.
    void Watch();
    // The state at the end is noted too. Called before the machine goes.
    void Close();

    // By device id as it is written; the first stretch begins at 0.
    const std::map<std::string, std::vector<Stretch>>& All() const { return m_lanes; }
    std::uint64_t EndMs() const { return m_endMs; }

private:
    void NotePort(const machine::DeviceNode& port);
    void NoteAll();

    std::map<std::string, std::vector<Stretch>> m_lanes;
    std::uint64_t m_endMs = 0;
    std::optional<PortWatch> m_watch;
};

} // namespace rehearse::html
