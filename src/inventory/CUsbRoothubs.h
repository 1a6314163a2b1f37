// The host controllers in the order in which the system lists them, and their root hubs. The place of a controller in
// the list is the first number in the name of every hub and port below it.
// Thread: the initialisation thread, then only the thread that delivers device notifications (a new root hub); the list
// of hubs is rescanned on the same thread behind it. So no two threads touch it, and it has no lock.
#pragma once

#include "platform/win32.h"

constexpr LONG kMaxHostControllers = 64;
constexpr LONG kMaxRootHubs = 64;

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
    CUsbRoothubs() = default;
    ~CUsbRoothubs();
    CUsbRoothubs(const CUsbRoothubs&) = delete;
    CUsbRoothubs& operator=(const CUsbRoothubs&) = delete;

    // Lists everything anew; what does not fit the arrays is left out. Returns: always 1.
    int CreateSnapshot();

    // Returns: the place of the controller with this node, counted from 1; -1 if it is not in the list.
    LONG GetHostControllerNumber(DWORD devInst) const;

    // Is the node a root hub, by its device id or by what is above it? Asks the device tree, not the list. 1 or 0.
    static int IsRootHub(DWORD devInst);

    LONG HostControllerCount = 0;
    LONG RootHubCount = 0;
    UsbHostController* HostControllers[kMaxHostControllers] = {};
    UsbRootHub* RootHubs[kMaxRootHubs] = {};

private:
    void FreeLists();
    bool ListHostControllers();
    void ListRootHubs();
};

extern CUsbRoothubs* g_pUsbRoothubs; // made by the initialisation thread before the notifications, then constant
