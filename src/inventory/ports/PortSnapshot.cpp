// How ports come into the table: all at once at the start, one by one at their arrival.
#include "inventory/devices/DeviceLists.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/FriendlyName.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/PortInterfaceClasses.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

constexpr size_t SetupTextChars = 256;
constexpr size_t ListedIdChars = 200;
constexpr int ShortestDevicePath = 4;

// Names that a device with a problem may have to count as a port.
constexpr const char* PortDescriptions[] = {"Serial", "UART", "rs232", "rs422", "rs485"};

namespace {
struct ListedDevice {
    char Id[ListedIdChars];
    char Service[SetupTextChars];
    char Class[SetupTextChars];
    char Description[SetupTextChars];
};
} // namespace

static bool ContainsNoCase(const char* text, const char* part) {
    return StrStrIA(text, part) != nullptr;
}

// An unreadable or ill-typed property leaves the text empty.
static bool ReadSetupText(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD property, char (&text)[SetupTextChars]) {
    char buffer[SetupTextChars + 1] = {};
    DWORD type = REG_NONE;
    text[0] = '\0';
    if (!SetupDiGetDeviceRegistryPropertyA(list, device, property, &type, reinterpret_cast<BYTE*>(buffer),
                                           SetupTextChars, nullptr) ||
        type != REG_SZ) {
        return false;
    }
    CopyText(text, buffer);
    return true;
}

static void ReadListedDevice(HDEVINFO list, SP_DEVINFO_DATA* device, ListedDevice* out) {
    ReadSetupText(list, device, SPDRP_SERVICE, out->Service);
    ReadSetupText(list, device, SPDRP_CLASS, out->Class);
    ReadSetupText(list, device, SPDRP_DEVICEDESC, out->Description);
    out->Id[0] = '\0';
    ReadDeviceId(device->DevInst, out->Id);
}

static bool IsDescribedAsPort(const char* description) {
    for (const char* part : PortDescriptions) {
        if (ContainsNoCase(description, part)) {
            return true;
        }
    }
    return false;
}

static bool IsListedAsPort(const ListedDevice& device, DWORD problem) {
    const bool isPort = ContainsNoCase(device.Class, "Ports") || ContainsNoCase(device.Class, "Modem") ||
                        ContainsNoCase(device.Service, "Serial") ||
                        (problem != 0 && IsDescribedAsPort(device.Description));
    return isPort && device.Id[0] != '\0' && !ContainsNoCase(device.Id, "PNP0400") &&
           !ContainsNoCase(device.Class, "MultiPort");
}

// A device with a problem may lack its name; a device that runs without a name is not a port.
static bool HasPortName(const char* deviceId, DWORD problem) {
    char key[300];
    char portName[128];
    FormatText(key, "SYSTEM\\CurrentControlSet\\Enum\\%s\\Device Parameters", deviceId);
    if (RegReadString(HKEY_LOCAL_MACHINE, key, "PortName", portName, sizeof(portName)) || problem != 0) {
        return true;
    }
    WriteLog(1, "error %s reading PortName from 'HKLM\\%s'  -> ignore", LastErrorName(), key);
    return false;
}

// The interface of the list with this path, ignoring case and prefix.
static bool FindInterface(const DeviceList& list, const GUID& interfaceClass, const char* devicePath,
                          InterfaceDetail* detail, SP_DEVINFO_DATA* device) {
    SP_DEVICE_INTERFACE_DATA interfaceData = {};
    for (DWORD index = 0; list.GetInterface(interfaceClass, index, &interfaceData); ++index) {
        if (detail->Read(list.Get(), &interfaceData, device) && IsSameDevicePath(detail->Path(), devicePath)) {
            return true;
        }
    }
    return false;
}

static void LogUnknownPath(const char* devicePath) {
    WriteLog(4, "device path not found -> port not added");
    char kernelName[DosTargetSize];
    if (QueryDosName(SkipPathPrefix(devicePath), kernelName)) {
        WriteLog(4, " kn=%s -> strange", kernelName);
    } else {
        WriteLog(4, " err=%s  -> at least consistent", LastErrorName());
    }
}

static bool IsPortClass(HDEVINFO list, SP_DEVINFO_DATA* device) {
    char className[SetupTextChars];
    return ReadSetupText(list, device, SPDRP_CLASS, className) &&
           (lstrcmpiA(className, "Ports") == 0 || lstrcmpiA(className, "Modem") == 0);
}

int CComPorts::CreateSnapshot(int reason) {
    WriteLog(3, "CComPorts::CreateSnapshot(%i)...", reason);
    ClearPorts();
    for (const GUID* interfaceClass : InterfaceClassesOfPorts) {
        if (!AddPortsOfClass(interfaceClass)) {
            return 0;
        }
    }
    ScanSamePorts();
    ScanSameParents();
    AddNamesWithoutDevice();
    return static_cast<int>(PortCount);
}

// 0 if the class cannot be listed.
int CComPorts::AddPortsOfClass(const GUID* interfaceClass) {
    const DeviceList list(interfaceClass, DIGCF_DEVICEINTERFACE);
    if (!list.IsValid()) {
        return 0;
    }
    SP_DEVINFO_DATA device = {};
    InterfaceDetail detail;
    for (DWORD index = 0; list.GetDevice(index, &device); ++index) {
        AddListedDevice(list, index, interfaceClass, &device, &detail);
    }
    return 1;
}

void CComPorts::AddListedDevice(const DeviceList& list, DWORD index, const GUID* interfaceClass,
                                SP_DEVINFO_DATA* device, InterfaceDetail* detail) {
    const DWORD problem = GetProblem(device->DevInst);
    if (problem == ProblemPhantom) {
        return;
    }
    SP_DEVICE_INTERFACE_DATA interfaceData = {};
    SP_DEVINFO_DATA detailDevice = {};
    if (!list.GetInterface(*interfaceClass, index, &interfaceData) ||
        !detail->ReadBySize(list.Get(), &interfaceData, &detailDevice)) {
        return;
    }
    ListedDevice listed;
    ReadListedDevice(list.Get(), device, &listed);
    WriteLog(3, "found devid=%s svc=%s class=%s desc=%s", listed.Id, listed.Service, listed.Class, listed.Description);
    if (IsListedAsPort(listed, problem) && HasPortName(listed.Id, problem)) {
        AddPort(static_cast<int>(PortCount), device->DevInst, detail->Path());
    }
}

// Otherwise a COM name that no port explains would be given away.
void CComPorts::AddNamesWithoutDevice() {
    const CDosDeviceNames names("COM");
    for (LONG i = 0; i < names.Count; ++i) {
        const DosDeviceEntry& entry = names.Entries[i];
        if (lstrlenA(entry.Name) < 4 || entry.Name[3] < '0' || entry.Name[3] > '9' || entry.Target[0] == '\0') {
            continue;
        }
        if (FindPortByComPort(entry.Name) == nullptr) {
            AddVirtualPort(entry.Name, entry.Target);
        }
    }
}

CComPort* CComPorts::TakeFreeSlot(DWORD devInst, const char* devicePath) {
    int slot = FindFreePortSlot();
    if (slot == NoPort) {
        slot = FindSlotOfLongestAbsent();
        if (slot == NoPort) {
            return nullptr;
        }
        WriteLog(1, "more than %i ports -> Ports[%i] id=%s, absent longest, gives up its place", MaxPorts, slot,
                 Ports[slot]->DeviceID);
    }
    CComPort* port = Ports[slot];
    if (port == nullptr) {
        port = new CComPort;
    } else {
        *port = CComPort{};
    }
    port->Index = slot;
    port->DevInst = devInst;
    CopyText(port->DevPath, devicePath);
    port->IsUsed = 1;
    // Readers walk the table without the lock and must see a record whole or not at all.
    Ports[slot] = port;
    if (slot == PortCount) {
        ++PortCount;
    }
    return port;
}

CComPort* CComPorts::ReserveSlot(DWORD devInst, const char* devicePath, int* known) {
    const LockGuard lock(CS_slots);
    *known = FindPortIdxByDevInst(devInst);
    if (*known == NoPort) {
        *known = FindPortIdxByDevicePath(devicePath);
    }
    return *known == NoPort ? TakeFreeSlot(devInst, devicePath) : nullptr;
}

int CComPorts::AddPort(int slotNumber, DWORD devInst, const char* devicePath) {
    WriteLog(1, "-------");
    WriteLog(1, "AddPort(%u, %i, %s)", static_cast<UINT>(slotNumber), static_cast<LONG>(devInst), devicePath);
    int known = NoPort;
    CComPort* port = ReserveSlot(devInst, devicePath, &known);
    if (known != NoPort) {
        WriteLog(1, " already in list at idx=%i", known);
        // Its modem's interface arrived first; the port can be restarted by this path alone.
        if (IsModemPath(Ports[known]->DevPath) && IsComPortPath(devicePath)) {
            CopyText(Ports[known]->DevPath, devicePath);
        }
        return 0;
    }
    if (port == nullptr) {
        WriteLog(1, "ERROR: more than %i ports -> abort", MaxPorts);
        return 0;
    }
    UpdatePort(static_cast<int>(port->Index), devInst, devicePath);
    WriteLog(1, " Ports[%i]=%s   %s  '%s'", port->Index, port->szPortName, port->FriendlyName, port->DevPath);
    return 1;
}

int CComPorts::AddVirtualPort(const char* portName, const char* kernelName) {
    WriteLog(1, "AddVirtualPort(%s, %s)...", portName, kernelName);
    const LONG number = GetNumberOfPortName(portName);
    CComPort* port = nullptr;
    {
        const LockGuard lock(CS_slots);
        port = TakeFreeSlot(VirtualDevInst | static_cast<DWORD>(number), "");
    }
    if (port == nullptr) {
        WriteLog(1, "ERROR: more than %i ports -> abort", MaxPorts);
        return 0;
    }
    port->RecordValid = 0;
    port->BusType = BusUnknown;
    port->BusTypeName = BusTypeNames[BusUnknown];
    port->Problem = 0;
    CopyText(port->szPortName, portName);
    CopyText(port->szRegPortName, portName);
    CopyComDigits(portName, port->PortNumberText);
    CopyText(port->szKernelNameCom, kernelName);
    port->PortNumber = number;
    port->IsPresent = 1;
    return static_cast<int>(port->Index);
}

int CComPorts::AddNewPort(const char* devicePath) {
    WriteLog(4, "CComPorts::AddNewPort(%s)...", devicePath != nullptr ? devicePath : "");
    if (devicePath == nullptr || lstrlenA(devicePath) < ShortestDevicePath) {
        WriteLog(1, "no devpath -> abort");
        return NoPort;
    }
    for (const GUID* interfaceClass : InterfaceClassesOfPorts) {
        const DeviceList list(interfaceClass, DIGCF_DEVICEINTERFACE);
        if (!list.IsValid()) {
            WriteLog(1, "SetupDiClassDevs() failed  err=%u", GetLastError());
            continue;
        }
        InterfaceDetail detail;
        SP_DEVINFO_DATA device = {};
        if (FindInterface(list, *interfaceClass, devicePath, &detail, &device)) {
            return IsPortClass(list.Get(), &device) ? AddOrUpdateDevice(device.DevInst, detail.Path()) : NoPort;
        }
    }
    LogUnknownPath(devicePath);
    return NoPort;
}

int CComPorts::AddOrUpdateDevice(DWORD devInst, const char* devicePath) {
    int index = FindPortIdxByDevicePath(devicePath);
    if (index == NoPort) {
        index = FindPortIdxByDevInst(devInst);
    }
    if (index != NoPort) {
        UpdatePort(index, devInst, devicePath);
    } else {
        int slot = FindFreePortSlot();
        if (slot == NoPort) {
            slot = FindSlotOfLongestAbsent();
        }
        if (slot != NoPort) {
            if (!AddPort(slot, devInst, devicePath)) {
                return NoPort;
            }
            // Another arrival may have taken the slot that was free above.
            index = FindPortIdxByDevInst(devInst);
        }
    }
    ScanSameParents();
    return index;
}
