// The list of device interfaces that announced themselves since the start, with the tick of their arrival. Its one use
// is to find how long ago the device above a port appeared, so that the check recognises a port that came along with
// it.
// Thread: AddDeviceArrival on the thread of the device events alone; GetDeviceArrivalTicker on any.
// Locks: none. An entry is whole before its slot points to it, it never moves, and a full table overwrites the oldest
// entry in place: a reader then gets the old tick, the new one or none, but never a freed entry.
#pragma once

#include "platform/win32.h"

constexpr DWORD MaxDeviceArrivals = 4096;

struct DeviceArrival {
    char DevPath[260];
    DWORD DevInst;
    DWORD ArrivalTicker;
};

class CDeviceArrivals {
public:
    DWORD Count = 0;                                 // entries in use
    DWORD LastIndex = 0;                             // slot written last
    DeviceArrival* Arrivals[MaxDeviceArrivals] = {}; // owned

    CDeviceArrivals() = default;
    ~CDeviceArrivals(); // frees the entries: only when no thread is left that can reach them
    CDeviceArrivals(const CDeviceArrivals&) = delete;
    CDeviceArrivals& operator=(const CDeviceArrivals&) = delete;

    // Notes the present tick for the path. A path that is known keeps its DevInst; a new one is looked up among the
    // present interfaces of the class. Once the table is full the oldest entry goes.
    // Returns: the DevInst of the entry, 0 if the node was not found. Blocks for the look-up.
    DWORD AddDeviceArrival(const char* devicePath, const GUID* interfaceClass);

    // Returns: the arrival tick of the first entry with this node, 0 if there is none.
    DWORD GetDeviceArrivalTicker(DWORD devInst) const;
};

// Set by the initialisation thread before the device notifications are registered, then constant.
extern CDeviceArrivals* g_pDeviceArrivals;
