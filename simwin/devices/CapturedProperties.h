// What the registry of a real machine keeps of a device beside its plain values: the property store below the device's
// key, and the key that is there only while the device is. Read only.
#pragma once

#include "simwin/devices/DeviceTree.h"

#include <cstdint>
#include <string>

namespace machine {

std::string LastKnownParentOf(const DeviceNode& node);    // an id; "" if it was not captured
std::string CapturedLocationPath(const DeviceNode& node); // the first one; "" if it was not captured
std::uint64_t LastArrivalOf(const DeviceNode& node);      // a file time; 0 if it was not captured
// The export was made of a running machine, and the device was there.
bool HasControlKey(const DeviceNode& node);

} // namespace machine
