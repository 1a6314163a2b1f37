// The means to make a device start again, or to take it away, in one list for the callers: the restarts stand in
// DeviceRestart, the removals in DeviceRemoval, and here the power cycle of a USB hub port with the two questions that
// decide about it. The choice among the means is the caller's.
// Thread: any. Locks: none. All of them block as long as Windows and the driver need.
#pragma once

#include "inventory/devices/DeviceRemoval.h"
#include "inventory/devices/DeviceRestart.h"
#include "platform/win32.h"

// Takes the power from one port of a hub and gives it back: the device there leaves and comes again.
// hubPath: the hub's interface path; null or empty gives 0. Returns: 1 if the hub said that it did so.
int CycleUsbPort(const char* hubPath, DWORD hubPortNumber);

// Returns: 1 if the device is of the setup class "USB".
int IsUsbDevice(DWORD devInst);

// Returns: 1 if the device is a composite one, whose hub port other functions share.
int IsUsbCompoundDevice(DWORD devInst);

// Whether the hubs of this Windows can restart this port by its hub port.
bool IsCyclable(const CComPort* port);

// The power cycle of one port of the hub with this node. reader: keeps the list of hubs while it is searched.
// Returns: whether the hub is known and said that it did so.
class HubReader;
bool CycleHubPort(const HubReader& reader, DWORD hubDevInst, DWORD hubPortNumber);

// Restarts the upper device of a group of ports, under CS_main: by its hub port if it is a hub itself and this Windows
// can, else by a property change. devInst: the device node.
void RestartDevice_TimerProc(DWORD id, ULONG_PTR devInst);
