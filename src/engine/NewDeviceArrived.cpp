#include "engine/NewDeviceArrived.h"

#include "actions/CallBackTimer.h"
#include "config/CSettings.h"
#include "engine/NumberChange.h"
#include "engine/PortArrival.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/names/RestartMarks.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "inventory/usb/CUsbHubs.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/OsVersion.h"
#include "support/system/ServiceRun.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr DWORD DevnodesChangedTimerId = 0x12340011;
constexpr LONG DevnodesChangedDelayMs = 1000;
constexpr UINT WindowProbeMs = 100;
constexpr DWORD WindowProbePauseMs = 1000;
constexpr DWORD NotifyAllInterfaceClasses = 4;
constexpr DWORD Windows2000 = 0x0500;
constexpr size_t DevicePathChars = 260;

static_assert(sizeof(DEV_BROADCAST_DEVICEINTERFACE_A) == 32);

namespace {
struct RegisteredClass {
    const char* logName;
    GUID interfaceClass;
};

// What is done for an event of an interface class.
enum class DeviceReaction {
    None,
    Port,
    RootHub,
    Hub,
};

struct DeviceClassRow {
    GUID interfaceClass;
    const char* pathPart; // null: any path; else only a path with this part, without regard to case
    char letter;
    const char* name;
    LONG arrivalLevel;
    LONG removalLevel; // 0: removals are ignored
    DeviceReaction reaction;
};
} // namespace

// In the order of registration.
constexpr RegisteredClass RegisteredClasses[] = {
    {"COMPORT", interface_class::ComPort},      {"SERENUM_BUS_ENUMERATOR", interface_class::SerenumBusEnumerator},
    {"MODEM", interface_class::Modem},          {"USB_HUB", interface_class::UsbHub},
    {"USB_DEVICE", interface_class::UsbDevice},
};
constexpr size_t RegisteredClassCount = sizeof(RegisteredClasses) / sizeof(RegisteredClasses[0]);
static_assert(RegisteredClassCount == 5);

// In the order of the test; only its path distinguishes a root hub from other hubs, so its row comes first.
constexpr DeviceClassRow DeviceClasses[] = {
    {interface_class::ComPort, nullptr, 'C', "COM-Port", 1, 1, DeviceReaction::Port},
    {interface_class::Modem, nullptr, 'M', "Modem", 4, 4, DeviceReaction::Port},
    {interface_class::UsbDevice, nullptr, 'U', "USB-Device", 4, 1, DeviceReaction::None},
    {interface_class::SerenumBusEnumerator, nullptr, 'S', "SerialBusEnumerator-Device", 4, 0, DeviceReaction::None},
    {interface_class::UsbHub, "root", 'R', "USB RootHub", 1, 1, DeviceReaction::RootHub},
    {interface_class::UsbHub, nullptr, 'H', "USB Hub", 1, 1, DeviceReaction::Hub},
};
static_assert(sizeof(DeviceClasses) / sizeof(DeviceClasses[0]) == 6);

// One for each row of the class table and a closing zero. Written once before the first notification, read when the
// window closes, on the same thread.
static HDEVNOTIFY DevNotifyHandles[RegisteredClassCount + 1];

static void ProbeWindow(HWND window) {
    DWORD_PTR result = 0;
    while (SendMessageTimeoutA(window, WM_NULL, 0, 0, SMTO_ABORTIFHUNG, WindowProbeMs, &result) == 0) {
        if (!IsServiceProcess()) {
            return;
        }
        WriteLog(2, "msgwin no response");
        Sleep(WindowProbePauseMs);
    }
}

static HDEVNOTIFY RegisterInterfaceClass(HANDLE recipient, DWORD flags, const char* logName,
                                         const GUID& interfaceClass) {
    DEV_BROADCAST_DEVICEINTERFACE_A filter = {};
    filter.dbcc_size = sizeof(filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = interfaceClass;
    HDEVNOTIFY handle = RegisterDeviceNotificationA(recipient, &filter, flags);
    WriteLog(3, "RegisterDeviceNotification(%s) hDevNotify=0x%p", logName, handle);
    if (handle == nullptr) {
        WriteLog(1, " failed  err=%u", GetLastError());
    }
    return handle;
}

static bool ContainsMark(const char* path, const char* mark) {
    return mark[0] != 0 && StrStrIA(path, mark) != nullptr;
}

static const DeviceClassRow* FindDeviceClass(const GUID& interfaceClass, const char* path) {
    for (const DeviceClassRow& row : DeviceClasses) {
        if (SameGuid(row.interfaceClass, interfaceClass) &&
            (row.pathPart == nullptr || StrStrIA(path, row.pathPart) != nullptr)) {
            return &row;
        }
    }
    return nullptr;
}

static void RescanHubs(DeviceReaction reaction) {
    // Hub names start with the controller number from the root hubs' list, so that list is read first.
    if (reaction == DeviceReaction::RootHub && g_pUsbRoothubs != nullptr) {
        g_pUsbRoothubs->CreateSnapshot();
    }
    if (g_pUsbHubs != nullptr) {
        g_pUsbHubs->CreateSnapshot();
    }
}

// Starts what the class requires. Returns: the thread of a port's arrival, or null.
static HANDLE StartArrival(const GUID& interfaceClass, const char* path) {
    const DeviceClassRow* row = FindDeviceClass(interfaceClass, path);
    if (row == nullptr) {
        return nullptr;
    }
    WriteLog(row->arrivalLevel, "-------------------- +%c+ ---------------------", row->letter);
    WriteLog(row->arrivalLevel, "+++ New %s DevPath=%s", row->name, path);
    switch (row->reaction) {
    case DeviceReaction::Port:
        return ComPortArrivedAsync(path);
    case DeviceReaction::RootHub:
    case DeviceReaction::Hub:
        RescanHubs(row->reaction);
        return nullptr;
    case DeviceReaction::None:
        return nullptr;
    }
    return nullptr;
}

static void RouteArrival(const DEV_BROADCAST_DEVICEINTERFACE_A& device) {
    char path[DevicePathChars];
    WideOrAnsiToAnsi(path, device.dbcc_name);
    WriteLog(3, "+++ New dev classguid=%s devpath=%s", DeviceGuidName(device.dbcc_classguid), path);
    WriteLog(3, "r1=%s r2=%s", szRestarting1, szRestarting2);
    // The arrival completes our own restart: later events from this path are the user's doing.
    char* const marks[] = {szRestarting1, szRestarting2};
    for (char* mark : marks) {
        if (ContainsMark(path, mark)) {
            mark[0] = 0;
            WriteLog(3, "the device we are just restarting -> abort");
            return;
        }
    }
    const OwnedThread thread(StartArrival(device.dbcc_classguid, path));
    if (g_pDeviceArrivals != nullptr) {
        g_pDeviceArrivals->AddDeviceArrival(path, &device.dbcc_classguid);
    }
}

static void RouteRemoval(const DEV_BROADCAST_DEVICEINTERFACE_A& device) {
    WriteLog(3, "DBT_DEVICEREMOVECOMPLETE");
    WriteLog(3, "r1=%s r2=%s", szRestarting1, szRestarting2);
    char path[DevicePathChars];
    WideOrAnsiToAnsi(path, device.dbcc_name);
    if (ContainsMark(path, szRestarting1) || ContainsMark(path, szRestarting2)) {
        WriteLog(3, "the device we are just restarting -> abort");
        return;
    }
    WriteLog(3, "+++ Removed dev classguid=%s devpath=%s", DeviceGuidName(device.dbcc_classguid), path);
    const DeviceClassRow* row = FindDeviceClass(device.dbcc_classguid, path);
    if (row == nullptr || row->removalLevel == 0) {
        return;
    }
    WriteLog(row->removalLevel, "-------------------- -%c- ---------------------", row->letter);
    WriteLog(row->removalLevel, "+++ Removed %s DevPath=%s", row->name, path);
    switch (row->reaction) {
    case DeviceReaction::Port:
        ComPortRemoved(path);
        return;
    case DeviceReaction::RootHub:
    case DeviceReaction::Hub:
        RescanHubs(row->reaction);
        return;
    case DeviceReaction::None:
        return;
    }
}

static void LogPortName(const DEV_BROADCAST_HDR* broadcast) {
    char name[DevicePathChars];
    WideOrAnsiToAnsi(name, reinterpret_cast<const DEV_BROADCAST_PORT_A*>(broadcast)->dbcp_name);
    WriteLog(3, " name=%s", name);
}

// A port that was swapped at the start and runs again arrived before the service listened. Its mark, which that arrival
// would have cleared, would drop the next removal and arrival of this path.
static void ForgetUnheardArrival(char (&mark)[260]) {
    char path[sizeof(mark) + PathPrefixLength];
    FormatText(path, "\\\\?\\%s", mark);
    const int index = mark[0] != 0 && g_pComPorts != nullptr ? g_pComPorts->FindPortIdxByDevicePath(path) : NoPort;
    if (index != NoPort && GetProblem(g_pComPorts->Ports[index]->DevInst) == 0) {
        mark[0] = 0;
    }
}

static bool CameWithRestartedPort(const CComPort* port) {
    for (LONG i = 0; port->UsbPortChain != 0 && i < g_pComPorts->PortCount; ++i) {
        const CComPort* other = g_pComPorts->Ports[i];
        if (other != nullptr && other != port && other->RestartTicker != 0 &&
            other->UsbPortChain == port->UsbPortChain) {
            return true;
        }
    }
    return false;
}

// A port whose name appeared after the wait for it, and the others of a device whose hub port was cycled at the start,
// may have come back under other kernel names. With the former one in the record, no newcomer of that number would
// count as a copy and be moved away.
static void TakeUnheardKernelNames() {
    for (LONG i = 0; g_pComPorts != nullptr && i < g_pComPorts->PortCount; ++i) {
        CComPort* port = g_pComPorts->Ports[i];
        if (port != nullptr && port->IsPresent && (port->RestartTicker != 0 || CameWithRestartedPort(port))) {
            TakeNameOfRunningPort(port);
        }
    }
}

void RegisterDeviceNotifications(HANDLE recipient, DWORD flags) {
    WriteLog(3, "RegisterDeviceNotifications hRecipient=0x%p Flags=0x%X", recipient, flags);
    ForgetUnheardArrival(szRestarting1);
    ForgetUnheardArrival(szRestarting2);
    TakeUnheardKernelNames();
    if (flags == DEVICE_NOTIFY_WINDOW_HANDLE) {
        ProbeWindow(static_cast<HWND>(recipient));
    }
    if (g_os.VersionBcd != Windows2000 && g_pSettings != nullptr && g_pSettings->RegisterAllDevClasses) {
        DevNotifyHandles[0] = RegisterInterfaceClass(recipient, flags | NotifyAllInterfaceClasses, "ALL", GUID{});
        return;
    }
    for (size_t i = 0; i < RegisteredClassCount; ++i) {
        DevNotifyHandles[i] =
            RegisterInterfaceClass(recipient, flags, RegisteredClasses[i].logName, RegisteredClasses[i].interfaceClass);
    }
}

void UnregisterDeviceNotifications() {
    for (HDEVNOTIFY& handle : DevNotifyHandles) {
        if (handle == nullptr) {
            return;
        }
        UnregisterDeviceNotification(handle);
        handle = nullptr;
    }
}

// Only events of a single device carry a record. Any program can send the window other codes with an arbitrary value in
// place of the record's address, and reading it would crash the process.
static bool HasRecord(DWORD eventCode, const DEV_BROADCAST_HDR* broadcast) {
    return broadcast != nullptr && (eventCode == DBT_DEVICEARRIVAL || eventCode == DBT_DEVICEQUERYREMOVE ||
                                    eventCode == DBT_DEVICEREMOVECOMPLETE);
}

DWORD DeviceChangeMsg(DWORD eventCode, const DEV_BROADCAST_HDR* broadcast) {
    WriteLog(3, "WM_DEVICE_CHANGE ---------------------->");
    const DWORD deviceType = HasRecord(eventCode, broadcast) ? broadcast->dbch_devicetype : 0;
    const bool isInterface = deviceType == DBT_DEVTYP_DEVICEINTERFACE;
    const bool isPort = deviceType == DBT_DEVTYP_PORT;
    const auto* device = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_A*>(broadcast);
    switch (eventCode) {
    case DBT_DEVNODES_CHANGED:
        WriteLog(3, "DBT_DEVNODES_CHANGED");
        // One id for all of them: each event of a burst restarts the second of quiet.
        CreateCallbackTimer(DevnodesChangedDelayMs, DevnodesChangedTimerId, /*context=*/0,
                            ProcessDevnodesChanged_TimerProc);
        break;
    case DBT_DEVICEARRIVAL:
        if (isInterface) {
            RouteArrival(*device);
        } else if (isPort) {
            LogPortName(broadcast);
        }
        break;
    case DBT_DEVICEREMOVECOMPLETE:
        if (isInterface) {
            RouteRemoval(*device);
        } else if (isPort) {
            LogPortName(broadcast);
        }
        break;
    case DBT_DEVICEQUERYREMOVE:
        if (isInterface) {
            WriteLog(3, "DBT_DEVICEQUERYREMOVE");
        }
        [[fallthrough]];
    default:
        WriteLog(3, "WM_DEVICE_CHANGE wParam=%08X", eventCode);
        break;
    }
    WriteLog(3, "<-------------------- /WM_DEVICE_CHANGE");
    return 0;
}

LRESULT CALLBACK MainWndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    switch (msg) {
    case WM_DEVICECHANGE:
        DeviceChangeMsg(static_cast<DWORD>(wParam), reinterpret_cast<const DEV_BROADCAST_HDR*>(lParam));
        break;
    case WM_CLOSE:
        UnregisterDeviceNotifications();
        PostThreadMessageA(GetRunThreadId(), WM_QUIT, 0, 0);
        break;
    default:
        break;
    }
    return DefWindowProcA(hwnd, msg, wParam, lParam);
}

HANDLE ComPortArrivedAsync(const char* devpath) {
    char* copy = new char[DevicePathChars];
    CopyText(copy, DevicePathChars, devpath);
    DWORD threadId = 0;
    WorkerStarting();
    HANDLE thread = CreateThread(nullptr, 0, ComPortArrived_ThreadProc, copy, 0, &threadId);
    if (thread == nullptr) {
        WorkerEnded();
        delete[] copy;
    }
    return thread;
}

DWORD WINAPI ComPortArrived_ThreadProc(void* param) {
    const WorkerScope worker;
    char devpath[DevicePathChars];
    CopyText(devpath, static_cast<const char*>(param));
    delete[] static_cast<char*>(param);
    WriteLog(4, "ComPortArrived_ThreadProc(%s) ------>", devpath);
    ComPortArrived(devpath);
    WriteLog(4, "<------ /ComPortArrived_ThreadProc");
    return 1;
}

void ProcessDevnodesChanged_TimerProc(DWORD, ULONG_PTR) {
    if (g_pComPorts == nullptr) {
        return;
    }
    g_pComPorts->FindNewProblemDevices();
    g_pComPorts->FindRemovedProblemDevices();
}
