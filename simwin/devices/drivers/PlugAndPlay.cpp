#include "simwin/devices/drivers/PlugAndPlay.h"

#include "simwin/devices/api.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PendingInstalls.h"
#include "simwin/devices/events/MissedChanges.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"
#include "simwin/power/Power.h"
#include "simwin/registry/Registry.h"

#include <algorithm>

namespace machine {

constexpr std::uint64_t LeaveStepMs = 1;

static void Tell(const DeviceNode& node, const char* what) {
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
        Tell(node, "stopped");
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
    Tell(node, "left");
}

namespace {
struct HeldPort : Object {
    HeldPort() : Object(ObjectKind::File) {}
    void LastHandleClosed() override;
    KernelDevice* device = nullptr;
    std::string portName;
    Process* program = nullptr;
    simwin::HANDLE handle = nullptr;
};
} // namespace
static std::vector<HeldPort*>* g_held;

void HeldPort::LastHandleClosed() {
    if (!g_held) {
        return;
    }
    std::erase(*g_held, this);
    CloseKernelDevice(*device);
}

static void Create() {
    g_held = new std::vector<HeldPort*>;
}

static void Destroy() {
    delete g_held;
    g_held = nullptr;
}

static Room g_room(63, Create, Destroy);

static void HoldAsSaid(DeviceNode& node) {
    if (!node.said.heldBy || node.wasHeld || !node.driver) {
        return;
    }
    node.wasHeld = true;
    HoldDevice(node, HolderProcess(*node.said.heldBy));
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
        Tell(node, "runs");
        return;
    }
    BringInterfacesUp(node);
    Tell(node, "runs");
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
    Tell(node, "failed");
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
    Tell(node, "arrived");
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

static DeviceNode* NodeOrNew(std::string_view id) {
    if (DeviceNode* node = TheDeviceTree().FindById(id)) {
        return node;
    }
    DeviceDescription description;
    description.id = id;
    return AddDevice(description);
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
    Tell(node, "uninstalled");
}

// What is below comes along, except what an event took away separately or what has no room in its socket.
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

void PlugDevice(std::string_view id) {
    DeviceNode* node = NodeOrNew(id);
    if (!node) {
        return;
    }
    if (IsMachineDown()) {
        MissPlug(*node);
        return;
    }
    node->pulledOut = node->crowdedOut = false;
    AttachBelow(*node);
    AttachNode(*node, Cause::Outside);
}

void UnplugDevice(std::string_view id) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    if (IsMachineDown()) {
        MissUnplug(*node);
        return;
    }
    node->pulledOut = true;
    DetachTree(*node, Cause::Outside);
}

void ReplugDevice(std::string_view id, std::uint64_t offMs) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    if (IsMachineDown()) {
        MissReplug(*node, offMs);
        return;
    }
    if (!node->IsPresent()) {
        return;
    }
    DetachTree(*node, Cause::Outside);
    node->isComingBack = true;
    After(offMs, [node] { AttachNode(*node, Cause::Outside); });
}

void MoveDevice(std::string_view id, std::string_view hubId, unsigned hubPort, std::uint64_t offMs) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    DeviceNode* hub = TheDeviceTree().FindById(hubId);
    if (!node || !hub || HangsBelow(hub, node)) {
        return;
    }
    if (IsMachineDown()) {
        MissMove(*node, *hub, hubPort);
        return;
    }
    const std::uint64_t leaves = DetachTree(*node, Cause::Outside);
    node->isComingBack = true;
    node->comesBackOn = hub;
    node->comesBackOnPort = hubPort;
    After(std::max(offMs, leaves), [node, hub, hubPort] {
        node->pulledOut = node->crowdedOut = false;
        PutOnHub(*node, *hub, hubPort);
        AttachNode(*node, Cause::Outside);
    });
}

void SetDeviceProblem(std::string_view id, const ProblemEvent& event) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    if (event.number == 0) {
        node->problem = 0;
        node->stickyProblem = 0;
        if (node->IsPresent() && !node->IsRunning()) {
            node->quietStart = event.quiet;
            StartNode(*node, Cause::Outside);
        }
    } else if (!event.quiet || !node->IsPresent()) {
        if (node->IsPresent()) {
            StopTree(*node, true, Cause::Outside);
        }
        node->problem = event.number;
        node->stickyProblem = event.sticky ? event.number : 0;
    } else {
        for (DeviceNode* child : node->children) {
            if (child->IsPresent()) {
                StopTree(*child, true, Cause::Outside);
                GoAbsent(*child);
            }
        }
        ++node->startSerial;
        node->state = DeviceState::Stopped;
        StopPortDriver(*node);
        node->stoppedByProduct = false;
        node->problem = event.number;
        node->stickyProblem = event.sticky ? event.number : 0;
        WakeWaiters(*node);
    }
    if (!node->IsPresent()) {
        return;
    }
    Tell(*node, "problem");
    if (event.quiet) {
        NoteTreeChange(true);
    }
}

void BroadcastTreeChanges(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        SendTreeChange(true);
    }
}

Process* HolderProcess(std::string_view imagePath) {
    for (Process* process : AllProcesses()) {
        if (!process->ended && !process->image && process->threads.empty() &&
            EqualNoCase(process->imagePath, imagePath)) {
            return process;
        }
    }
    ProcessStart start;
    start.imagePath = imagePath;
    start.commandLine = "\"" + start.imagePath + "\"";
    start.currentDirectory = start.imagePath.substr(0, start.imagePath.rfind('\\'));
    start.rights = Rights::User;
    start.administrator = false;
    return StartScripted(start);
}

bool HoldDevice(DeviceNode& node, Process* program) {
    KernelDevice* device = node.driver;
    if (!device || device->handles > 0 || !program || program->ended) {
        return false;
    }
    OpenKernelDevice(*device);
    auto* held = new HeldPort;
    held->device = device;
    held->portName = DosNameOf(node);
    held->program = program;
    g_held->push_back(held);
    held->handle = program->handles.Open(held);
    return true;
}

std::string HolderOf(const DeviceNode& node) {
    for (const HeldPort* held : *g_held) {
        if (held->device == node.driver && node.driver) {
            return held->program->imagePath;
        }
    }
    return "";
}

bool HoldPort(std::string_view portName, Process* program) {
    const DosDefinition* name = TheDosNames().InForce(portName);
    KernelDevice* device = name ? TheDeviceTree().RunningDevice(name->target) : nullptr;
    return device && HoldDevice(*device->node, program);
}

bool HoldPort(std::string_view portName, std::string_view imagePath) {
    return HoldPort(portName, HolderProcess(imagePath));
}

bool ReleasePort(std::string_view portName) {
    for (const HeldPort* held : *g_held) {
        if (EqualNoCase(held->portName, portName)) {
            return held->program->handles.Close(held->handle);
        }
    }
    // Its name may have changed since.
    const DosDefinition* name = TheDosNames().InForce(portName);
    const KernelDevice* device = name ? TheDeviceTree().RunningDevice(name->target) : nullptr;
    for (const HeldPort* held : *g_held) {
        if (device && held->device == device) {
            return held->program->handles.Close(held->handle);
        }
    }
    return false;
}

void CalmDown() {
    EndFaults();
    while (!g_held->empty()) {
        const HeldPort* held = g_held->back();
        held->program->handles.Close(held->handle);
    }
    for (DeviceNode* node : TheDeviceTree().All()) {
        node->vetoesLeft = 0;
        node->said.refuses = false;
        node->said.cycleStatus = 0;
        node->said.heldBy.reset();
        if (node->problem != 0) {
            SetDeviceProblem(node->id, {});
        }
    }
}

void ReplugAllDevices(std::uint64_t offMs) {
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->IsPresent() && node->parent && node->parent->IsHub() && node->kind != DeviceKind::RootHub &&
            !(node->parent->parent && node->parent->parent->IsHub())) {
            ReplugDevice(node->id, offMs);
        }
    }
}

} // namespace machine
