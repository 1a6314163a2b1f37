#include "simwin/devices/ClassInstaller.h"

#include "simwin/devices/Properties.h"
#include "simwin/devices/api.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Rules.h"
#include "simwin/kernel/Scheduler.h"

namespace machine {

using namespace simwin;

constexpr std::uint64_t RestartPauseMs = 50; // between stop and start

// Whether the device, or anything below it, refuses to stop.
static bool RefusesToStop(DeviceNode& node) {
    bool heldOpen = false;
    return FindVeto(node, heldOpen) != nullptr;
}

static bool StartAndWait(DeviceNode& node) {
    StartNode(node, Cause::Product);
    return WaitForStart(node);
}

// The restart that an earlier call began, or a new one.
static std::size_t OpenRestart(DeviceNode& node, const char* means) {
    const std::size_t restart = node.openRestart ? *node.openRestart : BeginRestart(node, means);
    node.openRestart.reset();
    return restart;
}

static DWORD PropertyChange(DeviceNode& node) {
    const std::size_t restart = OpenRestart(node, "property-change");
    if (node.said.refuses.value_or(false)) {
        EndRestart(restart, false);
        return ERROR_NO_DRIVER_SELECTED;
    }
    const bool staysStopped = node.problem == CM_PROB_DISABLED || node.problem == CM_PROB_HELD_FOR_EJECT;
    if (!staysStopped && !RefusesToStop(node)) {
        if (StopTree(node, false, Cause::Product) > 0) {
            SleepMs(RestartPauseMs);
        }
        StartAndWait(node);
    }
    EndRestart(restart, node.IsRunning());
    return 0;
}

static DWORD Disable(DeviceNode& node) {
    if (node.said.refuses.value_or(false)) {
        NoteFailedRestart(node, "disable-enable");
        return ERROR_NO_DRIVER_SELECTED;
    }
    node.openRestart = BeginRestart(node, "disable-enable");
    if (node.problem == CM_PROB_DISABLED || RefusesToStop(node)) {
        return 0;
    }
    StopTree(node, true, Cause::Product);
    node.problem = CM_PROB_DISABLED;
    NoteTreeChange();
    SleepMs(RestartPauseMs);
    return 0;
}

static DWORD Enable(DeviceNode& node) {
    const std::size_t restart = OpenRestart(node, "disable-enable");
    if (node.said.refuses.value_or(false)) {
        EndRestart(restart, false);
        return ERROR_NO_DRIVER_SELECTED;
    }
    if (node.problem == CM_PROB_DISABLED) {
        node.problem = node.stickyProblem;
        StartAndWait(node);
    }
    EndRestart(restart, node.IsRunning());
    return 0;
}

static RemovalVeto AskAll(DeviceNode& node) {
    bool heldOpen = false;
    DeviceNode* refusing = FindVeto(node, heldOpen);
    return {heldOpen ? PNP_VetoOutstandingOpen : PNP_VetoDevice, refusing};
}

static void TakeOut(DeviceNode& node, DWORD problem) {
    StopTree(node, true, Cause::Product);
    node.problem = problem;
    NoteTreeChange();
}

const char* MeansOfChange(DWORD change) {
    return change == DICS_PROPCHANGE ? "property-change" : "disable-enable";
}

bool MayChangeDevices() {
    const Process* process = CurrentProcess();
    return process->rights == Rights::System || process->administrator;
}

DWORD ChangeDeviceState(DeviceNode& node, DWORD change) {
    if (!node.IsPresent()) {
        return ERROR_NO_SUCH_DEVINST;
    }
    switch (change) {
    case DICS_PROPCHANGE:
        return PropertyChange(node);
    case DICS_DISABLE:
        return Disable(node);
    case DICS_ENABLE:
        return Enable(node);
    default:
        NotModelled("SetupDiCallClassInstaller", "a state change other than property change, disable and enable");
    }
}

RemovalVeto QueryAndRemove(DeviceNode& node) {
    const RemovalVeto veto = AskAll(node);
    if (veto.refusing) {
        NoteFailedRestart(node, "remove-and-setup");
        return veto;
    }
    TakeOut(node, CM_PROB_WILL_BE_REMOVED);
    node.openRestart = BeginRestart(node, "remove-and-setup");
    return veto;
}

RemovalVeto EjectDevice(DeviceNode& node) {
    if (!IsRemovableNode(node)) {
        return {PNP_VetoIllegalDeviceRequest, &node};
    }
    const RemovalVeto veto = AskAll(node);
    if (!veto.refusing) {
        TakeOut(node, CM_PROB_HELD_FOR_EJECT);
    }
    return veto;
}

void SetUpDevice(DeviceNode& node) {
    if (node.problem != CM_PROB_WILL_BE_REMOVED && node.problem != CM_PROB_DISABLED &&
        node.problem != CM_PROB_DEVICE_NOT_THERE) {
        return;
    }
    const std::size_t restart = OpenRestart(node, "remove-and-setup");
    EndRestart(restart, StartAndWait(node));
}

void ReenumerateDevice(DeviceNode& node) {
    const std::size_t restart = BeginRestart(node, "reenumerate");
    if (node.IsRunning()) {
        StartChildren(node, Cause::Product);
    }
    EndRestart(restart, true);
}

} // namespace machine
