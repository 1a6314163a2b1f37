#include "inventory/devices/DevicePaths.h"

#include "inventory/devices/DeviceLists.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

// Longer than any real interface name; a larger size comes from a broken provider.
constexpr DWORD MaxDetailBytes = 0x10000;

// Room for most paths, so that a walk over many interfaces rarely needs a second block.
constexpr DWORD UsualDetailBytes = 260;
constexpr DWORD ZerosAfterDetailBytes = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);

// A path too long for the fixed block is skipped: only one known path is searched for.
static DWORD FindInterfaceNode(const DeviceList& list, const char* devicePath, const GUID& interfaceClass) {
    SP_DEVICE_INTERFACE_DATA interfaceData = {};
    for (DWORD index = 0; list.GetInterface(interfaceClass, index, &interfaceData); ++index) {
        char path[260];
        SP_DEVINFO_DATA device = {};
        if (list.ReadShortPath(&interfaceData, path, &device) && IsSameNoCase(path, devicePath)) {
            return device.DevInst;
        }
    }
    return 0;
}

const char* SkipPathPrefix(const char* devicePath) {
    if (devicePath == nullptr) {
        return "";
    }
    int skipped = 0;
    while (skipped < PathPrefixLength && devicePath[skipped] != '\0') {
        ++skipped;
    }
    return devicePath + skipped;
}

bool IsComPortPath(const char* devicePath) {
    return StrStrIA(devicePath, "{86e0d1e0-8089-11d0-9ce4-08003e301f73}") != nullptr;
}

bool IsModemPath(const char* devicePath) {
    return StrStrIA(devicePath, "{2c7089aa-2e0e-11d1-b114-00c04fc2aae4}") != nullptr;
}

bool IsSameDevicePath(const char* a, const char* b) {
    return IsSameNoCase(SkipPathPrefix(a), SkipPathPrefix(b));
}

DWORD GetDevInstByDevicePath(const char* devicePath, const GUID* interfaceClass, DWORD flags) {
    const char* path = devicePath != nullptr ? devicePath : "";
    WriteLog(3, "GetDevInstByDevicePath(%s)", path);
    const DeviceList list(interfaceClass, flags | DIGCF_DEVICEINTERFACE);
    if (!list.IsValid()) {
        WriteLog(2, "SetupDiGetClassDevs res=INVALID_HANDLE_VALUE -> abort");
        return 0;
    }
    const DWORD devInst = FindInterfaceNode(list, path, *interfaceClass);
    WriteLog(3, " devinst=%u", devInst);
    return devInst;
}

DWORD GetDevInstByDevicePathAny(const char* devicePath, DWORD flags) {
    SP_DEVICE_INTERFACE_DATA interfaceData = {};
    interfaceData.cbSize = sizeof(interfaceData);
    {
        const OwnedDeviceList list(SetupDiCreateDeviceInfoList(nullptr, nullptr));
        if (!list || !SetupDiOpenDeviceInterfaceA(list.Get(), devicePath, 0, &interfaceData)) {
            return 0;
        }
    }
    return GetDevInstByDevicePath(devicePath, &interfaceData.InterfaceClassGuid, flags);
}

DWORD GetProblem(DWORD devInst) {
    ULONG status = 0;
    ULONG problem = 0;
    if (CM_Get_DevNode_Status(&status, &problem, devInst, 0) != CR_SUCCESS) {
        return ProblemPhantom;
    }
    return problem;
}

bool IsDevicePresent(DWORD devInst) {
    WriteLog(3, "IsDevicePresent(%i)", static_cast<LONG>(devInst));
    ULONG status = 0;
    ULONG problem = 0;
    const CONFIGRET result = CM_Get_DevNode_Status(&status, &problem, devInst, 0);
    WriteLog(3, " cret=%u stat=0x%X prob=%u", result, status, problem);
    return result == CR_SUCCESS;
}

InterfaceDetail::~InterfaceDetail() {
    Free();
}

void InterfaceDetail::Free() {
    operator delete(m_detail);
    m_detail = nullptr;
    m_roomBytes = 0;
}

bool InterfaceDetail::Fill(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* interfaceData, SP_DEVINFO_DATA* device) {
    // The zeros after the requested part end a path that lacks its final zero.
    ZeroBytes(m_detail, m_roomBytes + ZerosAfterDetailBytes);
    m_detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
    *device = {};
    device->cbSize = sizeof(*device);
    return SetupDiGetDeviceInterfaceDetailA(list, interfaceData, m_detail, m_roomBytes, nullptr, device) != FALSE;
}

bool InterfaceDetail::Read(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* interfaceData, SP_DEVINFO_DATA* device) {
    if (m_detail != nullptr) {
        if (Fill(list, interfaceData, device)) {
            return true;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
            Free();
            return false;
        }
    }
    return ReadBySize(list, interfaceData, device);
}

bool InterfaceDetail::ReadBySize(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* interfaceData, SP_DEVINFO_DATA* device) {
    DWORD sizeBytes = 0;
    SetupDiGetDeviceInterfaceDetailA(list, interfaceData, nullptr, 0, &sizeBytes, nullptr);
    if (sizeBytes == 0 || sizeBytes > MaxDetailBytes) {
        Free();
        return false;
    }
    if (m_detail == nullptr || m_roomBytes < sizeBytes) {
        Free();
        m_roomBytes = sizeBytes > UsualDetailBytes ? sizeBytes : UsualDetailBytes;
        m_detail = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(operator new(m_roomBytes + ZerosAfterDetailBytes));
    }
    if (!Fill(list, interfaceData, device)) {
        Free();
        return false;
    }
    return true;
}
