// What the registry of a real machine keeps of a device besides its plain values: the property store below the device's
// key, and the key that exists only while the device is present. No export has that store unless the system made it, so
// a capture brings what matters of it in a file of its own.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace machine {

// Puts both into the property store of an exported device; "" is left as it is. Before the tree is built. False for a
// device that no export has.
bool StoreCapturedProperties(std::string_view id, std::string_view parent, std::string_view locationPath);

std::string LastKnownParentOf(const DeviceNode& node);    // an id; "" if it was not captured
std::string CapturedLocationPath(const DeviceNode& node); // the first one; "" if it was not captured
std::uint64_t LastArrivalOf(const DeviceNode& node);      // a file time; 0 if it was not captured
// The export was made on a running machine, and the device was present.
bool HasControlKey(const DeviceNode& node);

} // namespace machine
