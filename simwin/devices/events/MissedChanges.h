// What is plugged in and pulled out while nothing of the machine runs: it learns of the difference when it runs again.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Room.h"

#include <cstdint>

namespace machine {

void MissPlug(DeviceNode& node);
void MissUnplug(DeviceNode& node);
// Out, and in again at a time of the outside world, whether the machine runs by then or not.
void MissReplug(DeviceNode& node, std::uint64_t offMs);
void MissMove(DeviceNode& node, DeviceNode& hub, unsigned hubPort);

// The running machine notices: removals and arrivals. A device that was only briefly away has done both.
void NoticeMissedChanges();
// The machine is off and will start from the state as it is.
void ApplyMissedChanges();

RoomPtr MakeMissedChanges();

} // namespace machine
