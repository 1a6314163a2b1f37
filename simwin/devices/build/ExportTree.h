// From the exports of the registry editor to a device tree: which devices there are and what hangs below what. Which of
// them are present now is decided by ExportPresence.h.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <string>
#include <string_view>
#include <vector>

namespace machine {

// Adds a node for every device below Enum, in the order of the exports, and the root if the exports have none. Keys
// that only hold values of a described device are left to its description.
void AddExportedDevices(const std::vector<DeviceDescription>& described);
// Finds the parents of the nodes that have none, once all nodes are there: by the prefix of their instance ids, by the
// parent that was captured, by their location, by their enumerator. Gives the hubs their numbers. A node whose place is
// unknown stays without a parent.
void LinkExportedDevices();
// The same for one described device that names no parent.
DeviceNode* ParentOfDescribed(DeviceNode& node);
// Interface classes that the exports have registered for their devices.
void AddExportedInterfaces();

// The lowest number that no hub has.
unsigned FreeHubNumber();
// The hub port in the id of a USB device without a serial number ("...&0&3"), which Windows writes in decimal; 0 for
// another id.
unsigned PortInId(std::string_view id);

// "Port_#0007.Hub_#0002"; false for another text.
bool ParseHubLocation(std::string_view location, unsigned& port, unsigned& hub);
// The part of an id after its last backslash, and the one before its first.
std::string_view InstanceOf(std::string_view id);
std::string_view EnumeratorOf(std::string_view id);

} // namespace machine
