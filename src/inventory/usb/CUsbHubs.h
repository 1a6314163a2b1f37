// All USB hubs of the machine, each with its position as a text such as 1-4-2 and as a chain of bytes. A port's
// `UsbPort` is the name of its hub and the number of the hub port at which it sits.
// Threads: rescans on the thread that delivers device notifications; look-ups on arrival and timer threads beside them.
// A rescan makes a new list and retires the old one, which lives until its last reader has let go of it. So whoever
// keeps a hub record holds a HubReader for that long. The short lock inside guards the lists' owners, never a device
// call. Between two rescans only PortCount of a record changes, a single word that each writer fills alike.
#pragma once

#include "platform/win32.h"

constexpr LONG MaxHubs = 256;
constexpr LONG NoHub = -1;

struct UsbHub {
    LONG Index;       // place in the list
    LONG ParentIndex; // place of the hub above, -1 when there is none in the list
    DWORD DevInst;
    DWORD ParentDevInst;
    LONG PortNumber;     // of a root hub its controller's number; else its port on the hub above, 0 if unknown
    ULONGLONG PortChain; // position, one byte a level, the level nearest the root in the highest byte
    DWORD PortCount;     // ports of this hub, 0 until first asked
    char szName[24];     // position such as 1-4-2
    char szDriverKeyName[48];
    char szParentDriverKeyName[48];
    char szDevPath[260];
    char szHostControllerId[128]; // device id of the host controller; not empty marks a root hub
};

// One snapshot. Freed with its hubs when nobody holds it any more: not the owner, no reader, no older snapshot.
struct UsbHubList {
    LONG Holders;
    UsbHubList* Next; // the snapshot that took its place; held by this one
    LONG Count;
    UsbHub* Hubs[MaxHubs];
};

class CUsbHubs {
public:
    CUsbHubs();
    // What no reader holds is freed; only when no thread is left that can start a look-up.
    ~CUsbHubs();
    CUsbHubs(const CUsbHubs&) = delete;
    CUsbHubs& operator=(const CUsbHubs&) = delete;

    // Lists all hubs anew and puts the new list in the place of the old one when it is whole. Blocks: each hub is
    // asked. Returns: 1; 0 when the device information set cannot be had, the list is empty then.
    int CreateSnapshot() QM_EXCLUDES(CS_lists);

    // The record of a hub whose node is present, or null. The record is good as long as the caller's HubReader, which
    // was there before the call.
    UsbHub* FindHubByDevInst(DWORD devInst) QM_EXCLUDES(CS_lists);

    // The hub port at which the device sits, as the hub itself tells; 0 when not found. The location text and the
    // address are only hints where to look first. Blocks for the requests to the hub.
    DWORD GetUsbPortNumber(DWORD devInst) QM_EXCLUDES(CS_lists);

    // The same with the port that is asked first. expectedPort: 0 for none.
    DWORD UsbGetTruePortNumber(DWORD devInst, LONG expectedPort) QM_EXCLUDES(CS_lists);

    // Number of hubs in the present list.
    LONG GetCount() QM_EXCLUDES(CS_lists);

private:
    friend class HubReader;

    UsbHubList* HoldCurrent() QM_EXCLUDES(CS_lists);
    void Release(UsbHubList* list) QM_EXCLUDES(CS_lists);
    void Publish(UsbHubList* list) QM_EXCLUDES(CS_lists);

    CRITICAL_SECTION CS_lists;
    UsbHubList* m_current QM_GUARDED_BY(CS_lists);
};

// Keeps alive every hub record that is in the list now or comes into it while the reader exists. Cheap; several at once
// and one inside another are fine. hubs: may be null, the reader then keeps nothing.
class HubReader {
public:
    explicit HubReader(CUsbHubs* hubs);
    ~HubReader();
    HubReader(const HubReader&) = delete;
    HubReader& operator=(const HubReader&) = delete;

    // The list as it was when the reader began, null without hubs.
    const UsbHubList* List() const { return m_list; }

private:
    CUsbHubs* m_hubs;
    UsbHubList* m_list;
};

extern CUsbHubs* g_pUsbHubs; // made by the initialisation thread before the notifications, then constant

// Finds for each hub of the list the hub above it, and gives each its name and its chain. A ring of hubs, which only a
// broken tree can show, ends after as many levels as there are hubs.
void LinkHubs(UsbHubList* list);

// Puts the port numbers of `parent` and of the hubs above it in front of a hub's name and chain. name: cut to its end.
void BuildPortName(const UsbHubList* list, LONG parentIndex, char (&name)[24], ULONGLONG* chain);
