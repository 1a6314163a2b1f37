// What the calls of the product to devices keep: resource handles, and that devices can be opened by name.
#pragma once

#include "simwin/kernel/Room.h"

namespace machine {

RoomPtr MakeDeviceResources();
RoomPtr MakeOpenDevices();

} // namespace machine
