// Taking a device away: a safe removal, for a while or before a restart, and the uninstalling of a device that has
// left. A veto (an open handle, a driver that refuses) leaves the device as it is, and its type is logged.
// Thread: any, except for the delayed uninstall, which has a thread of its own. Locks: none.
#pragma once

#include "platform/win32.h"

// Takes a device out so that its registry values can be changed; RestartDev brings it back.
// Returns: 1 if its problem number changed through the removal; 0 otherwise, also if the removal had no effect.
int SafelyRemove(DWORD devInst);

// Removes a device and sets it up again, for a device with a new problem. Blocks up to 5000 ms for installations.
// Returns: 1 if it was set up again; 0 after a veto, or if it did not go: it is then left as it is.
int PerformDeviceSafeRemovalAndRestart(DWORD devInst);

// Removes the device from the machine's list of known devices. Returns: 1 on success, else 0.
int UninstallDeviceByDevInst(DWORD devInst);

// The same after a delay, unless the device has come back by then or the service is to stop; ends within 1000 ms of the
// stop. delayMs: rounded up to whole seconds. Does not block.
void UninstallDeviceByDevInstDelayed(DWORD devInst, DWORD delayMs);

DWORD WINAPI UninstallDeviceByDevInstDelayed_ThreadProc(void* param);
