// What happens to devices, for the timeline and the report: restarts by the product, changes as they happen.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DosNames.h"
#include "simwin/kernel/Room.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace machine {

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

// While the tree is built and at each start of the machine: devices start in no time and nobody is notified.
bool IsBuildingDevices();
bool SetBuildingDevices(bool isBuilding); // the former value

RoomPtr MakeDeviceWatch();

} // namespace machine
