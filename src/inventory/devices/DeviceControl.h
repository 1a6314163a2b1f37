// The means to restart a device or to take it away, in one place for callers: restarts are in DeviceRestart, removals
// in DeviceRemoval, and here is the power cycle of a USB hub port with the two questions that decide about it. The
// caller chooses among the means.
// Thread: any. Locks: none. All of them block as long as Windows and the driver need.
#pragma once

#include "inventory/devices/DeviceRemoval.h"
#include "inventory/devices/DeviceRestart.h"
#include "platform/win32.h"

// Cycles the power of a hub port: its device leaves and returns.
// hubPath: the hub's interface path; null or empty gives 0. Returns: 1 if the hub reported success.
int CycleUsbPort(const char* hubPath, DWORD hubPortNumber);

// Returns: 1 if the device is of the setup class "USB".
int IsUsbDevice(DWORD devInst);

// Returns: 1 if the device is a composite one, whose hub port is shared by other functions.
int IsUsbCompoundDevice(DWORD devInst);

// Whether the hubs of this Windows can restart this port by its hub port.
bool IsCyclable(const CComPort* port);

// The power cycle of one hub port of the hub with this node. reader: keeps the list of hubs while it is searched.
// Returns: whether the hub is known and reported success.
class HubReader;
bool CycleHubPort(const HubReader& reader, DWORD hubDevInst, DWORD hubPortNumber);

// Restarts the upper device of a group of ports, under CS_main: by its hub port if it is a hub itself and this Windows
// can, else by a property change. devInst: the device node.
void RestartDevice_TimerProc(DWORD id, ULONG_PTR devInst);
