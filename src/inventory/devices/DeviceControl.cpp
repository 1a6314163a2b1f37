#include "inventory/devices/DeviceControl.h"

#include "inventory/devices/DeviceProperties.h"
#include "inventory/devices/DeviceTree.h"
#include "inventory/names/NameClaims.h"
#include "inventory/usb/CUsbHubs.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"

constexpr DWORD CyclePortRequest = 0x220444; // IOCTL_USB_HUB_CYCLE_PORT

namespace {
// USB_CYCLE_PORT_PARAMS, in and out.
struct CyclePortRecord {
    DWORD ConnectionIndex;
    DWORD StatusReturned;
};
} // namespace
static_assert(sizeof(CyclePortRecord) == 8);

int CycleUsbPort(const char* hubPath, DWORD hubPortNumber) {
    if (hubPath == nullptr || *hubPath == 0) {
        return 0;
    }
    WriteLog(3, "CreateFile(%s)...", hubPath);
    const OwnedFile hub(CreateFileA(hubPath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, /*security=*/nullptr,
                                    OPEN_EXISTING, /*flags=*/0, /*template=*/nullptr));
    if (!hub) {
        return 0;
    }
    WriteLog(3, "IOCTL_USB_HUB_CYCLE_PORT(0x%p, %u)...", hub.Get(), hubPortNumber);
    CyclePortRecord record = {hubPortNumber, 0};
    DWORD returned = 0;
    const BOOL done = DeviceIoControl(hub.Get(), CyclePortRequest, &record, sizeof(record), &record, sizeof(record),
                                      &returned, /*overlapped=*/nullptr);
    return done && record.StatusReturned == 0;
}

int IsUsbDevice(DWORD devInst) {
    char deviceClass[64] = {};
    return ReadDeviceText(devInst, CM_DRP_CLASS, deviceClass) && lstrcmpA(deviceClass, "USB") == 0;
}

int IsUsbCompoundDevice(DWORD devInst) {
    char service[64] = {};
    return ReadDeviceText(devInst, CM_DRP_SERVICE, service) && lstrcmpiA(service, "usbccgp") == 0;
}

bool IsCyclable(const CComPort* port) {
    return g_os.CanCycleUsbPort && port->BusType == BusUsb;
}

bool CycleHubPort(const HubReader&, DWORD hubDevInst, DWORD hubPortNumber) {
    const auto* hub = g_pUsbHubs != nullptr ? g_pUsbHubs->FindHubByDevInst(hubDevInst) : nullptr;
    return hub != nullptr && CycleUsbPort(hub->szDevPath, hubPortNumber) != 0;
}

// Cycles the hub port of the upper device, which is itself a hub. Returns: whether that restarted it.
static bool CycleUpperHub(DWORD devInst) {
    if (g_pUsbHubs == nullptr || !g_os.CanCycleUsbPort || !IsUsbDevice(devInst)) {
        return false;
    }
    HubReader reader(g_pUsbHubs);
    const auto* hub = g_pUsbHubs->FindHubByDevInst(devInst);
    if (hub == nullptr || hub->PortNumber <= 0) {
        return false;
    }
    const DWORD parentDevInst = GetParentDevInst(devInst);
    return parentDevInst != 0 && CycleHubPort(reader, parentDevInst, static_cast<DWORD>(hub->PortNumber));
}

void RestartDevice_TimerProc(DWORD, ULONG_PTR devInst) {
    const auto node = static_cast<DWORD>(devInst);
    WriteLog(2, "RestartDevice_TimerProc(%u)", node);
    LockGuard main(CS_main);
    NoteRestartOf(node);
    if (!CycleUpperHub(node)) {
        PerformDevicePropertyChange(node);
    }
}
