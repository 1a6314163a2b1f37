// From the exports of the registry editor to a device tree: which devices there are, what hangs below what, and which
// of them are there now.
#pragma once

#include "simwin/devices/DeviceTree.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// Adds a node for every device below Enum, in the order of the exports, and the root if the exports have none. Keys
// that only hold values of a described device are left to its description.
void AddExportedDevices(const std::vector<DeviceDescription>& described);
// Finds the parents of the nodes that have none, once all nodes are there: by the prefix of their instance ids, by
// their location, by their enumerator.
void LinkExportedDevices();
// Says which exported devices are there: those whose ids stand in the text, or by what the exports tell themselves.
void SettleExportedPresence(const std::optional<std::string>& connected);
// Interface classes that the exports have registered for their devices.
void AddExportedInterfaces();

// Where a device hangs that says nothing but its id: the device that its enumerator belongs to, else the tree's root.
DeviceNode* ParentByEnumerator(std::string_view id);

// "Port_#0007.Hub_#0002"; false for another text.
bool ParseHubLocation(std::string_view location, unsigned& port, unsigned& hub);
// The part of an id behind its last backslash, and that before its first.
std::string_view InstanceOf(std::string_view id);
std::string_view EnumeratorOf(std::string_view id);

} // namespace machine
