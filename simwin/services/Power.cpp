#include "simwin/services/Power.h"

#include "simwin/devices/MissedChanges.h"
#include "simwin/devices/PlugAndPlay.h"
#include "simwin/kernel/Machine.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/services/Services.h"

namespace machine {

using namespace simwin;

namespace {

constexpr std::uint64_t LongestSuspendMs = 2000;

struct Power {
    bool fallsAsleep = false;
    DueId latest = 0;        // when it stops whoever has not returned
    unsigned unanswered = 0; // handlers of the suspend that have not returned
    std::uint64_t serial = 0;
};
Power* g_power;

Room g_room(
    42, [] { g_power = new Power; },
    [] {
        delete g_power;
        g_power = nullptr;
    });

// What was begun is not waited for any more.
void EndFallingAsleep() {
    g_power->fallsAsleep = false;
    ++g_power->serial;
    CancelDue(g_power->latest);
}

void StopRunning() {
    EndFallingAsleep();
    FallAsleep();
}

} // namespace

void SuspendMachine(bool told) {
    if (IsMachineDown() || g_power->fallsAsleep)
        return;
    g_power->fallsAsleep = true;
    const std::uint64_t serial = ++g_power->serial;
    const auto returned = [serial](DWORD) {
        if (g_power && g_power->serial == serial && --g_power->unanswered == 0)
            StopRunning();
    };
    g_power->unanswered = told ? BroadcastServiceControl(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND, {}, returned) : 0;
    if (g_power->unanswered == 0)
        StopRunning();
    else
        g_power->latest = After(LongestSuspendMs, StopRunning);
}

void ResumeMachine(DWORD code, bool replugAll) {
    EndFallingAsleep();
    WakeMachine();
    BroadcastServiceControl(SERVICE_CONTROL_POWEREVENT, code, {});
    NoticeMissedChanges();
    if (replugAll)
        ReplugAllDevices();
}

bool IsMachineDown() {
    return IsAsleep();
}

} // namespace machine
