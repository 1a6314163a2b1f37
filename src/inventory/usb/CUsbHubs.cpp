#include "inventory/usb/CUsbHubs.h"

#include "inventory/devices/DeviceLists.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/devices/DeviceTree.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "inventory/usb/UsbHubRequests.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

CUsbHubs* g_pUsbHubs;

constexpr DWORD PresentInterfaces = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;

// A hub that has only just started refuses requests about its hub ports for a moment.
constexpr DWORD HubRetryMs = 500;

constexpr int ChainTopShift = 56;

constexpr char LocationStart[] = "Port_#0";
constexpr int LocationNumberOffset = 6; // after "Port_#"

static UsbHub* FindHub(const UsbHubList* list, DWORD devInst) {
    for (LONG i = 0; i < list->Count; ++i) {
        if (list->Hubs[i]->DevInst == devInst) {
            return list->Hubs[i];
        }
    }
    return nullptr;
}

static ULONGLONG TopByte(LONG portNumber) {
    return static_cast<ULONGLONG>(portNumber & 0xFF) << ChainTopShift;
}

static void FreeList(UsbHubList* list) {
    for (LONG i = 0; i < list->Count; ++i) {
        delete list->Hubs[i];
    }
    delete list;
}

// Reads what the device tree says about the hub.
static UsbHub* MakeHub(LONG index, DWORD devInst, const char* path) {
    auto* const hub = new UsbHub{};
    hub->Index = index;
    hub->ParentIndex = NoHub;
    hub->DevInst = devInst;
    hub->ParentDevInst = GetParentDevInst(devInst);
    char deviceId[260] = {};
    char parentId[260] = {};
    const bool hasId = ReadDeviceId(devInst, deviceId);
    (void)ReadDeviceId(hub->ParentDevInst, parentId); // stays empty for a hub without a parent
    if (hasId && (StrStrIA(deviceId, "root") != nullptr || StrStrIA(parentId, "USB") == nullptr)) {
        CopyText(hub->szHostControllerId, parentId);
        WriteLog(5, "RootHub hcid=%s DevInst=%u", hub->szHostControllerId, devInst);
    }
    (void)ReadDeviceText(devInst, CM_DRP_DRIVER, hub->szDriverKeyName);
    (void)ReadDeviceText(hub->ParentDevInst, CM_DRP_DRIVER, hub->szParentDriverKeyName);
    CopyText(hub->szDevPath, path);
    return hub;
}

// Returns: 0 when the device information set cannot be created.
static int ReadHubs(UsbHubList* list) {
    const DeviceList devices(&interface_class::UsbHub, PresentInterfaces);
    if (!devices.IsValid()) {
        WriteLog(2, "SetupDiGetClassDevs res=INVALID_HANDLE_VALUE -> abort");
        return 0;
    }
    SP_DEVICE_INTERFACE_DATA interfaceData;
    for (DWORD index = 0; devices.GetInterface(interface_class::UsbHub, index, &interfaceData); ++index) {
        if (list->Count >= MaxHubs) {
            WriteLog(1, " UHI_3 count > max (%u) -> abort", static_cast<DWORD>(MaxHubs));
            break;
        }
        char path[260];
        SP_DEVINFO_DATA device;
        if (!devices.ReadShortPath(&interfaceData, path, &device)) {
            WriteLog(1, "UHI_2 err=%s", LastErrorName());
            continue;
        }
        list->Hubs[list->Count] = MakeHub(list->Count, device.DevInst, path);
        ++list->Count;
    }
    return 1;
}

// The hub port to try first: from the location text, else the bus address. Both are only hints.
static LONG GetExpectedPort(DWORD devInst) {
    char location[64] = {};
    LONG expected = 0;
    if (ReadDeviceText(devInst, CM_DRP_LOCATION_INFORMATION, location)) {
        WriteLog(4, " CM_DRP_LOCATION_INFORMATION=%s", location);
        if (StrStrIA(location, LocationStart) == location) {
            expected = StrToIntA(location + LocationNumberOffset);
            WriteLog(4, " PortNumber is probably %u", static_cast<DWORD>(expected));
        }
    }
    if (expected == 0) {
        DWORD address = 0;
        (void)ReadDeviceNumber(devInst, CM_DRP_ADDRESS, &address);
        WriteLog(4, " CM_DRP_ADDRESS=%u", address);
        expected = static_cast<LONG>(address);
    }
    return expected;
}

// Does the hub report this driver key at the hub port? error: why it gave no answer, else 0.
static bool HasDriverKey(HANDLE hub, DWORD port, const char* driverKey, DWORD* error) {
    char reported[HubDriverKeySize];
    *error = 0;
    if (!UsbGetConnectionDriverKey(hub, port, reported, error)) {
        return false;
    }
    // A hub may report an empty name for an empty port, and a broken device may have an empty driver key.
    return reported[0] != 0 && lstrcmpA(reported, driverKey) == 0;
}

// Asks the open hub. Returns: the hub port with this driver key, 0 if there is none.
static DWORD SearchPort(HANDLE hub, UsbHub* record, LONG expectedPort, const char* driverKey) {
    if (record->PortCount == 0) {
        record->PortCount = UsbGetHubPortCount(hub);
    }
    const DWORD expected = static_cast<DWORD>(expectedPort);
    DWORD error = 0;
    if (expected != 0) {
        bool found = HasDriverKey(hub, expected, driverKey, &error);
        if (!found && error == ERROR_INVALID_PARAMETER) {
            Sleep(HubRetryMs);
            found = HasDriverKey(hub, expected, driverKey, &error);
        }
        if (found) {
            WriteLog(3, " found at port %i", expectedPort);
            return expected;
        }
    }
    for (DWORD port = 1; port <= record->PortCount; ++port) {
        if (port != expected && HasDriverKey(hub, port, driverKey, &error)) {
            WriteLog(3, " found at port %i", static_cast<LONG>(port));
            return port;
        }
    }
    return 0;
}

static DWORD GetTruePort(const UsbHubList* list, DWORD devInst, LONG expectedPort) {
    WriteLog(3, "UsbGetTruePortNumber(%u, %i)...", devInst, expectedPort);
    char driverKey[64 + 1] = {};
    ULONG keyBytes = sizeof(driverKey) - 1;
    CONFIGRET cret = CM_Get_DevNode_Registry_PropertyA(devInst, CM_DRP_DRIVER, nullptr, driverKey, &keyBytes, 0);
    if (cret != CR_SUCCESS) {
        WriteLog(3, "CM_DRP_DRIVER cret=%s", ConfigRetName(cret));
        return 0;
    }
    WriteLog(3, " driverkey=%s", driverKey);
    DEVINST parent = 0;
    cret = CM_Get_Parent(&parent, devInst, /*flags=*/0);
    if (cret != CR_SUCCESS) {
        WriteLog(3, " CM_Get_Parent cret=%s", ConfigRetName(cret));
        return 0;
    }
    UsbHub* const record = FindHub(list, parent);
    if (record == nullptr) {
        WriteLog(3, " hub devinst %u not found in list -> abort", parent);
        return 0;
    }
    if (record->szDevPath[0] == 0) {
        WriteLog(3, " hub devpath is empty -> abort");
        return 0;
    }
    const OwnedFile hub(CreateFileA(record->szDevPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    /*security=*/nullptr, OPEN_EXISTING, /*flags=*/0, /*template=*/nullptr));
    if (!hub) {
        WriteLog(3, " error opening usb hub '%s'  err=%s", record->szDevPath, LastErrorName());
        return 0;
    }
    return SearchPort(hub.Get(), record, expectedPort, driverKey);
}

static DWORD GetPort(const UsbHubList* list, DWORD devInst) {
    WriteLog(4, "CUsbHubs::GetUsbPortNumber(%u)...", devInst);
    const DWORD port = GetTruePort(list, devInst, GetExpectedPort(devInst));
    WriteLog(4, "TruePortNumber=%u", port);
    return port;
}

// Needs the whole list: a hub's hub port number comes from the hub above it.
static void ReadPortNumbers(const UsbHubList* list) {
    for (LONG i = 0; i < list->Count; ++i) {
        UsbHub* const hub = list->Hubs[i];
        if (hub->szHostControllerId[0] != 0) {
            hub->PortNumber =
                g_pUsbRoothubs != nullptr ? g_pUsbRoothubs->GetHostControllerNumber(hub->ParentDevInst) : -1;
        } else {
            hub->PortNumber = static_cast<LONG>(GetPort(list, hub->DevInst));
        }
        WriteLog(3, list->Count < 10 ? "H[%i]=%-5u port=%-3u dp=%s" : "H[%-2i]=%-5u port=%-3u dp=%s", i, hub->DevInst,
                 static_cast<DWORD>(hub->PortNumber), hub->szDevPath);
    }
}

static LONG FindParentIndex(const UsbHubList* list, LONG index) {
    for (LONG i = 0; i < list->Count; ++i) {
        if (i != index && list->Hubs[i]->DevInst == list->Hubs[index]->ParentDevInst) {
            return i;
        }
    }
    return NoHub;
}

CUsbHubs::CUsbHubs() : m_current(new UsbHubList{}) {
    m_current->Holders = 1;
    InitializeCriticalSection(&CS_lists);
}

CUsbHubs::~CUsbHubs() {
    Release(m_current);
    DeleteCriticalSection(&CS_lists);
}

int CUsbHubs::CreateSnapshot() {
    WriteLog(3, "CUsbHubs::CreateSnapshot()...");
    auto* const list = new UsbHubList{};
    const int res = ReadHubs(list);
    if (!res) {
        Publish(list);
        return 0;
    }
    ReadPortNumbers(list);
    LinkHubs(list);
    const DWORD count = static_cast<DWORD>(list->Count);
    Publish(list);
    WriteLog(3, "CUsbHubs::CreateSnapshot Finish  Count=%u", count);
    return 1;
}

UsbHub* CUsbHubs::FindHubByDevInst(DWORD devInst) {
    if (!IsDevicePresent(devInst)) {
        return nullptr;
    }
    const HubReader reader(this);
    return FindHub(reader.List(), devInst);
}

DWORD CUsbHubs::GetUsbPortNumber(DWORD devInst) {
    const HubReader reader(this);
    return GetPort(reader.List(), devInst);
}

DWORD CUsbHubs::UsbGetTruePortNumber(DWORD devInst, LONG expectedPort) {
    const HubReader reader(this);
    return GetTruePort(reader.List(), devInst, expectedPort);
}

UsbHubList* CUsbHubs::HoldCurrent() {
    const LockGuard lock(CS_lists);
    ++m_current->Holders;
    return m_current;
}

void CUsbHubs::Release(UsbHubList* list) {
    UsbHubList* freed = nullptr;
    {
        const LockGuard lock(CS_lists);
        // Each list holds a reference to its successor; drop that too.
        while (list != nullptr && --list->Holders == 0) {
            UsbHubList* const next = list->Next;
            list->Next = freed;
            freed = list;
            list = next;
        }
    }
    while (freed != nullptr) {
        UsbHubList* const next = freed->Next;
        FreeList(freed);
        freed = next;
    }
}

void CUsbHubs::Publish(UsbHubList* list) {
    UsbHubList* retired = nullptr;
    {
        const LockGuard lock(CS_lists);
        retired = m_current;
        // One reference for the owner and one for the older list, whose readers may look up records in this one.
        list->Holders = 2;
        retired->Next = list;
        m_current = list;
    }
    Release(retired);
}

HubReader::HubReader(CUsbHubs* hubs) : m_hubs(hubs), m_list(hubs != nullptr ? hubs->HoldCurrent() : nullptr) {
}

HubReader::~HubReader() {
    if (m_list != nullptr) {
        m_hubs->Release(m_list);
    }
}

void LinkHubs(UsbHubList* list) {
    for (LONG i = 0; i < list->Count; ++i) {
        UsbHub* const hub = list->Hubs[i];
        hub->ParentIndex = FindParentIndex(list, i);
        if (hub->ParentIndex != NoHub) {
            WriteLog(5, "USB-Hub '%s' is parent of USB-Hub '%s'", list->Hubs[hub->ParentIndex]->szDevPath,
                     hub->szDevPath);
        }
    }
    for (LONG i = 0; i < list->Count; ++i) {
        UsbHub* const hub = list->Hubs[i];
        FormatText(hub->szName, "%u", static_cast<DWORD>(hub->PortNumber));
        hub->PortChain = TopByte(hub->PortNumber);
        BuildPortName(list, hub->ParentIndex, hub->szName, &hub->PortChain);
    }
}

void BuildPortName(const UsbHubList* list, LONG parentIndex, char (&name)[24], ULONGLONG* chain) {
    // No path from a hub to its root has more hubs than exist.
    for (LONG level = 0; parentIndex != NoHub && level < list->Count; ++level) {
        const UsbHub* const parent = list->Hubs[parentIndex];
        char chainText[20];
        FormatText(chainText, "%08X%08X", static_cast<DWORD>(*chain >> 32), static_cast<DWORD>(*chain));
        WriteLog(3, "CUsbHubs::BuildPortName(%i, %s, %s)", parentIndex, name, chainText);
        char longerName[24];
        FormatText(longerName, "%u-%s", static_cast<DWORD>(parent->PortNumber), name);
        CopyText(name, longerName);
        *chain = (*chain >> 8) | TopByte(parent->PortNumber);
        WriteLog(3, " -> %s", name);
        parentIndex = parent->ParentIndex;
    }
}
