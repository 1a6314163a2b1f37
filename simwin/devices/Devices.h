// The devices room as the rehearsal sees it: built once from the exports in the registry and a description, watched,
// and asked for the report. See PlugAndPlay.h for the events.
#pragma once

#include "simwin/devices/Description.h"
#include "simwin/devices/DeviceTree.h"
#include "simwin/devices/DosNames.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// Builds the tree: the devices of the exports (already in the registry, with the described registry values), then the
// described ones; everything that is there runs. Called once, before the machine runs. Returns "" or what is wrong with
// the description: an unknown parent, a hub port that does not exist.
std::string BuildDevices(const DevicesDescription& description);

// The keys of a device as its first installation makes them, or as the description says. firstTime: what is said of
// names does not count (it was uninstalled in between).
void InstallKeys(DeviceNode& node, bool firstTime);
// Writes location and bus address of what sits on a hub port.
void PlaceOnHub(DeviceNode& node, DeviceNode& hub, unsigned port);
bool IsBuildingDevices();
// Every attached device whose parent runs starts, in the order of enumeration, in no time and without notifications.
void RunAllAtStart();
// Described names that lead to something that runs are there at each start; what only an earlier life left is not.
void MakeLastingDosNames();

// Adds a device while the machine runs, not plugged; returns null if its parent is not known.
DeviceNode* AddDevice(const DeviceDescription& description, std::string* wrong = nullptr);
// What is said anew takes the place of what was said.
void AmendDevice(std::string_view id, const DeviceDescription& description);
DeviceDescription MergeDescriptions(const DeviceDescription& base, const DeviceDescription& over);

// A name made from outside: laid on top; with an empty target the newest definition goes.
void SetDosName(const DosNameDescription& name);

// A restart by a call of the product. `device`: the node that the call named, for a cycle the device at the hub port.
struct DeviceRestart {
    std::uint64_t atMs = 0;
    std::string device, means; // property-change, disable-enable, cycle, remove-and-setup, reenumerate
    bool ok = false;           // the call succeeded and the device runs (for a cycle: the hub agreed)
    // One of two calls (disable and enable, remove and set up) is entered with the first and judged with the second.
};
const std::vector<DeviceRestart>& DeviceRestarts();
// A restart is entered when the call begins and judged when it ends.
std::size_t BeginRestart(const DeviceNode& node, const char* means);
void EndRestart(std::size_t restart, bool ok);
void NoteFailedRestart(const DeviceNode& node, const char* means);

// What the timeline wants to know; each may be left empty.
struct DeviceObserver {
    std::function<void(const DosNameChange&)> dosNameChanged;
    std::function<void(const DeviceRestart&)> restarted;
    std::function<void(const DeviceNode&, const char* what)> deviceChanged; // "arrived", "left", "runs", "stopped", ...
};
void SetDeviceObserver(DeviceObserver observer);
const DeviceObserver& TheDeviceObserver();

} // namespace machine
