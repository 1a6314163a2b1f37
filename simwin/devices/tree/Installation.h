// What installing a device means: the facts of its kind, its keys in the registry, its interfaces, its place on a hub.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Room.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace machine {

// The node's facts, from the description, the catalogue, its kind.
struct DeviceFacts {
    std::string className, classGuid, service, description, hardwareId;
    std::uint32_t capabilities;
};
DeviceFacts FactsOf(const DeviceNode& node);
// The described interfaces, else those of its kind.
void MakeInterfaces(DeviceNode& node, std::string_view className);
// The keys of a device as its first installation makes them, or as the description says. firstTime: described names are
// ignored (it was uninstalled in between).
void InstallKeys(DeviceNode& node, bool firstTime);
// Writes location and bus address of what sits on a hub port.
void PlaceOnHub(DeviceNode& node, DeviceNode& hub, unsigned port);
// A hub that is not described has as many hub ports as it needs.
void WidenHub(DeviceNode& hub, unsigned port);

// The count of driver keys by class.
RoomPtr MakeDriverKeys();

} // namespace machine
