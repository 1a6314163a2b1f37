// A machine for one run, and when the run ends at the latest.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/Leaks.h"
#include "rehearse/watch/Timeline.h"

#include "simwin/machine/Machine.h"

#include <cstdint>

namespace rehearse {

// The machine is destroyed before its watchers, and what ends with it does not belong to the run, even if the input
// turns out to be wrong once the machine exists.
struct MachineLife {
    MachineLife(const machine::Setup& setup, Timeline& ofRun, Balloons& shown, Leaks& ofProduct);
    ~MachineLife();
    MachineLife(const MachineLife&) = delete;
    MachineLife& operator=(const MachineLife&) = delete;

    Timeline& timeline;
    Balloons& balloons;
    Leaks& leaks;

private:
    machine::Machine m_machine;
};

// Virtual milliseconds.
std::uint64_t UntilMs(const TomlTable& description, const Options& options);

} // namespace rehearse
