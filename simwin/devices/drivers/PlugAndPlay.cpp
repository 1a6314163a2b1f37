#include "simwin/devices/drivers/PlugAndPlay.h"

#include "simwin/devices/api.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PendingInstalls.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/devices/tree/Installation.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"

#include <algorithm>

namespace machine {

constexpr std::uint64_t LeaveStepMs = 1;

void TellOfDevice(const DeviceNode& node, const char* what) {
    if (IsBuildingDevices()) {
        return;
    }
    if (TheDeviceObserver().deviceChanged) {
        TheDeviceObserver().deviceChanged(node, what);
    }
    NoteTreeChange();
}

// A problem that only its own remedy ends: an enable, an unplug.
static bool StaysStopped(simwin::DWORD problem) {
    return problem == simwin::CM_PROB_DISABLED || problem == simwin::CM_PROB_HELD_FOR_EJECT;
}

static std::uint64_t StartsIn(const DeviceNode& node) {
    if (node.said.startsInMs) {
        return *node.said.startsInMs;
    }
    const bool usbFunction = node.kind == DeviceKind::Other && StartsWithNoCase(node.id, "USB\\");
    return DefaultsOf(usbFunction ? DeviceKind::Usb : node.kind, TheSetup().version).startsInMs;
}

static void WakeWaiters(DeviceNode& node) {
    while (!node.startWaiters.empty()) {
        Wake(node.startWaiters.front(), 0);
    }
}

static void BringInterfacesUp(DeviceNode& node) {
    for (const auto& deviceInterface : node.interfaces) {
        if (deviceInterface->up) {
            continue;
        }
        deviceInterface->registered = deviceInterface->up = true;
        if (!IsBuildingDevices()) {
            NotifyInterface(*deviceInterface, simwin::DBT_DEVICEARRIVAL);
        }
    }
}

// All go down before anyone is notified.
static void TakeInterfacesDown(DeviceNode& node) {
    std::vector<const DeviceInterface*> gone;
    for (const auto& deviceInterface : node.interfaces) {
        if (deviceInterface->up) {
            deviceInterface->up = false;
            gone.push_back(deviceInterface.get());
        }
    }
    for (const DeviceInterface* deviceInterface : gone) {
        NotifyInterface(*deviceInterface, simwin::DBT_DEVICEREMOVECOMPLETE);
    }
}

// Stops one node whose children are stopped already. True if it was running.
static bool StopNode(DeviceNode& node, Cause cause) {
    const bool wasRunning = node.IsRunning();
    ++node.startSerial;
    if (node.IsPresent()) {
        node.state = DeviceState::Stopped;
    }
    StopPortDriver(node);
    if (wasRunning) {
        node.stoppedByProduct = cause == Cause::Product;
    }
    TakeInterfacesDown(node);
    if (wasRunning) {
        TellOfDevice(node, "stopped");
    }
    WakeWaiters(node);
    return wasRunning;
}

static void GoAbsent(DeviceNode& node) {
    FinishInstall(node);
    node.state = DeviceState::Absent;
    if (node.problem != simwin::CM_PROB_DISABLED) {
        node.problem = node.stickyProblem;
    }
    TellOfDevice(node, "left");
}

// The consequences of a driver's start or failure.
static void SetRunning(DeviceNode& node, Cause cause) {
    node.problem = 0;
    node.state = DeviceState::Running;
    node.openRestart.reset();
    if (node.stoppedByProduct && cause == Cause::Product) {
        ++node.restarts;
    }
    node.stoppedByProduct = false;
    HoldAsSaid(node);
    if (node.quietStart) {
        node.quietStart = false;
        TellOfDevice(node, "runs");
        return;
    }
    BringInterfacesUp(node);
    TellOfDevice(node, "runs");
}

// Runs the driver. False if the node stays stopped, with a problem.
static bool StartDriver(DeviceNode& node, Cause cause) {
    FinishInstall(node);
    simwin::DWORD problem = node.stickyProblem;
    if (!problem && node.IsPort()) {
        problem = StartPortDriver(node);
    }
    if (!problem) {
        SetRunning(node, cause);
        return true;
    }
    node.problem = problem;
    node.state = DeviceState::Stopped;
    for (const auto& deviceInterface : node.interfaces) {
        deviceInterface->registered = true;
    }
    TellOfDevice(node, "failed");
    return false;
}

static void FinishStart(DeviceNode& node, std::uint64_t serial) {
    if (serial != node.startSerial || node.state != DeviceState::Starting) {
        return;
    }
    if (node.leaving) {
        node.state = DeviceState::Stopped;
    } else if (StartDriver(node, node.startCause)) {
        StartChildren(node, node.startCause);
    }
    WakeWaiters(node);
}

// Its parent runs: it is found there, installed if new to Windows, and starts.
static void Arrive(DeviceNode& node, Cause cause) {
    node.state = DeviceState::Stopped;
    node.attachedAtMs = Now();
    node.longKnown = IsBuildingDevices();
    if (!node.installed && (!IsBuildingDevices() || HasBooted())) { // at the start of the run everything is settled
        BeginInstall(node);
    }
    if (!node.installed) {
        InstallKeys(node, node.uninstalled);
    }
    if (node.IsPort() && !node.printerPort && !HasPortName(node)) {
        InstallPort(node);
    }
    if (node.uninstalled) {
        TheDeviceTree().Revive(&node);
    }
    TellOfDevice(node, "arrived");
    if (node.problem != 0) {
        for (const auto& deviceInterface : node.interfaces) {
            deviceInterface->registered = true;
        }
        FinishInstall(node);
        return;
    }
    if (!IsBuildingDevices()) {
        StartNode(node, cause);
    }
}

static void CollectLeaving(DeviceNode& node, std::vector<DeviceNode*>& leaving) {
    for (DeviceNode* child : node.children) {
        CollectLeaving(*child, leaving);
    }
    if (node.IsPresent() && !node.leaving) {
        leaving.push_back(&node);
    }
}

static void LeaveNow(DeviceNode& node, Cause cause) {
    StopNode(node, cause);
    node.leaving = false;
    GoAbsent(node);
    if (node.returnsAfterLeaving) {
        node.returnsAfterLeaving = false;
        AttachNode(node, cause);
    }
}

void StartNode(DeviceNode& node, Cause cause) {
    if (!node.IsPresent() || node.IsRunning() || node.state == DeviceState::Starting || node.leaving) {
        return;
    }
    if (node.parent && !node.parent->IsRunning()) {
        return;
    }
    node.state = DeviceState::Starting;
    node.startCause = cause;
    const std::uint64_t serial = ++node.startSerial;
    After(StartsIn(node), [&node, serial] { FinishStart(node, serial); });
}

void StartChildren(DeviceNode& node, Cause cause) {
    for (DeviceNode* child : node.children) {
        if (!child->attached || child->leaving) {
            continue;
        }
        if (!child->IsPresent()) {
            Arrive(*child, cause);
        } else if (!StaysStopped(child->problem)) {
            StartNode(*child, cause);
        }
    }
}

bool RunAtStart(DeviceNode& node) {
    if (node.IsRunning()) {
        return true;
    }
    if (!node.attached || node.IsPresent() || (node.parent && !RunAtStart(*node.parent))) {
        return false;
    }
    Arrive(node, Cause::Outside);
    return node.problem == 0 && StartDriver(node, Cause::Outside);
}

void AttachNode(DeviceNode& node, Cause cause) {
    node.attached = true;
    node.isComingBack = false;
    node.comesBackOn = nullptr;
    if (node.leaving) {
        node.returnsAfterLeaving = true;
        return;
    }
    if (!node.IsPresent() && node.parent && node.parent->IsRunning() && !node.parent->leaving) {
        Arrive(node, cause);
    }
}

std::uint64_t DetachTree(DeviceNode& node, Cause cause) {
    std::vector<DeviceNode*> leaving;
    CollectLeaving(node, leaving);
    node.attached = false;
    node.returnsAfterLeaving = false;
    node.isComingBack = false;
    node.comesBackOn = nullptr;
    for (DeviceNode* gone : leaving) {
        gone->leaving = true;
    }
    std::uint64_t delay = 0;
    for (DeviceNode* gone : leaving) {
        After(delay, [gone, cause] { LeaveNow(*gone, cause); });
        delay += LeaveStepMs;
    }
    return delay;
}

unsigned StopTree(DeviceNode& node, bool childrenGo, Cause cause) {
    unsigned stopped = 0;
    for (DeviceNode* child : node.children) {
        if (!child->IsPresent() || child->leaving) {
            continue;
        }
        stopped += StopTree(*child, childrenGo, cause);
        if (childrenGo) {
            GoAbsent(*child);
        }
    }
    return stopped + (StopNode(node, cause) ? 1 : 0);
}

bool WaitForStart(DeviceNode& node) {
    while (node.state == DeviceState::Starting) {
        Block(WaitKind::Machine, "a device to start", NoLimit, &node.startWaiters);
    }
    return node.IsRunning();
}

DeviceNode* FindVeto(DeviceNode& node, bool& heldOpen) {
    for (DeviceNode* child : node.children) {
        if (child->IsPresent()) {
            if (DeviceNode* refusing = FindVeto(*child, heldOpen)) {
                return refusing;
            }
        }
    }
    if (node.driver && node.driver->handles > 0) {
        heldOpen = true;
        return &node;
    }
    if (!node.IsRunning() || node.vetoesLeft == 0) {
        return nullptr;
    }
    if (node.vetoesLeft != VetoesAlways) {
        --node.vetoesLeft;
    }
    heldOpen = false;
    return &node;
}

void UninstallNode(DeviceNode& node, Cause cause) {
    StopTree(node, true, cause);
    node.attached = false;
    node.problem = 0;
    node.stickyProblem = 0;
    node.stoppedByProduct = false;
    node.openRestart.reset();
    if (node.IsPresent()) {
        GoAbsent(node);
    }
    const std::string driverKey = DriverKeyOf(node);
    if (!driverKey.empty()) {
        TheRegistry().DeleteTree("HKLM\\SYSTEM\\CurrentControlSet\\Control\\Class\\" + driverKey);
    }
    for (const auto& deviceInterface : node.interfaces) {
        std::string name = "##?#" + deviceInterface->noticePath.substr(4);
        TheRegistry().DeleteTree("HKLM\\SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\" +
                                 deviceInterface->classGuid + "\\" + name);
    }
    TheRegistry().DeleteTree(node.enumPath);
    node.installed = false;
    TheDeviceTree().Forget(&node);
    TellOfDevice(node, "uninstalled");
}

// What is below comes along, except what an event took away separately or what has no room in its socket.
void StopQuietly(DeviceNode& node) {
    for (DeviceNode* child : node.children) {
        if (child->IsPresent()) {
            StopTree(*child, true, Cause::Outside);
            GoAbsent(*child);
        }
    }
    ++node.startSerial;
    node.state = DeviceState::Stopped;
    StopPortDriver(node);
    node.stoppedByProduct = false;
    WakeWaiters(node);
}

void AttachBelow(DeviceNode& node) {
    for (DeviceNode* child : node.children) {
        if (!child->pulledOut && !child->crowdedOut) {
            child->attached = true;
        }
        AttachBelow(*child);
    }
}

void PutOnHub(DeviceNode& node, DeviceNode& hub, unsigned hubPort) {
    if (TheDeviceTree().SetParent(&node, &hub)) { // the hub may have been moved in the meantime
        PlaceOnHub(node, hub, hubPort);
    }
}

} // namespace machine
