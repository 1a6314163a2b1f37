// The devices room as the rehearsal sees it: built once from the exports in the registry and a description, watched,
// and queried for the report. See PlugAndPlay.h for the events.
#pragma once

#include "simwin/devices/tree/Description.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DosNames.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// Builds the tree: the devices of the exports (already in the registry, with the described registry values), then the
// described ones; everything that is present runs. Called once, before the machine runs. Returns: "" or what is wrong
// with the description: an unknown parent, a hub port that does not exist.
std::string BuildDevices(const DevicesDescription& description);

// The keys of a device as its first installation makes them, or as the description says. firstTime: described names are
// ignored (it was uninstalled in between).
void InstallKeys(DeviceNode& node, bool firstTime);
// Writes location and bus address of what sits on a hub port.
void PlaceOnHub(DeviceNode& node, DeviceNode& hub, unsigned port);
bool IsBuildingDevices();
// Every attached device whose parent runs starts, in the order of enumeration, in no time and without notifications.
void RunAllAtStart();
// Described names that lead to something that runs exist at each start; leftovers of an earlier run do not.
void MakeLastingDosNames();

// Adds a device while the machine runs, not plugged; returns null if its parent is not known.
DeviceNode* AddDevice(const DeviceDescription& description, std::string* wrong = nullptr);
// A new description replaces the former one.
void AmendDevice(std::string_view id, const DeviceDescription& description);

// A name defined from outside: put on top; an empty target deletes the newest definition.
void SetDosName(const DosNameDescription& name);

// A restart by a call of the product. `device`: the node that the call named, for a cycle the device at the hub port.
struct DeviceRestart {
    std::uint64_t atMs = 0;
    std::string device, means; // property-change, disable-enable, cycle, remove-and-setup, reenumerate
    bool ok = false;           // the call succeeded and the device runs (for a cycle: the hub accepted it)
    // One of two calls (disable and enable, remove and set up) is entered with the first and judged with the second.
};
const std::vector<DeviceRestart>& DeviceRestarts();
// A restart is entered when the call begins and judged when it ends.
std::size_t BeginRestart(const DeviceNode& node, const char* means);
void EndRestart(std::size_t restart, bool ok);
void NoteFailedRestart(const DeviceNode& node, const char* means);

// Callbacks for the timeline; each may be empty.
struct DeviceObserver {
    std::function<void(const DosNameChange&)> dosNameChanged;
    std::function<void(const DeviceRestart&)> restarted;
    std::function<void(const DeviceNode&, const char* what)> deviceChanged; // "arrived", "left", "runs", "stopped", ...
};
void SetDeviceObserver(DeviceObserver observer);
const DeviceObserver& TheDeviceObserver();

} // namespace machine
