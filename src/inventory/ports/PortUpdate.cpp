// The one place that reads a device's properties into its record.
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/devices/DeviceResources.h"
#include "inventory/devices/DeviceTree.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/FriendlyName.h"
#include "inventory/names/NameClaims.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "inventory/usb/CUsbHubs.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

// Ports found at the start count as having arrived long ago.
constexpr DWORD StartArrivalAgeMs = 60000;

constexpr DWORD HubRetryMs = 10;
constexpr DWORD HubRetryLimitMs = 15000;

constexpr int ChainBytes = 8;

static void ClearNames(CComPort* port) {
    port->szPortName[0] = '\0';
    port->szKernelNameCom[0] = '\0';
    port->PortNumber = 0;
    port->PortNumberText[0] = '\0';
    port->szRegPortName[0] = '\0';
    port->szKernelNameDevPath[0] = '\0';
    port->HasCopiedName = 0;
    port->Location[0] = '\0';
}

static void ReadTreePlace(CComPort* port) {
    DEVINST parent = 0;
    if (CM_Get_Parent(&parent, port->DevInst, 0) == CR_SUCCESS) {
        port->ParentDevInst = parent;
    }
    if (CM_Get_Parent(&parent, port->ParentDevInst, 0) == CR_SUCCESS) {
        port->GrandParentDevInst = parent;
    }
}

static void ReadIds(CComPort* port) {
    ReadDeviceId(port->DevInst, port->DeviceID);
    ReadDeviceId(port->ParentDevInst, port->ParentDeviceID);
    ReadDeviceId(port->GrandParentDevInst, port->GrandParentDeviceID);
}

static void ReadAddress(DWORD devInst, char (&text)[12]) {
    DWORD address = 0;
    if (ReadDeviceNumber(devInst, CM_DRP_ADDRESS, &address)) {
        FormatText(text, "%u", address);
    } else {
        CopyText(text, "-");
    }
}

// A property that cannot be read keeps its old text, so the results are ignored.
static void ReadProperties(CComPort* port) {
    const DWORD device = port->DevInst;
    const DWORD parent = port->ParentDevInst;
    ReadDeviceText(parent, CM_DRP_LOCATION_INFORMATION, port->ParentLocation);
    ReadDeviceText(parent, CM_DRP_SERVICE, port->ParentService);
    ReadDeviceText(device, CM_DRP_FRIENDLYNAME, port->FriendlyName);
    ReadDeviceText(device, CM_DRP_SERVICE, port->Service);
    ReadDeviceText(device, CM_DRP_CLASS, port->Class);
    ReadDeviceText(device, CM_DRP_CLASSGUID, port->ClassGuid);
    ReadDeviceText(device, CM_DRP_LOCATION_INFORMATION, port->Location);
    ReadDeviceText(device, CM_DRP_DRIVER, port->DriverKeyName);
    ReadAddress(device, port->Address);
    ReadAddress(parent, port->ParentAddress);
    ReadLocationPath(device, port->LocationPath);
    ReadLocationPath(parent, port->ParentLocationPath);
}

static void ReadFriendlyName(CComPort* port) {
    if (port->FriendlyName[0] == '\0') {
        ReadDeviceText(port->DevInst, CM_DRP_DEVICEDESC, port->FriendlyName);
    }
    char withoutCom[sizeof(port->FriendlyNameNoCom)];
    CopyText(withoutCom, port->FriendlyName);
    StripComFromFriendlyName(withoutCom);
    CopyText(port->FriendlyNameNoCom, withoutCom);
}

static void ReadRelatives(CComPort* port) {
    port->SameParentDevInst = GetSameParentDevInst(port->DevInst);
    port->UsbDevInst = GetUsbDevInst(port->DevInst);
    port->HubDevInst = GetHubDevInst(port->DevInst);
    port->SameParentArrivalTicker =
        g_pDeviceArrivals != nullptr ? g_pDeviceArrivals->GetDeviceArrivalTicker(port->SameParentDevInst) : 0;
}

static void ReadKernelNameOfPath(CComPort* port, const char* devicePath) {
    if (devicePath[0] == '\0') {
        WriteLog(1, " devid=%s", port->DeviceID);
        return;
    }
    char kernelName[DosTargetSize];
    if (QueryDosName(SkipPathPrefix(devicePath), kernelName)) {
        CopyText(port->szKernelNameDevPath, kernelName);
        WriteLog(4, " kernelname of devicepath is '%s'", port->szKernelNameDevPath);
    }
}

static void ReadRegPortName(CComPort* port) {
    char key[300];
    char name[sizeof(port->szRegPortName)];
    FormatText(key, "%s\\Device Parameters", port->szRegEnumPath);
    if (RegReadString(HKEY_LOCAL_MACHINE, key, "PortName", name, sizeof(name))) {
        // An empty name would exclude the port from the check; with this one its section gives it a number.
        CopyText(port->szRegPortName, name[0] != '\0' ? name : "COM0");
        WriteLog(4, " reg PortName=%s", port->szRegPortName);
    } else if (RegReadString(HKEY_LOCAL_MACHINE, key, "DosDeviceName", name, sizeof(name))) {
        CopyText(port->szRegPortName, name);
        WriteLog(4, " reg DosDeviceName=%s", port->szRegPortName);
    }
}

// A registry name counts as the port's name only when its DOS name exists.
static void ReadNameInForce(CComPort* port) {
    char kernelName[DosTargetSize];
    if (port->szRegPortName[0] == '\0' || !QueryDosName(port->szRegPortName, kernelName)) {
        return;
    }
    CopyText(port->szPortName, port->szRegPortName);
    CopyText(port->szKernelNameCom, kernelName);
    if (BeginsWithCom(port->szPortName)) {
        CopyComDigits(port->szPortName, port->PortNumberText);
        port->PortNumber = GetNumberOfPortName(port->szPortName);
    }
    // At the start all ports arrive at once; the scan of equal names decides after all are read.
    if (!g_InitialSnapshot) {
        MarkCopiedName(port);
    }
}

static void ReadResources(CComPort* port) {
    DWORD irq = 0;
    DWORD ioPort = 0;
    if (GetDeviceResources(port->DevInst, &irq, &ioPort)) {
        FormatText(port->IRQ, "%u", irq);
        FormatText(port->IoPort, "%X", ioPort);
    } else {
        port->IRQ[0] = '\0';
        port->IoPort[0] = '\0';
    }
}

static void StampPresence(CComPort* port) {
    const DWORD now = GetTickCount();
    if (port->IsPresent) {
        port->ArrivalTicker = g_InitialSnapshot ? now - StartArrivalAgeMs : now;
    } else {
        port->RemovalTicker = now;
    }
}

// Queries the hub port until the hub knows the device, which may take a while after its arrival. *isHubPresent: false
// if the hub disappeared in the meantime.
static DWORD WaitForUsbPortNumber(const CComPort* port, DWORD hubDevInst, bool* isHubPresent) {
    const DWORD startTick = GetTickCount();
    DWORD portNumber = g_pUsbHubs->GetUsbPortNumber(port->UsbDevInst);
    while (portNumber == 0 && port->IsPresent && GetTickCount() - startTick < HubRetryLimitMs) {
        *isHubPresent = IsDevicePresent(hubDevInst);
        if (!*isHubPresent || !IsDevicePresent(port->UsbDevInst)) {
            break;
        }
        Sleep(HubRetryMs);
        portNumber = g_pUsbHubs->GetUsbPortNumber(port->UsbDevInst);
    }
    return portNumber;
}

// Puts the port number into the highest byte of the hub's chain that is 0. A chain without room leaves *chain as it is.
static void AppendToChain(ULONGLONG hubChain, DWORD portNumber, ULONGLONG* chain) {
    for (int byteIndex = ChainBytes - 1; byteIndex >= 0; --byteIndex) {
        const int shift = byteIndex * 8;
        if (((hubChain >> shift) & 0xFF) == 0) {
            *chain = hubChain | (static_cast<ULONGLONG>(portNumber & 0xFF) << shift);
            return;
        }
    }
}

int CComPorts::UpdatePort(int index, DWORD devInst, const char* devicePath) {
    const char* path = devicePath != nullptr ? devicePath : "";
    WriteLog(1, "UpdatePort(%i, %u, %s)", index, devInst, path);
    CComPort* port = Ports[index];
    port->IsUsed = 1;
    port->IsPresent = IsDevicePresent(devInst) ? 1 : 0;
    ClearNames(port);
    // A port is restarted by the path of its COM port interface only, so that of the same node's modem does not replace
    // it. Done here, since the two arrivals may be read at the same time.
    const bool keepsPath = port->DevInst == devInst && IsComPortPath(port->DevPath) && IsModemPath(path);
    port->DevInst = devInst;
    ReadTreePlace(port);
    if (path[0] != '\0' && !keepsPath) {
        CopyText(port->DevPath, path);
    }
    ReadIds(port);
    port->Problem = GetProblem(devInst);
    ReadProperties(port);
    ReadFriendlyName(port);
    ReadRelatives(port);
    ReadKernelNameOfPath(port, path);
    FormatText(port->szRegEnumPath, "SYSTEM\\CurrentControlSet\\Enum\\%s", port->DeviceID);
    FormatText(port->szRegClassPath, "SYSTEM\\CurrentControlSet\\Control\\Class\\%s", port->DriverKeyName);
    ReadRegPortName(port);
    FILETIME enumTime = {};
    if (GetDeviceEnumTime(port->DeviceID, &enumTime)) {
        port->EnumTime = static_cast<ULONGLONG>(enumTime.dwHighDateTime) << 32 | enumTime.dwLowDateTime;
    }
    if (port->Problem != 0) {
        WriteLog(1, " dev problem=%u", port->Problem);
    } else {
        ReadNameInForce(port);
        ReadResources(port);
    }
    port->BusType = GetBusType(port);
    port->BusTypeName = BusTypeNames[port->BusType];
    if (port->BusType == BusUsb) {
        BuildUsbPortName(port);
    } else {
        port->UsbPort[0] = '\0';
    }
    StampPresence(port);
    EndAwaitedRestart(port, /*isArrival=*/true);
    WriteLog(1, " portreg=%s port=%s kncom=%s fn='%s' irq=%s ioport=%s usbport=%s", port->szRegPortName,
             port->szPortName, port->szKernelNameCom, port->FriendlyName, port->IRQ, port->IoPort, port->UsbPort);
    return 1;
}

void CComPorts::BuildUsbPortName(CComPort* port) const {
    WriteLog(3, "CComPorts::BuildUsbPortName(%u, %s)...", port->DevInst, port->szRegPortName);
    port->UsbPort[0] = '\0';
    // A rescan may retire the list while the hub is queried repeatedly.
    const HubReader reader(g_pUsbHubs);
    const auto* hub = g_pUsbHubs != nullptr ? g_pUsbHubs->FindHubByDevInst(port->HubDevInst) : nullptr;
    if (hub == nullptr) {
        WriteLog(3, " no hub -> no port name");
        return;
    }
    bool isHubPresent = true;
    port->UsbPortNumber = WaitForUsbPortNumber(port, hub->DevInst, &isHubPresent);
    if (!isHubPresent || !port->IsPresent) {
        return;
    }
    if (port->UsbPortNumber == 0) {
        FATAL_SOFT("PortUpdate", "CComPorts::BuildUsbPortName");
    }
    FormatText(port->UsbPort, "%s-%u", hub->szName, port->UsbPortNumber);
    AppendToChain(hub->PortChain, port->UsbPortNumber, &port->UsbPortChain);
    WriteLog(3, "USB port name is %s", port->UsbPort);
}
