// The outside events of a description: each is checked before anything runs and acts at its time, in the order of the
// file. In the scheduler's own context.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/watch/Timeline.h"

#include "simwin/kernel/Process.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace machine {
struct Process;
}

namespace rehearse {

using Action = std::function<void()>;

class Balloons;

// The state that events share: the timeline, and the process that the description starts.
struct Stage {
    const TomlTable* description = nullptr;
    Timeline* timeline = nullptr;
    Balloons* balloons = nullptr;
    machine::Ref<machine::Process> product; // started last
    std::vector<Action> atWaking;           // events that the machine slept through
    std::vector<Action> atOff;              // that wait for the end of a shutdown
    bool hasEnded = false;                  // cancels what was still to come

    Stage(const TomlTable* ofMachine, Timeline* toFill, Balloons* shown)
        : description(ofMachine), timeline(toFill), balloons(shown) {}
    ~Stage() = default; // after the end of the machine
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
};

// Registers all events, after the product's start. Throws InputError for an impossible one.
void ScheduleEvents(Stage& stage);

// Virtual time of the last event, of the product's start if there is none.
std::uint64_t LastEventMs(const TomlTable& description);

} // namespace rehearse
