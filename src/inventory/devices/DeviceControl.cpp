#include "inventory/devices/DeviceControl.h"

#include "inventory/devices/DeviceProperties.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"

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
