// Restarts of a device, from the mildest to the hardest, so that its driver starts with the names in the registry.
// Called by the arrivals, the assignment check, the swap and the problem scan. Each tries once; the caller may then try
// another.
// Thread: any. Locks: none of its own, called inside CS_assign or CS_main. Blocks up to 5000 ms for installations that
// are pending, plus the time of the class installer.
#pragma once

#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

// A property change through the class installer. Clears MarkedForRestart and sets RestartTicker before it is tried;
// on success sets ChangePortTicker and copies szRegPortName to szPortName, PortNumberText and PortNumber.
// Returns: 1, or 0 if the port offers no COM port interface or the installer refused.
int PerformComPortPropertyChange(CComPort* port);

// Disable, then enable, through the class installer. On success sets ChangePortTicker; the names are the caller's.
// Returns: 1 if all calls succeeded, else 0.
int PerformComPortDisableEnable(CComPort* port);

// Disable, then enable, through the configuration manager. Returns: 1 on success, else 0.
int PerformDeviceCmDisableEnable(DWORD devInst);

// A property change on any device that is present. Returns: 1 on success, else 0.
int PerformDevicePropertyChange(DWORD devInst);

// Starts a device that was taken out by SafelyRemove, or that is disabled. A 32-bit process on 64-bit Windows cannot
// load the class installer and goes through the configuration manager.
// Returns: 1 on success, else 0; the effect of the last fallback does not count.
int RestartDev(DWORD devInst);
