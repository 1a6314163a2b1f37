#include "rehearse/run/MachineLife.h"

#include "rehearse/events/Events.h"
#include "rehearse/expectations/Expectations.h"
#include "rehearse/host/Durations.h"

#include <algorithm>

namespace rehearse {

MachineLife::MachineLife(const machine::Setup& setup, Timeline& ofRun, Balloons& shown, Leaks& ofProduct)
    : timeline(ofRun), balloons(shown), leaks(ofProduct), m_machine(setup) {
    machine::InstallCrashHandler();
}

MachineLife::~MachineLife() {
    timeline.Close();
    balloons.Close();
    leaks.Close();
}

std::uint64_t UntilMs(const TomlTable& description, const Options& options) {
    if (options.untilMs) {
        return *options.untilMs;
    }
    const std::uint64_t last = std::max(LastEventMs(description) + MsPerHour, Expectations::LastMs(description));
    return description.MsOf("until", last);
}

} // namespace rehearse
