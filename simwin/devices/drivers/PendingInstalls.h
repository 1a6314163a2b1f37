// Installations that Windows has not finished: of devices that were never there.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Room.h"

namespace machine {

// It arrives for the first time.
void BeginInstall(DeviceNode& node);
// It has started, has failed to, or is gone again: its installation ends a described time later.
void FinishInstall(DeviceNode& node);
// The power goes off, and every installation ends with it.
void ForgetInstalls();
// Blocks the running thread until none is pending, `ms` at most (INFINITE: no limit). False if one still is.
bool WaitForInstalls(simwin::DWORD ms);

RoomPtr MakePendingInstalls();

} // namespace machine
