// Device lists of the setup API, and the steps that walk them. Used by the restarts, the removals and the hub topology.
// Thread: any, without a lock; a list belongs to the function that took it. The calls may block as long as Windows
// does.
#pragma once

#include "platform/win32.h"
#include "support/system/Handles.h"

// Owns a device list and destroys it at the end of the scope.
class DeviceList {
public:
    // interfaceClass: null for no class. flags: DIGCF_... If there is no list, the last error says why.
    DeviceList(const GUID* interfaceClass, DWORD flags);

    bool IsValid() const { return m_list.IsOpen(); }
    HDEVINFO Get() const { return m_list.Get(); }

    // The device or the interface at this index. Returns: true, or false after the last one.
    bool GetDevice(DWORD index, SP_DEVINFO_DATA* device) const;
    bool GetInterface(const GUID& interfaceClass, DWORD index, SP_DEVICE_INTERFACE_DATA* interfaceData) const;

    // The device with this node. Returns: true and `device`, or false.
    bool FindDevice(DWORD devInst, SP_DEVINFO_DATA* device) const;

    // Path and device of an interface, read into a fixed block of 260 bytes: hubs and controllers have short paths.
    // Returns: true; or false with the last error, `path` is then empty.
    bool ReadShortPath(SP_DEVICE_INTERFACE_DATA* interfaceData, char (&path)[260], SP_DEVINFO_DATA* device) const;

private:
    OwnedDeviceList m_list;
};
