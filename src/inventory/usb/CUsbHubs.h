// All USB hubs of the machine, each with its position as a text such as 1-4-2 and as a chain of bytes. A port's
// `UsbPort` is the name of its hub and the number of its hub port.
// Threads: rescans on the thread that delivers device notifications; concurrent look-ups on arrival and timer threads.
// A rescan makes a new list and retires the old one, which lives until its last reader releases it. So anyone who keeps
// a hub record must hold a HubReader for that long. The short lock guards the lists' reference counts, never a device
// call. Between two rescans only PortCount of a record changes, a single word to which each writer writes the same
// value.
#pragma once

#include "platform/win32.h"

constexpr LONG MaxHubs = 256;
constexpr LONG NoHub = -1;

struct UsbHub {
    LONG Index;       // place in the list
    LONG ParentIndex; // place of the hub above, -1 when there is none in the list
    DWORD DevInst;
    DWORD ParentDevInst;
    LONG PortNumber;     // a root hub's controller number; else its hub port on the hub above, 0 if unknown
    ULONGLONG PortChain; // position, one byte a level, the level nearest the root in the highest byte
    DWORD PortCount;     // hub ports, 0 until first queried
    char szName[24];     // position such as 1-4-2
    char szDriverKeyName[48];
    char szParentDriverKeyName[48];
    char szDevPath[260];
    char szHostControllerId[128]; // device id of the host controller; not empty marks a root hub
};

// One snapshot. Freed with its hubs when the owner, all readers and all older snapshots have released it.
struct UsbHubList {
    LONG Holders;
    UsbHubList* Next; // its successor; referenced by this one
    LONG Count;
    UsbHub* Hubs[MaxHubs];
};

class CUsbHubs {
public:
    CUsbHubs();
    // Frees every list without a reader; only when no thread is left that can start a look-up.
    ~CUsbHubs();
    CUsbHubs(const CUsbHubs&) = delete;
    CUsbHubs& operator=(const CUsbHubs&) = delete;

    // Builds a new list of all hubs and replaces the old one once it is complete. Blocks: each hub is queried. Returns:
    // 1; 0 when the device information set cannot be created, the list is then empty.
    int CreateSnapshot() QM_EXCLUDES(CS_lists);

    // The record of a hub whose node is present, or null. The record is valid as long as the caller's HubReader, which
    // must exist before the call.
    UsbHub* FindHubByDevInst(DWORD devInst) QM_EXCLUDES(CS_lists);

    // The hub port of the device, as reported by the hub; 0 if not found. The location text and the address are only
    // hints where to look first. Blocks for the requests to the hub.
    DWORD GetUsbPortNumber(DWORD devInst) QM_EXCLUDES(CS_lists);

    // The same, starting with a given hub port. expectedPort: 0 for none.
    DWORD UsbGetTruePortNumber(DWORD devInst, LONG expectedPort) QM_EXCLUDES(CS_lists);

private:
    friend class HubReader;

    UsbHubList* HoldCurrent() QM_EXCLUDES(CS_lists);
    void Release(UsbHubList* list) QM_EXCLUDES(CS_lists);
    void Publish(UsbHubList* list) QM_EXCLUDES(CS_lists);

    CRITICAL_SECTION CS_lists;
    UsbHubList* m_current QM_GUARDED_BY(CS_lists);
};

// Keeps alive every hub record that is in the list now or is added while the reader exists. Cheap; several at once
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

extern CUsbHubs* g_pUsbHubs; // created by the initialisation thread before the notifications, then constant

// Finds the hub above each hub of the list, and sets the name and chain of each. A ring of hubs, which only a broken
// tree can show, ends after as many levels as there are hubs.
void LinkHubs(UsbHubList* list);

// Puts the hub port numbers of `parent` and of the hubs above it in front of a hub's name and chain. name: cut to its
// end.
void BuildPortName(const UsbHubList* list, LONG parentIndex, char (&name)[24], ULONGLONG* chain);
