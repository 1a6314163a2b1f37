// The device tree as the rehearsal makes it: built once from the exports in the registry and a description. What
// happens to devices later is in events/Events.h, what is noted of them in tree/DeviceWatch.h.
#pragma once

#include "simwin/devices/tree/Description.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/devices/tree/DosNames.h"
#include "simwin/kernel/Room.h"

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

// Every attached device whose parent runs starts, in the order of enumeration, in no time and without notifications.
void RunAllAtStart();
// Described names that lead to something that runs exist at each start; leftovers of an earlier run do not.
void MakeLastingDosNames();

// Adds a device while the machine runs, not plugged; returns null if its parent is not known.
DeviceNode* AddDevice(const DeviceDescription& description, std::string* wrong = nullptr);
// A new description replaces the former one.
void AmendDevice(std::string_view id, const DeviceDescription& description);

RoomPtr MakeDevices();

} // namespace machine
