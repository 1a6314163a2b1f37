#include "inventory/devices/DeviceLists.h"

#include "support/texts/BoundedText.h"

constexpr DWORD DetailSize = 260;
constexpr DWORD DetailPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
static_assert(DetailPathOffset == 4);

DeviceList::DeviceList(const GUID* interfaceClass, DWORD flags)
    : m_list(SetupDiGetClassDevsA(interfaceClass, /*Enumerator=*/nullptr, /*hwndParent=*/nullptr, flags)) {
}

bool DeviceList::GetDevice(DWORD index, SP_DEVINFO_DATA* device) const {
    *device = {};
    device->cbSize = sizeof(*device);
    return SetupDiEnumDeviceInfo(m_list.Get(), index, device) != FALSE;
}

bool DeviceList::GetInterface(const GUID& interfaceClass, DWORD index, SP_DEVICE_INTERFACE_DATA* interfaceData) const {
    *interfaceData = {};
    interfaceData->cbSize = sizeof(*interfaceData);
    return SetupDiEnumDeviceInterfaces(m_list.Get(), /*DeviceInfoData=*/nullptr, &interfaceClass, index,
                                       interfaceData) != FALSE;
}

bool DeviceList::FindDevice(DWORD devInst, SP_DEVINFO_DATA* device) const {
    for (DWORD index = 0; GetDevice(index, device); ++index) {
        if (device->DevInst == devInst) {
            return true;
        }
    }
    return false;
}

bool DeviceList::ReadShortPath(SP_DEVICE_INTERFACE_DATA* interfaceData, char (&path)[260],
                               SP_DEVINFO_DATA* device) const {
    alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_A) BYTE block[DetailSize] = {};
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(block);
    detail->cbSize = sizeof(*detail);
    *device = {};
    device->cbSize = sizeof(*device);
    path[0] = 0;
    if (!SetupDiGetDeviceInterfaceDetailA(m_list.Get(), interfaceData, detail, DetailSize, nullptr, device)) {
        return false;
    }
    CopyTextPart(path, sizeof(path), reinterpret_cast<const char*>(block) + DetailPathOffset,
                 DetailSize - DetailPathOffset);
    return true;
}
