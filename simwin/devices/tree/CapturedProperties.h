// What the registry of a real machine keeps of a device besides its plain values: the property store below the device's
// key, and the key that exists only while the device is present. Read only.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <cstdint>
#include <string>

namespace machine {

std::string LastKnownParentOf(const DeviceNode& node);    // an id; "" if it was not captured
std::string CapturedLocationPath(const DeviceNode& node); // the first one; "" if it was not captured
std::uint64_t LastArrivalOf(const DeviceNode& node);      // a file time; 0 if it was not captured
// The export was made on a running machine, and the device was present.
bool HasControlKey(const DeviceNode& node);

} // namespace machine
