#include "inventory/usb/CUsbRoothubs.h"

#include <utility>

#include "inventory/devices/DeviceLists.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/devices/DeviceTree.h"
#include "support/log/LogFile.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

CUsbRoothubs* g_pUsbRoothubs;

constexpr DWORD PresentInterfaces = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;
static_assert(PresentInterfaces == 18);

static bool Contains(const char* text, const char* part) {
    return StrStrIA(text, part) != nullptr;
}

CUsbRoothubs::CUsbRoothubs() {
    InitializeCriticalSection(&CS_lists);
}

CUsbRoothubs::~CUsbRoothubs() {
    for (LONG i = 0; i < HostControllerCount; ++i) {
        delete HostControllers[i];
    }
    for (LONG i = 0; i < RootHubCount; ++i) {
        delete RootHubs[i];
    }
    DeleteCriticalSection(&CS_lists);
}

int CUsbRoothubs::CreateSnapshot() {
    CUsbRoothubs fresh; // ends with the old lists
    if (fresh.ListHostControllers()) {
        fresh.ListRootHubs();
    }
    SwapLists(&fresh);
    return 1;
}

// other: known to the caller alone.
void CUsbRoothubs::SwapLists(CUsbRoothubs* other) {
    const LockGuard lock(CS_lists);
    std::swap(HostControllerCount, other->HostControllerCount);
    std::swap(HostControllers, other->HostControllers);
    std::swap(RootHubCount, other->RootHubCount);
    std::swap(RootHubs, other->RootHubs);
}

// Returns: false when the controllers cannot be listed; without their numbers the root hubs are useless.
bool CUsbRoothubs::ListHostControllers() {
    const DeviceList list(&interface_class::UsbHostController, PresentInterfaces);
    if (!list.IsValid()) {
        return false;
    }
    SP_DEVICE_INTERFACE_DATA interfaceData;
    for (DWORD index = 0; index < static_cast<DWORD>(MaxHostControllers) &&
                          list.GetInterface(interface_class::UsbHostController, index, &interfaceData);
         ++index) {
        char path[260];
        SP_DEVINFO_DATA device;
        if (!list.ReadShortPath(&interfaceData, path, &device) || GetHostControllerNumber(device.DevInst) > 0) {
            continue;
        }
        HostControllers[HostControllerCount] = new UsbHostController{HostControllerCount, device.DevInst};
        WriteLog(3, "UsbHcs[%i]=%u", HostControllerCount, device.DevInst);
        ++HostControllerCount;
    }
    return true;
}

void CUsbRoothubs::ListRootHubs() {
    WriteLog(3, "CUsbRoothubs::CreateSnapshot Start");
    const DeviceList list(&interface_class::UsbHub, PresentInterfaces);
    if (!list.IsValid()) {
        WriteLog(2, "SetupDiGetClassDevs res=INVALID_HANDLE_VALUE -> abort");
        return;
    }
    SP_DEVICE_INTERFACE_DATA interfaceData;
    for (DWORD index = 0;
         RootHubCount < MaxRootHubs && list.GetInterface(interface_class::UsbHub, index, &interfaceData); ++index) {
        char path[260];
        char deviceId[260] = {};
        SP_DEVINFO_DATA device;
        if (!list.ReadShortPath(&interfaceData, path, &device) || !ReadDeviceId(device.DevInst, deviceId) ||
            !IsRootHub(device.DevInst)) {
            continue;
        }
        auto* const hub = new UsbRootHub{};
        hub->DevInst = device.DevInst;
        CopyText(hub->DeviceID, deviceId);
        hub->ParentDevInst = GetParentDevInst(device.DevInst);
        (void)ReadDeviceId(hub->ParentDevInst, hub->ParentDeviceID); // stays empty for a hub without a parent
        hub->Number = GetHostControllerNumber(hub->ParentDevInst);
        RootHubs[RootHubCount] = hub;
        ++RootHubCount;
    }
    WriteLog(3, "CUsbRoothubs::CreateSnapshot Finish  RootHubCount=%i", RootHubCount);
}

LONG CUsbRoothubs::GetHostControllerNumber(DWORD devInst) const {
    const LockGuard lock(CS_lists);
    for (LONG i = 0; i < HostControllerCount; ++i) {
        if (HostControllers[i]->DevInst == devInst) {
            return i + 1;
        }
    }
    return -1;
}

int CUsbRoothubs::IsRootHub(DWORD devInst) {
    char deviceId[260] = {};
    if (ReadDeviceId(devInst, deviceId)) {
        if ((Contains(deviceId, "root") && Contains(deviceId, "hub")) || Contains(deviceId, "xhc")) {
            return 1;
        }
    }
    DEVINST parent = 0;
    if (CM_Get_Parent(&parent, devInst, /*flags=*/0) != CR_SUCCESS) {
        return 1;
    }
    char parentId[260] = {};
    if (!ReadDeviceId(parent, parentId)) {
        return 0;
    }
    if (StrStrIA(parentId, "PCI") == parentId) {
        return 1;
    }
    char parentClass[64] = {};
    return ReadDeviceText(parent, CM_DRP_CLASS, parentClass) && lstrcmpA(parentClass, "USB") != 0;
}
