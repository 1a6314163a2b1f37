#include "inventory/ports/CDeviceArrivals.h"

#include "inventory/devices/DevicePaths.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

CDeviceArrivals* g_pDeviceArrivals;

static void LogArrival(DWORD slot, const DeviceArrival* entry, const GUID* interfaceClass) {
    if (!LogFile_Wants(4)) {
        return;
    }
    char guidText[40];
    FormatGuid(guidText, *interfaceClass);
    WriteLog(4, "DeviceArrivals[%u] DevInst=%u DevPath=%s  ArrivalTicker=%u  classguid=%s", slot, entry->DevInst,
             entry->DevPath, entry->ArrivalTicker, guidText);
}

CDeviceArrivals::~CDeviceArrivals() {
    for (DeviceArrival* entry : Arrivals) {
        delete entry;
    }
}

DWORD CDeviceArrivals::AddDeviceArrival(const char* devicePath, const GUID* interfaceClass) {
    // Compared at its stored length; otherwise a path that was cut would get a new entry at each arrival.
    char storedPath[sizeof(DeviceArrival::DevPath)];
    CopyText(storedPath, devicePath);
    for (DWORD slot = 0; slot < Count; ++slot) {
        DeviceArrival* entry = Arrivals[slot];
        if (lstrcmpA(entry->DevPath, storedPath) == 0) {
            entry->ArrivalTicker = GetTickCount();
            LogArrival(slot, entry, interfaceClass);
            return entry->DevInst;
        }
    }

    const DWORD slot = Count < MaxDeviceArrivals ? Count : (LastIndex + 1) % MaxDeviceArrivals;
    const DWORD devInst = GetDevInstByDevicePath(devicePath, interfaceClass, DIGCF_PRESENT);
    const bool isFresh = Arrivals[slot] == nullptr;
    DeviceArrival* entry = isFresh ? new DeviceArrival{} : Arrivals[slot];
    entry->DevInst = 0; // no reader may combine the new tick with the old node
    entry->ArrivalTicker = GetTickCount();
    CopyText(entry->DevPath, storedPath);
    entry->DevInst = devInst;
    Arrivals[slot] = entry;
    if (slot == Count) {
        ++Count;
    }
    LastIndex = slot;
    LogArrival(slot, entry, interfaceClass);
    return devInst;
}

DWORD CDeviceArrivals::GetDeviceArrivalTicker(DWORD devInst) const {
    WriteLog(3, "GetDeviceArrivalTicker(%u)...", devInst);
    // Entries whose node was not found hold 0 and must not match a port without a device above it.
    for (DWORD slot = 0; devInst != 0 && slot < Count; ++slot) {
        if (Arrivals[slot]->DevInst == devInst) {
            return Arrivals[slot]->ArrivalTicker;
        }
    }
    WriteLog(4, " not found");
    return 0;
}
