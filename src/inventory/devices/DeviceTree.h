// What a port's place in the device tree says: its bus, the hub above it, the device that it shares with other ports.
// Called by UpdatePort, RemovePort and the restart methods, on any thread, without a lock. Every walk is limited, so a
// broken tree (a node that is its own ancestor) gives "none" instead of an endless loop.
#pragma once

#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

// The node's parent, 0 at the root or when it cannot be queried.
DWORD GetParentDevInst(DWORD devInst);

// Index into BusTypeNames, judged by the device ids in the record; the parent's service is read afresh.
int GetBusType(const CComPort* port);

// The first ancestor that is a hub or whose id begins with PCI or ROOT; 0 for a motherboard port or if there is none.
DWORD GetSameParentDevInst(DWORD devInst);

// The node itself or the ancestor that sits directly on a hub; 0 if no hub is above.
DWORD GetUsbDevInst(DWORD devInst);

// The first ancestor that is a hub; 0 if there is none.
DWORD GetHubDevInst(DWORD devInst);

// Is the node a USB hub, by id, hardware id, service or description?
bool IsUsbHubDevice(DWORD devInst);

// Has the node a child whose status can be queried and that has no problem?
bool HasWorkingChild(DWORD devInst);
