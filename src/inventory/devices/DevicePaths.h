// From a device interface path to its device node, and the two questions whether a node is there.
// Called by the arrivals, the port table, the engine and the device tools, on any thread, without a lock. They call the
// configuration manager and the setup API and may block as long as those do.
#pragma once

#include "inventory/devices/ProblemNumbers.h"
#include "platform/win32.h"

// Length of "\\?\" and "\\.\", which are ignored when paths are compared.
constexpr int PathPrefixLength = 4;

// The path after its first four characters; the empty text at its end if it is shorter. Null gives an empty text.
const char* SkipPathPrefix(const char* devicePath);

// Are the two paths the same, ignoring case and the first four characters of both?
bool IsSameDevicePath(const char* a, const char* b);

// An interface path ends in its class: does it belong to the COM ports, to the modems?
bool IsComPortPath(const char* devicePath);
bool IsModemPath(const char* devicePath);

// The node of the interface with this path (ignoring case) among those of the class.
// flags: of SetupDiGetClassDevsA, DIGCF_DEVICEINTERFACE is added. Returns: the node, or 0.
DWORD GetDevInstByDevicePath(const char* devicePath, const GUID* interfaceClass, DWORD flags);

// The same for a path whose interface class is not known. Returns: the node, or 0.
DWORD GetDevInstByDevicePathAny(const char* devicePath, DWORD flags);

// The present problem number of the node, 0 for none, 45 when the node cannot be queried.
DWORD GetProblem(DWORD devInst);

// Can the status of the node be queried? A device with a problem number is present.
bool IsDevicePresent(DWORD devInst);

// A heap copy of an interface's detail with its path, freed at the end of the scope. A walk over a list keeps one for
// all its interfaces, since each allocation and release checks the whole heap.
class InterfaceDetail {
public:
    InterfaceDetail() = default;
    ~InterfaceDetail();
    InterfaceDetail(const InterfaceDetail&) = delete;
    InterfaceDetail& operator=(const InterfaceDetail&) = delete;

    // Reads the detail and its device; asks for the size first unless the previous interface's block is large enough.
    // `device` is set up for the call here. Returns: true on success; Path() and `device` are then valid.
    bool Read(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* interfaceData, SP_DEVINFO_DATA* device);
    // The same, always asking for the size.
    bool ReadBySize(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* interfaceData, SP_DEVINFO_DATA* device);

    const char* Path() const { return m_detail != nullptr ? m_detail->DevicePath : ""; }

private:
    bool Fill(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* interfaceData, SP_DEVINFO_DATA* device);
    void Free();

    SP_DEVICE_INTERFACE_DETAIL_DATA_A* m_detail = nullptr;
    DWORD m_roomBytes = 0; // of the block, without what follows it
};
