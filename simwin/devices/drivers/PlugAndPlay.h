// What happens to devices from outside and by calls: arriving, leaving, starting, stopping, problems, holding.
// Everything that takes time follows the machine's clock. The functions for events are called in the scheduler's
// context; those for the product's calls say so.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Process.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace machine {

// --- Events of a description. An unknown id is added from the catalogue.
inline constexpr std::uint64_t DefaultOffMs = 200;
void PlugDevice(std::string_view id);   // with all that hangs below it
void UnplugDevice(std::string_view id); // from the bottom up, 1 ms apart
void ReplugDevice(std::string_view id, std::uint64_t offMs = DefaultOffMs);
void MoveDevice(std::string_view id, std::string_view hubId, unsigned hubPort, std::uint64_t offMs = DefaultOffMs);
struct ProblemEvent {
    simwin::DWORD number = 0; // 0: it ends
    bool quiet = false;       // the interfaces stay as they are
    bool sticky = false;      // later starts do not clear it
};
void SetDeviceProblem(std::string_view id, const ProblemEvent& event);
void BroadcastTreeChanges(unsigned count); // how many at once, to services too
// A program opens and closes a port by its DOS name. False if there is no such port to open or it is open already.
bool HoldPort(std::string_view portName, Process* program);
bool ReleasePort(std::string_view portName);
bool HoldPort(std::string_view portName, std::string_view imagePath);
bool HoldDevice(DeviceNode& node, Process* program);
std::string HolderOf(const DeviceNode& node); // path of the program that holds its port open; "" if none does
// From now on nothing fails, refuses or is held open: described faults, vetoes and refusals end, programs let go of
// ports, problems end and what they stopped starts, hubs obey.
void CalmDown();
// All devices that would hang on a bus are taken away and come back: a resume with devices = "replug".
void ReplugAllDevices(std::uint64_t offMs = DefaultOffMs);

// The power goes: no device runs or is there, no one is notified, and what was in progress is over. What is out for a
// moment is back by the next start.
void PowerOffDevices();
// The next start: numbers, names and drivers from the beginning, each plugged device by what the registry says.
// Problems that a fresh start cures are gone.
void StartDevicesAnew();

// The program that holds ports under this path: the one that runs already, or a scripted process that starts now.
Process* HolderProcess(std::string_view imagePath);

// --- The steps that make up events and calls.
// It is plugged in from now on: it arrives as soon as its parent runs, then what hangs below it.
void AttachNode(DeviceNode& node, Cause cause);
// It leaves with all below it, step by step from the bottom up. Returns how long that takes in ms.
std::uint64_t DetachTree(DeviceNode& node, Cause cause);
// Stops drivers of the node and of all below it, children first. `childrenGo`: what hangs below is gone until it
// starts. Returns how many running nodes were stopped.
unsigned StopTree(DeviceNode& node, bool childrenGo, Cause cause);
// Starts a present, stopped node and, once it runs, what hangs below it.
void StartNode(DeviceNode& node, Cause cause);
// Starts what hangs below a running node and may start; disabled and ejected ones stay as they are.
void StartChildren(DeviceNode& node, Cause cause);
// What hangs below it is plugged in too, except what an event pulled out separately.
void AttachBelow(DeviceNode& node);
// It is on this hub port from now on; unchanged if the hub is below it.
void PutOnHub(DeviceNode& node, DeviceNode& hub, unsigned hubPort);
// At the start of the machine: without time, unless it is there already. False if it cannot run.
bool RunAtStart(DeviceNode& node);
// Blocks the running thread until the node runs, has failed or is gone. True if it runs.
bool WaitForStart(DeviceNode& node);
// The device in the tree below that refuses to stop: held open or vetoing. Null if none. Counts a veto of limited
// number.
DeviceNode* FindVeto(DeviceNode& node, bool& heldOpen);
// Removes node and keys; the ComDB bit stays. What hangs below it is gone, its keys stay.
void UninstallNode(DeviceNode& node, Cause cause);

} // namespace machine
