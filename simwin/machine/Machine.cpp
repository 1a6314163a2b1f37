#include "simwin/machine/Machine.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/DeviceCalls.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/devices/build/Guesses.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PendingInstalls.h"
#include "simwin/devices/events/MissedChanges.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/devices/tree/Installation.h"
#include "simwin/drawing/DrawingState.h"
#include "simwin/files/Files.h"
#include "simwin/host/System.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Fiber.h"
#include "simwin/kernel/Locks.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/machine/Connections.h"
#include "simwin/modules/Resources.h"
#include "simwin/pipes/Pipes.h"
#include "simwin/power/Power.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/Services.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/sessions/Tokens.h"
#include "simwin/shell/Shell.h"
#include "simwin/texts/Environment.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace machine {

// Runs in a handler of the host: takes no memory, locks nothing.
static void ReportCrash(const char* what, const void* address) {
    host::WriteError("crash: ");
    host::WriteError(IsStackGuard(address) ? "stack overflow" : what);
    if (const Thread* thread = CurrentThread()) {
        host::WriteError(" in ");
        host::WriteError(thread->process ? thread->process->imagePath.c_str() : "the machine");
        host::WriteError(", last call ");
        host::WriteError(thread->call);
    }
    host::WriteError("\n");
}

// In the order of construction; the end comes in the reverse order. A room may use those before it from its
// construction on, and hears of the end of a process after them: the services forget it before the power looks whether
// any still runs. What runs without the rooms that it talks to is connected by Connections.cpp.
constexpr RoomMaker AllRooms[] = {
    MakeGate,       MakeScheduler,       MakeLocks,         MakeProcesses,   MakeNotes,
    MakeAccounts,   MakeRegistry,        MakeFiles,         MakeEnvironment, MakeModules,
    MakeResources,  MakeServices,        MakePower,         MakeSessions,    MakeTokens,
    MakeDesktop,    MakeDrawing,         MakeDosNames,      MakePipes,       MakeDeviceTree,
    MakeDriverKeys, MakeDeviceWatch,     MakeNotifications, MakeHeldPorts,   MakePendingInstalls,
    MakeDevices,    MakeDeviceResources, MakeMissedChanges, MakeOpenDevices, MakeGuesses,
    MakePrograms,   MakeShell,
};

static bool g_isThere;

Machine::Machine(const Setup& setup) : Machine(setup, AllRooms) {
    ConnectRooms();
}

Machine::Machine(const Setup& setup, std::span<const RoomMaker> makers) {
    if (std::exchange(g_isThere, true)) {
        std::fputs("a second machine while the first one is there\n", stderr);
        std::abort();
    }
    UseSetup(setup);
    for (const RoomMaker make : makers) {
        m_rooms.push_back(make());
    }
}

Machine::~Machine() {
    while (!m_rooms.empty()) {
        m_rooms.pop_back();
    }
    g_isThere = false;
}

void InstallCrashHandler() {
    host::CatchCrashes(ReportCrash, CrashExitCode);
}

int RunHosted(const Setup& setup, std::function<int()> entry) {
    InstallCrashHandler();
    Machine machine(setup);
    ProcessStart start;
    start.imagePath = setup.directory + "\\" + setup.executable;
    start.commandLine = "\"" + start.imagePath + "\"";
    start.currentDirectory = "C:\\Windows\\System32";
    start.user = "NT AUTHORITY\\SYSTEM";
    const Process* process = StartHosted(start, std::move(entry));
    const RunOutcome outcome = RunMachine({});
    if (outcome.verdict != Verdict::Done) {
        std::fprintf(stderr, "%s\n", OutcomeLine(outcome).c_str());
        std::_Exit(CrashExitCode);
    }
    const int exitCode = process->ended ? static_cast<int>(process->exitCode) : CrashExitCode;
    return exitCode;
}

} // namespace machine
