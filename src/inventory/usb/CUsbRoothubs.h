// The host controllers in the order in which the system lists them, and their root hubs. The place of a controller in
// the list is the first number in the name of every hub and port below it.
// Thread: the initialisation thread, and the thread that delivers device notifications (a new root hub); in a debug run
// whose initialisation outlasts the wait for it both at once. So a rescan builds new lists and publishes them when they
// are complete; the short lock guards that step and the look-up, never a device call.
#pragma once

#include "platform/win32.h"

constexpr LONG MaxHostControllers = 64;
constexpr LONG MaxRootHubs = 64;

struct UsbHostController {
    LONG Index; // place in the list, from 0
    DWORD DevInst;
};

struct UsbRootHub {
    LONG Number; // of its host controller, -1 if that is not in the list
    DWORD DevInst;
    DWORD ParentDevInst;
    char DeviceID[260];
    char ParentDeviceID[260];
};

class CUsbRoothubs {
public:
    CUsbRoothubs();
    ~CUsbRoothubs();
    CUsbRoothubs(const CUsbRoothubs&) = delete;
    CUsbRoothubs& operator=(const CUsbRoothubs&) = delete;

    // Builds new lists; what does not fit the arrays is left out. Returns: always 1.
    int CreateSnapshot() QM_EXCLUDES(CS_lists);

    // Returns: the place of the controller with this node, counted from 1; -1 if it is not in the list.
    LONG GetHostControllerNumber(DWORD devInst) const QM_EXCLUDES(CS_lists);

    // Is the node a root hub, by its device id or by what is above it? Queries the device tree, not the list. 1 or 0.
    static int IsRootHub(DWORD devInst);

    LONG HostControllerCount = 0;
    LONG RootHubCount = 0;
    UsbHostController* HostControllers[MaxHostControllers] = {};
    UsbRootHub* RootHubs[MaxRootHubs] = {};

private:
    bool ListHostControllers();
    void ListRootHubs();
    void SwapLists(CUsbRoothubs* other) QM_EXCLUDES(CS_lists);

    mutable CRITICAL_SECTION CS_lists;
};

extern CUsbRoothubs* g_pUsbRoothubs; // created by the initialisation thread before the notifications, then constant
