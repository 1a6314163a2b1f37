#include "simwin/power/Power.h"

#include "simwin/devices/events/Events.h"
#include "simwin/devices/events/MissedChanges.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/ServiceState.h"
#include "simwin/services/Services.h"
#include "simwin/sessions/Sessions.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace machine {

using namespace simwin;

constexpr std::uint64_t LongestSuspendMs = 2000;

namespace {
struct Power {
    bool fallsAsleep = false;
    DueId latest = 0;        // when it stops handlers that have not returned
    unsigned unanswered = 0; // handlers of the suspend that have not returned
    std::uint64_t serial = 0;
    bool shutsDown = false;
    PowerCounts counts;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> sleeps; // from, to; in order
    std::uint64_t asleepSinceMs = 0;
    bool isFast = false; // its sleep is a fast startup's
    std::function<void(PowerEvent)> observer;
};
} // namespace
static Power* g_power;

static void Tell(PowerEvent event) {
    if (g_power->observer) {
        g_power->observer(event);
    }
}

static bool IsOfServices(const Process& process) {
    return RunOfProcess(&process) != nullptr;
}

static std::vector<Process*> RunningProcesses() {
    std::vector<Process*> running; // a copy: ending one may end others
    for (Process* process : AllProcesses()) {
        if (!process->ended) {
            running.push_back(process);
        }
    }
    return running;
}

static bool DoesAnyServiceRun() {
    const std::vector<Process*> running = RunningProcesses();
    return std::any_of(running.begin(), running.end(), [](const Process* process) { return IsOfServices(*process); });
}

static void GoOff() {
    if (!g_power->shutsDown) {
        return;
    }
    g_power->shutsDown = false;
    SwitchOff();
    for (Process* process : RunningProcesses()) {
        KillProcess(process);
    }
    PowerOffDevices();
    ForgetDue();
    ForgetSessions();
    TheRegistry().ForgetVolatile();
    Tell(PowerEvent::Off);
}

static void GoOffWhenNoServiceRuns(const Process&) {
    if (g_power && g_power->shutsDown && !DoesAnyServiceRun()) {
        After(0, GoOff); // the process is still on its way out
    }
}

static void KillServices() {
    if (!g_power->shutsDown || !DoesAnyServiceRun()) {
        return;
    }
    Tell(PowerEvent::ServicesKilled);
    for (Process* process : RunningProcesses()) {
        if (IsOfServices(*process)) {
            KillProcess(process);
        }
    }
}

RoomPtr MakePower() {
    RoomPtr room = MakeRoom(g_power);
    OnProcessEnd([](Process& process) { GoOffWhenNoServiceRuns(process); });
    return room;
}

// Nothing in progress is waited for any more.
static void EndFallingAsleep() {
    g_power->fallsAsleep = false;
    ++g_power->serial;
    CancelDue(g_power->latest);
}

static void StopRunning() {
    EndFallingAsleep();
    FallAsleep();
    g_power->asleepSinceMs = Now();
    g_power->counts.sleeps += !g_power->isFast;
    if (g_power->isFast) { // not on the thread of the last handler
        At(Now(), Due::Outside, [] { Tell(PowerEvent::Off); });
    }
}

void SuspendMachine(bool isAnnounced) {
    if (IsMachineDown() || g_power->fallsAsleep) {
        return;
    }
    g_power->fallsAsleep = true;
    const std::uint64_t serial = ++g_power->serial;
    const auto returned = [serial](DWORD) {
        if (g_power && g_power->serial == serial && --g_power->unanswered == 0) {
            StopRunning();
        }
    };
    g_power->unanswered =
        isAnnounced ? BroadcastServiceControl(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND, {}, returned) : 0;
    if (g_power->unanswered == 0) {
        StopRunning();
    } else {
        g_power->latest = After(LongestSuspendMs, StopRunning);
    }
}

// Users' programs, in sessions or not, before the services are notified of the shutdown.
static void EndSessionsAndPrograms() {
    const std::vector<Session> sessions = AllSessions();
    for (const Session& session : sessions) {
        if (!session.user.empty()) {
            LogOff(session.id);
        }
    }
    for (Process* process : RunningProcesses()) {
        if (!IsOfServices(*process) && (process->rights != Rights::System || process->session != 0)) {
            KillProcess(process);
        }
    }
}

void ShutDownMachine() {
    if (ThePowerState() != PowerState::On) {
        return;
    }
    EndFallingAsleep();
    EndSessionsAndPrograms();
    g_power->shutsDown = true;
    BroadcastServiceControl(SERVICE_CONTROL_SHUTDOWN, 0, {});
    if (DoesAnyServiceRun()) {
        After(TheSetup().KillServicesAfterMs(), KillServices);
    } else {
        After(0, GoOff);
    }
}

void ShutDownFast() {
    if (ThePowerState() != PowerState::On) {
        return;
    }
    EndFallingAsleep();
    EndSessionsAndPrograms();
    g_power->isFast = true;
    SuspendMachine(/*isAnnounced=*/true);
}

void StartFast() {
    if (!g_power->isFast) {
        return;
    }
    g_power->isFast = false;
    NoteBoot();
    ++g_power->counts.fastStartups;
    ResumeMachine(PBT_APMRESUMEAUTOMATIC, /*replugAll=*/false);
}

void BootMachine() {
    if (!IsOff()) {
        return;
    }
    NoteBoot();
    ++g_power->counts.boots;
    SetTickCount(TheSetup().bootUptimeMs);
    StartDevicesAnew();
}

void ResumeMachine(DWORD code, bool replugAll) {
    EndFallingAsleep();
    if (IsAsleep()) {
        g_power->sleeps.emplace_back(g_power->asleepSinceMs, Now());
    }
    WakeMachine();
    BroadcastServiceControl(SERVICE_CONTROL_POWEREVENT, code, {});
    NoticeMissedChanges();
    if (replugAll) {
        ReplugAllDevices();
    }
}

const PowerCounts& CountsOfPower() {
    return g_power->counts;
}

std::uint64_t AsleepBetweenMs(std::uint64_t fromMs, std::uint64_t toMs) {
    std::uint64_t asleepMs = 0;
    for (const auto& [from, to] : g_power->sleeps) {
        if (std::max(from, fromMs) < std::min(to, toMs)) {
            asleepMs += std::min(to, toMs) - std::max(from, fromMs);
        }
    }
    return asleepMs;
}

PowerState ThePowerState() {
    if (IsOff()) {
        return PowerState::Off;
    }
    if (g_power->isFast) {
        return IsAsleep() ? PowerState::FastOff : PowerState::ShuttingDown;
    }
    if (g_power->shutsDown) {
        return PowerState::ShuttingDown;
    }
    return IsAsleep() ? PowerState::Asleep : PowerState::On;
}

void SetPowerObserver(std::function<void(PowerEvent)> observer) {
    g_power->observer = std::move(observer);
}

} // namespace machine
