// The steps of which events (events/Events.h) and calls of the product are made: arriving, leaving, starting, stopping.
// Everything that takes time follows the machine's clock.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <cstdint>

namespace machine {

// To the observer, and to whoever is notified of changes of the tree: "arrived", "left", "runs", "stopped", ...
void TellOfDevice(const DeviceNode& node, const char* what);
// It is plugged in from now on: it arrives as soon as its parent runs, then what hangs below it.
void AttachNode(DeviceNode& node, Cause cause);
// It leaves with all below it, step by step from the bottom up. Returns how long that takes in ms.
std::uint64_t DetachTree(DeviceNode& node, Cause cause);
// Stops drivers of the node and of all below it, children first. `childrenGo`: what hangs below is gone until it
// starts. Returns how many running nodes were stopped.
unsigned StopTree(DeviceNode& node, bool childrenGo, Cause cause);
// The same without a sign: what hangs below goes, the driver stops, the interfaces stay as they are.
void StopQuietly(DeviceNode& node);
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
