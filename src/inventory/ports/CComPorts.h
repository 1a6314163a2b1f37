// The port table: what the service remembers of every serial port and modem that it has seen since it started.
// Filled by CreateSnapshot at the start and by AddNewPort at each arrival; read by nearly everything else.
// Threads: the initialisation thread, the thread of the device events, the arrival threads and the timer threads.
// Locks: none for reading. Slots are filled once, records never move or disappear while the service runs, PortCount
// only grows, and fields are single words or texts replaced in place: a reader may see a text that is just being
// replaced, and tolerates it. CS_slots makes taking a slot one step.
#pragma once

#include "platform/win32.h"

class DeviceList;
class InterfaceDetail;

constexpr int MaxPorts = 4096;
constexpr int NoPort = -1;

// Elements of CComPort::Same, the port itself included. Further members of a group are left out.
constexpr int MaxSame = 33;

// A virtual record's DevInst is this plus the number, so a real device node reads as signed not negative.
constexpr DWORD VirtualDevInst = 0x80000000u;

enum BusTypeIndex : int {
    BusUnknown = 0,
    BusIsa = 1,
    BusPci = 2,
    BusPcmcia = 3,
    BusUsb = 4,
};

// Names of the bus types by index; ended by a null pointer.
constexpr const char* BusTypeNames[] = {"Unknown", "ISA", "PCI", "PCMCIA", "USB", nullptr};
static_assert(sizeof(BusTypeNames) / sizeof(BusTypeNames[0]) == BusUsb + 2);

// One port. Texts are ANSI and ended by zero; DevInst fields are nodes of the configuration manager; tickers are
// GetTickCount values, to be compared by unsigned subtraction only.
// Guard: none, see the head of this file. Each field is written by the operation named with it.
struct CComPort {
    DWORD RecordValid = 1; // 1 in the record of a device, 0 in a virtual record
    LONG Index = NoPort;   // own place in Ports, -1 until inserted
    DWORD IsUsed = 0;
    DWORD IsPresent = 0;
    DWORD MarkedForRestart = 0; // needs its number again at the next check; cleared by the restart
    ULONGLONG EnumTime = 0;     // FILETIME of the last write to the device's Enum key
    DWORD DevInst = 0;          // in a virtual record VirtualDevInst plus the number
    DWORD ParentDevInst = 0;
    DWORD GrandParentDevInst = 0;
    DWORD SameParentDevInst = 0;  // ancestor that groups the ports of one physical device, 0 if none
    DWORD UsbDevInst = 0;         // node directly on a hub port: this one or an ancestor, 0 if none
    DWORD HubDevInst = 0;         // first ancestor that is a hub, 0 if none
    DWORD Problem = 0;            // last known problem number, 45 if the node could not be queried
    LONG PortNumber = 0;          // number in szPortName; an absent port keeps its last one
    LONG SameParentCount = 0;     // entries in Same, 0 until the first scan
    LONG Same[MaxSame] = {};      // indices of the ports of the same device, itself first
    char szPortName[128] = {};    // DOS name in force, else empty
    char PortNumberText[12] = {}; // digits of szPortName
    char szRegPortName[128] = {}; // registry name
    char DevPath[520] = {};       // device interface path with its prefix, empty in a virtual record
    char DeviceID[260] = {};
    char ParentDeviceID[260] = {};
    char GrandParentDeviceID[260] = {};
    char DriverKeyName[46] = {};  // below the Class key
    char szRegEnumPath[260] = {}; // below HKEY_LOCAL_MACHINE
    char szRegClassPath[260] = {};
    char FriendlyName[128] = {};
    char FriendlyNameNoCom[128] = {};
    char szKernelNameDevPath[128] = {}; // NT device behind DevPath
    char szKernelNameCom[128] = {};     // NT device behind szPortName
    char IRQ[12] = {};                  // decimal, empty if unknown
    char IoPort[12] = {};               // upper-case hexadecimal, empty if unknown
    char UsbPort[24] = {};              // hub name and hub port number, empty unless BusType is USB
    char Service[64] = {};
    char ParentService[64] = {};
    char Location[128] = {};
    char ParentLocation[128] = {};
    char LocationPath[512] = {};
    char ParentLocationPath[512] = {};
    char Address[12] = {}; // decimal, "-" if the device has none
    char ParentAddress[12] = {};
    ULONGLONG UsbPortChain = 0; // one byte a hub level, the one nearest the root highest
    DWORD UsbPortNumber = 0;    // hub port of UsbDevInst, 0 if unknown
    char Class[64] = {};
    char ClassGuid[42] = {};
    const char* BusTypeName = nullptr; // of BusTypeNames
    LONG BusType = BusUnknown;
    DWORD ArrivalTicker = 0;
    DWORD RemovalTicker = 0;
    DWORD SameParentArrivalTicker = 0; // of CDeviceArrivals, 0 if it knows none
    DWORD ChangePortTicker = 0;        // last change of the number; may lie 4000 ms in the future
    DWORD PortChangedByDdn = 0;        // the number was changed by the DOS name alone
    DWORD RestartTicker = 0;           // last restart by this service
    DWORD PortChangeDone = 0;          // the check has finished for the present arrival
    DWORD OnArrivalDone = 0;
    DWORD OnRemovalDone = 0;
    LONG LeftNumber = 0;            // bit set because the port had it while the registry held another; 0: none
    LONG WrittenNumber = 0;         // bit set when this service wrote it, until the registry is read again; 0: none
    DWORD AwaitedRestart = 0;       // a restart was put off and the port has not come back from it (NameClaims)
    DWORD AwaitedRestartTicker = 0; // when that restart is due, if one is awaited
    LONG NameRival = 0;      // index + 1 of a port that claims the link that a put-off restart takes along; 0: none
    DWORD HasCopiedName = 0; // szPortName leads to another present port's device; szKernelNameCom is that one's

    // The port has gone: it has no name in force any more. What else to reset depends on how that was noticed.
    void SetAbsent() {
        IsPresent = 0;
        szPortName[0] = '\0';
        szKernelNameCom[0] = '\0';
    }
};

// True for the node of a real device, false for 0 and for the DevInst of a virtual record.
constexpr bool IsRealDevInst(DWORD devInst) {
    return static_cast<LONG>(devInst) > 0;
}

class CComPorts {
public:
    CComPort* Ports[MaxPorts] = {};
    LONG PortCount = 0; // slots 0 to PortCount minus 1 hold a record

    CComPorts();
    ~CComPorts(); // frees the records: only when no thread is left that can reach them
    CComPorts(const CComPorts&) = delete;
    CComPorts& operator=(const CComPorts&) = delete;

    // Frees every record and empties the table. Only before the first port and at process end.
    void ClearPorts();

    // --- look-ups (CComPorts.cpp). Indices are -1 when nothing fits. ---

    // First used record with this node, present or not.
    int FindPortIdxByDevInst(DWORD devInst) const;
    // First slot that is null or whose record is not used. A hint only: AddPort takes the slot for good.
    int FindFreePortSlot() const;
    // First used record with this path; case and the first four characters ("\\?\", "\\.\") are ignored.
    int FindPortIdxByDevicePath(const char* devicePath) const;
    // First used and present record with this registry name, ignoring case, or null.
    CComPort* FindPortByComPort(const char* portName) const;
    // First used and present record without problem, other than `skip`, with this registry name, whose kernel name is
    // exactly what the DOS name leads to now. So a port that only claims the name in the registry does not count.
    // Returns: its index, or -1.
    int FindPortByComPort(const char* portName, const CComPort* skip) const;
    // Writes the table to the log.
    void ListPorts() const;

    // --- snapshot and arrivals (PortSnapshot.cpp, PortUpdate.cpp) ---

    // Empties the table and enters every port that Windows lists, then the DOS COM names that none of them explains.
    // reason: only logged. Returns: PortCount, 0 if an interface class cannot be listed. Blocks for the device calls.
    int CreateSnapshot(int reason);
    // Enters a device that is not in the table yet. slotNumber: only logged. devicePath: of its interface, may be
    // empty. Returns: 1 if a record was made; 0 if the port was there already or the table is full.
    int AddPort(int slotNumber, DWORD devInst, const char* devicePath);
    // Enters a COM name of the DOS name space that belongs to no device. Returns: the index, 0 when the table is full.
    int AddVirtualPort(const char* portName, const char* kernelName);
    // Makes or refreshes the record of the port with this interface path, and groups it. May block up to 15 s.
    // Returns: its index, or -1 if the path is no port of this machine or the table is full.
    int AddNewPort(const char* devicePath);
    // Reads the device into the record. devicePath: empty or null for no change. A property that cannot be read leaves
    // its field as it was. May block up to 15 s when the hub does not know the device yet. Returns: 1.
    int UpdatePort(int index, DWORD devInst, const char* devicePath);
    // Fills UsbPort, UsbPortNumber and UsbPortChain from the list of hubs. May block up to 15 s.
    void BuildUsbPortName(CComPort* port) const;

    // --- scans (PortScans.cpp) ---

    // Settles which of two present ports that claim one registry name has it; marks the other, or both, for restart.
    void ScanSamePorts();
    // Fills Same and SameParentCount of each record that is present or was just restarted.
    void ScanSameParents();
    // Deletes the DOS names of ports whose device is gone. Blocks up to 500 ms for each port.
    void DeleteNotFoundPorts();
    // Turns the record with this path into an absent port and clears the DOS name as configured.
    // Returns: its index, or -1 if no record has the path.
    int RemovePort(const char* devicePath);
    // Are the two the functions of one device, judged by their device ids, with x's id as the reference? 1 or 0.
    static int IsSameDevice(const CComPort* x, const CComPort* y);

    // --- numbers (ComNameAvailability.cpp, ComNameArbiter.cpp) ---

    // Does the table hold the name for no working port? Stale records that claim it are set absent. 1 or 0.
    int IsComPortNameAvailable(const char* portName);
    // The lowest number that is free in the COM name database and that no present port uses, or 0.
    int FindFreePortNumber() const;

    // --- problem scans (ProblemDevices.cpp), on a timer thread, without CS_main and CS_assign ---

    // Finds ports whose device got a problem number: one safe removal and restart, then a check.
    void FindNewProblemDevices();
    // Finds ports whose problem ended or whose device has gone, and removes them.
    void FindRemovedProblemDevices();

private:
    // Takes a free slot for a device that no record has yet, in one step: two arrivals never get the same slot, and one
    // device never gets two records. devicePath: may be empty. *known: the index of the record that has the device
    // already, else -1. Returns: as TakeFreeSlot; null also if the device is known.
    CComPort* ReserveSlot(DWORD devInst, const char* devicePath, int* known) QM_EXCLUDES(CS_slots);

    // Takes the first free slot, in a full table that of the record that has been absent longest. The record comes
    // zeroed except for RecordValid 1, Index, IsUsed 1, DevInst and DevPath.
    // Returns: the record, or null if the table is full of ports that are there or are about to come back.
    CComPort* TakeFreeSlot(DWORD devInst, const char* devicePath) QM_REQUIRES(CS_slots);

    // The record that has been absent longest and awaits nothing: no restart, no number, no driver. Index or -1.
    int FindSlotOfLongestAbsent() const;

    int AddPortsOfClass(const GUID* interfaceClass);
    // detail: one for the whole walk.
    void AddListedDevice(const DeviceList& list, DWORD index, const GUID* interfaceClass, SP_DEVINFO_DATA* device,
                         InterfaceDetail* detail);
    void AddNamesWithoutDevice();
    int AddOrUpdateDevice(DWORD devInst, const char* devicePath);
    void ScanNewProblems(const DeviceList& list, const GUID* interfaceClass);
    void ReactToProblem(DWORD devInst, DWORD problem, const char* devicePath);

    mutable CRITICAL_SECTION CS_slots;
};

// Set by the initialisation thread before the device notifications are registered, then constant.
extern CComPorts* g_pComPorts;

// The order of the ports in a balloon, as QuickSort wants it: `a` and `b` point to pointers to CComPort.
// Returns: below, equal to or above 0 if `a` sorts before, with or after `b`.
LONGLONG ComparePortsByPosition(const void* a, const void* b);
