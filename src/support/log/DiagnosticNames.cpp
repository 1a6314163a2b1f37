#include "support/log/DiagnosticNames.h"

#include <cstddef>
#include <iterator>

#include "support/system/Handles.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/ScopeGuard.h"
#include "support/system/SupportLocks.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr size_t RingSize = 10;
constexpr DWORD ResultRingSize = 4;
constexpr size_t MaxSystemText = 244;
constexpr DWORD NeutralDefaultLanguage = 0x400;
constexpr DWORD FirstHexCode = 0x10000000;

constexpr const char* DeviceTypes[] = {"OEM", "DEVNODE", "VOLUME", "PORT", "NET", "DEVICEINTERFACE", "HANDLE"};
static_assert(std::size(DeviceTypes) == 7);

constexpr const char* Problems[] = {
    "-",
    "CM_PROB_NOT_CONFIGURED",
    "CM_PROB_DEVLOADER_FAILED",
    "CM_PROB_OUT_OF_MEMORY",
    "CM_PROB_ENTRY_IS_WRONG_TYPE",
    "CM_PROB_LACKED_ARBITRATOR",
    "CM_PROB_BOOT_CONFIG_CONFLICT",
    "CM_PROB_FAILED_FILTER",
    "CM_PROB_DEVLOADER_NOT_FOUND",
    "CM_PROB_INVALID_DATA",
    "CM_PROB_FAILED_START",
    "CM_PROB_LIAR",
    "CM_PROB_NORMAL_CONFLICT",
    "CM_PROB_NOT_VERIFIED",
    "CM_PROB_NEED_RESTART",
    "CM_PROB_REENUMERATION",
    "CM_PROB_PARTIAL_LOG_CONF",
    "CM_PROB_UNKNOWN_RESOURCE",
    "CM_PROB_REINSTALL",
    "CM_PROB_REGISTRY",
    "CM_PROB_VXDLDR",
    "CM_PROB_WILL_BE_REMOVED",
    "CM_PROB_DISABLED",
    "CM_PROB_DEVLOADER_NOT_READY",
    "CM_PROB_DEVICE_NOT_THERE",
    "CM_PROB_MOVED",
    "CM_PROB_TOO_EARLY",
    "CM_PROB_NO_VALID_LOG_CONF",
    "CM_PROB_FAILED_INSTALL",
    "CM_PROB_HARDWARE_DISABLED",
    "CM_PROB_CANT_SHARE_IRQ",
    "CM_PROB_FAILED_ADD",
    "CM_PROB_DISABLED_SERVICE",
    "CM_PROB_TRANSLATION_FAILED",
    "CM_PROB_NO_SOFTCONFIG",
    "CM_PROB_BIOS_TABLE",
    "CM_PROB_IRQ_TRANSLATION_FAILED",
    "CM_PROB_FAILED_DRIVER_ENTRY",
    "CM_PROB_DRIVER_FAILED_PRIOR_UNLOAD",
    "CM_PROB_DRIVER_FAILED_LOAD",
    "CM_PROB_DRIVER_SERVICE_KEY_INVALID",
    "CM_PROB_LEGACY_SERVICE_NO_DEVICES",
    "CM_PROB_DUPLICATE_DEVICE",
    "CM_PROB_FAILED_POST_START",
    "CM_PROB_HALTED",
    "CM_PROB_PHANTOM",
    "CM_PROB_SYSTEM_SHUTDOWN",
    "CM_PROB_HELD_FOR_EJECT",
    "CM_PROB_DRIVER_BLOCKED",
    "CM_PROB_REGISTRY_TOO_LARGE",
    "CM_PROB_SETPROPERTIES_FAILED",
    "CM_PROB_WAITING_ON_DEPENDENCY",
    "CM_PROB_UNSIGNED_DRIVER",
    "CM_PROB_USED_BY_DEBUGGER",
    "CM_PROB_DEVICE_RESET",
};
static_assert(std::size(Problems) == 55);

constexpr const char* SessionChanges[] = {
    "NULL",          "CONSOLE_CONNECT", "CONSOLE_DISCONNECT", "REMOTE_CONNECT", "REMOTE_DISCONNECT",
    "SESSION_LOGON", "SESSION_LOGOFF",  "SESSION_LOCK",       "SESSION_UNLOCK", "SESSION_REMOTE_CONTROL",
};
static_assert(std::size(SessionChanges) == 10);

// Events without a word are null.
constexpr const char* PowerEvents[] = {
    "QUERYSUSPEND",
    "QUERYSTANDBY",
    "QUERYSUSPENDFAILED",
    "QUERYSTANDBYFAILED",
    "SUSPEND",
    "STANDBY",
    "RESUMECRITICAL",
    "RESUMESUSPEND",
    "RESUMESTANDBY",
    "BATTERYLOW",
    "POWERSTATUSCHANGE",
    "OEMEVENT",
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "RESUMEAUTOMATIC",
};
static_assert(std::size(PowerEvents) == 19);

constexpr const char* VetoTypes[] = {
    "TypeUnknown",          "LegacyDevice",      "PendingClose",   "WindowsApp",
    "WindowsService",       "OutstandingOpen",   "Device",         "Driver",
    "IllegalDeviceRequest", "InsufficientPower", "NonDisableable", "LegacyDriver",
    "InsufficientRights",   "AlreadyRemoved",
};
static_assert(std::size(VetoTypes) == 14);

constexpr const char* ServiceControls[] = {
    "0",
    "STOP",
    "PAUSE",
    "CONTINUE",
    "INTERROGATE",
    "SHUTDOWN",
    "PARAMCHANGE",
    "NETBINDADD",
    "NETBINDREMOVE",
    "NETBINDENABLE",
    "NETBINDDISABLE",
    "DEVICEEVENT",
    "HARDWAREPROFILECHANGE",
    "POWEREVENT",
    "SESSIONCHANGE",
    "PRESHUTDOWN",
};
static_assert(std::size(ServiceControls) == 16);

constexpr const char* SessionStates[] = {"Active", "Connected", "ConnectQuery", "Shadow", "Disconnected",
                                         "Idle",   "Listen",    "Reset",        "Down",   "Init"};
static_assert(std::size(SessionStates) == 10);

namespace {
struct GuidRow {
    GUID Guid;
    const char* Name;
};
} // namespace
// The first match gives the name.
constexpr GuidRow DeviceGuids[] = {
    {interface_class::SerenumBusEnumerator, "GUID_DEVINTERFACE_SERENUM_BUS_ENUMERATOR"},
    {interface_class::ComPort, "GUID_DEVINTERFACE_COMPORT"},
    {interface_class::Modem, "GUID_DEVINTERFACE_MODEM"},
    {interface_class::UsbHub, "GUID_DEVINTERFACE_USB_HUB"},
    {interface_class::D2xx, "GUID_DEVINTERFACE_FOR_D2XX"},
    {interface_class::D3xx, "GUID_DEVINTERFACE_FOR_D3XX"},
    {interface_class::Keyboard, "GUID_DEVINTERFACE_KEYBOARD"},
    {interface_class::Wpd, "GUID_DEVINTERFACE_WPD"},
    {interface_class::Hid, "GUID_DEVINTERFACE_HID"},
    {interface_class::Net, "GUID_DEVINTERFACE_NET"},
    {interface_class::Mouse, "GUID_DEVINTERFACE_MOUSE"},
    {interface_class::Disk, "GUID_DEVINTERFACE_DISK"},
    {interface_class::Volume, "GUID_DEVINTERFACE_VOLUME"},
    {interface_class::Iusb3Hub, "GUID_DEVINTERFACE_IUSB3_HUB"},
    {interface_class::UsbDevice, "GUID_DEVINTERFACE_USB_DEVICE"},
    {interface_class::UsbHostController, "GUID_DEVINTERFACE_USB_HOST_CONTROLLER"},
    {interface_class::NdisLan, "GUID_NDIS_LAN_CLASS"},
    {interface_class::BluetoothPort, "GUID_BTHPORT_DEVICE_INTERFACE"},
    {interface_class::BluetoothRfcomm, "GUID_BTH_RFCOMM_SERVICE_DEVICE_INTERFACE"},
    {interface_class::SerialPortService, "SerialPortServiceClass_UUID"},
};
static_assert(std::size(DeviceGuids) == 20);

namespace {
struct ErrorRow {
    DWORD Code;
    const char* Name;
};
} // namespace
constexpr ErrorRow Errors[] = {
    {0, "ok"},
    {1, "INVALID_FUNCTION"},
    {2, "FILE_NOT_FOUND"},
    {3, "PATH_NOT_FOUND"},
    {5, "ACCESS_DENIED"},
    {6, "INVALID_HANDLE"},
    {8, "NOT_ENOUGH_MEMORY"},
    {18, "NO_MORE_FILES"},
    {19, "WRITE_PROTECT"},
    {21, "NOT_READY"},
    {31, "ERROR_GEN_FAILURE"},
    {32, "SHARING_VIOLATION"},
    {87, "INVALID_PARAMETER"},
    {121, "SEM_TIMEOUT"},
    {122, "INSUFFICIENT_BUFFER"},
    {123, "INVALID_NAME"},
    {161, "BAD_PATHNAME"},
    {170, "BUSY"},
    {183, "ALREADY_EXISTS"},
    {230, "BAD_PIPE"},
    {231, "PIPE_BUSY"},
    {232, "NO_DATA"},
    {233, "PIPE_NOT_CONNECTED"},
    {234, "MORE_DATA"},
    {433, "NO_SUCH_DEVICE"},
    {483, "DEVICE_HARDWARE_ERROR"},
    {535, "PIPE_CONNECTED"},
    {536, "PIPE_LISTENING"},
    {997, "IO_PENDING"},
    {1004, "INVALID_FLAGS"},
    {1005, "UNRECOGNIZED_VOLUME"},
    {1006, "FILE_INVALID"},
    {1007, "FULLSCREEN_MODE"},
    {1008, "NO_TOKEN"},
    {1052, "INVALID_SERVICE_CONTROL"},
    {1053, "SERVICE_REQUEST_TIMEOUT"},
    {1055, "SERVICE_DATABASE_LOCKED"},
    {1056, "SERVICE_ALREADY_RUNNING"},
    {1057, "INVALID_SERVICE_ACCOUNT"},
    {1058, "SERVICE_DISABLED"},
    {1060, "SERVICE_DOES_NOT_EXIST"},
    {1061, "SERVICE_CANNOT_ACCEPT_CTRL"},
    {1062, "SERVICE_NOT_ACTIVE"},
    {1072, "SERVICE_MARKED_FOR_DELETE"},
    {1073, "SERVICE_EXISTS"},
    {1117, "IO_DEVICE"},
    {1212, "INVALID_DOMAINNAME"},
    {1223, "ERROR_CANCELLED"},
    {1245, "NOT_LOGGED_ON"},
    {1312, "NO_SUCH_LOGON_SESSION"},
    {1313, "NO_SUCH_PRIVILEGE"},
    {1314, "PRIVILEGE_NOT_HELD"},
    {1355, "NO_SUCH_DOMAIN"},
    {1460, "TIMEOUT"},
};
static_assert(std::size(Errors) == 54);

// The table's text, or null for a code outside it or in one of its gaps.
template<size_t N>
static const char* NameInTable(const char* const (&table)[N], DWORD code) {
    return code < N ? table[code] : nullptr;
}

// Several threads may advance the ring of ResultText at once, so each gets a slot of its own.
static DWORD NextResultSlot() {
    static DWORD next;
    if (!g_supportLocksReady) {
        return next++ % ResultRingSize;
    }
    LockGuard lock(CS_ResultText);
    return next++ % ResultRingSize;
}

const char* DeviceTypeName(DWORD deviceType) {
    static char fallback[16];
    const char* name = NameInTable(DeviceTypes, deviceType);
    if (name) {
        return name;
    }
    FormatText(fallback, "%u", deviceType);
    return fallback;
}

const char* ConfigRetName(DWORD configRet) {
    static char text[16];
    FormatText(text, "CR_0x%X", configRet);
    return text;
}

const char* DevNodeStatusName(DWORD status) {
    static char text[16];
    FormatText(text, "DN_0x%X", status);
    return text;
}

const char* ProblemName(DWORD problem) {
    static char fallback[24];
    const char* name = NameInTable(Problems, problem);
    if (name) {
        return name;
    }
    FormatText(fallback, "CM_PROB_0x%X", problem);
    return fallback;
}

const char* SessionChangeName(DWORD event) {
    static char fallback[16];
    const char* name = NameInTable(SessionChanges, event);
    if (name) {
        return name;
    }
    FormatText(fallback, "0x%X", event);
    return fallback;
}

const char* PowerEventName(DWORD event) {
    static char text[32];
    const char* word = NameInTable(PowerEvents, event);
    if (word) {
        FormatText(text, "PBT_APM%s", word);
    } else {
        FormatText(text, "PBT_0x%X", event);
    }
    return text;
}

const char* VetoTypeName(DWORD vetoType) {
    static char fallback[16];
    const char* name = NameInTable(VetoTypes, vetoType);
    if (name) {
        return name;
    }
    FormatText(fallback, "Veto_%u", vetoType);
    return fallback;
}

const char* ServiceControlName(DWORD control) {
    static char text[40];
    const char* prefix = "SERVICE_CONTROL_";
    const char* word = NameInTable(ServiceControls, control);
    if (word) {
        FormatText(text, "%s%s", prefix, word);
    } else {
        FormatText(text, "%s0x%X", prefix, control);
    }
    return text;
}

const char* WaitResultName(DWORD result) {
    static char text[24];
    switch (result) {
    case WAIT_OBJECT_0:
        return "ok";
    case WAIT_ABANDONED:
        return "abandoned";
    case WAIT_TIMEOUT:
        return "timeout";
    case WAIT_FAILED:
        FormatText(text, "error=%u", GetLastError());
        return text;
    default:
        FormatText(text, "WAIT_%u", result);
        return text;
    }
}

const char* SessionStateName(LONG state) {
    static char fallback[16];
    const char* name = NameInTable(SessionStates, static_cast<DWORD>(state));
    if (name) {
        return name;
    }
    FormatText(fallback, "WTS_%i", state);
    return fallback;
}

const char* DeviceGuidName(const GUID& guid) {
    static char fallback[40];
    for (const GuidRow& row : DeviceGuids) {
        if (SameGuid(row.Guid, guid)) {
            return row.Name;
        }
    }
    FormatGuid(fallback, guid);
    return fallback;
}

const char* ErrorName(DWORD code) {
    static char ring[RingSize][12];
    static DWORD next;
    for (const ErrorRow& row : Errors) {
        if (row.Code == code) {
            return row.Name;
        }
    }
    char(&text)[12] = ring[next++ % RingSize];
    if (code < FirstHexCode) {
        FormatText(text, "%u", code);
    } else {
        FormatText(text, "0x%X", code);
    }
    return text;
}

const char* ErrorText(DWORD code) {
    static char ring[RingSize][288]; // the longest name, " -> " and the cut text
    static DWORD next;
    LastErrorKeeper keep; // the query for the text may itself fail
    char(&text)[288] = ring[next++ % RingSize];
    OwnedLocalText systemText;
    const DWORD length =
        FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
                       NeutralDefaultLanguage, reinterpret_cast<LPSTR>(systemText.Receive()), 0, nullptr);
    if (length == 0 || !systemText) {
        FormatText(text, "%u", code);
        return text;
    }
    char line[MaxSystemText + 1];
    CopyText(line, systemText.Get());
    systemText.Reset();
    ReplaceChar(line, '\n', ' ');
    ReplaceChar(line, '\r', ' ');
    FormatText(text, "%s -> %s", ErrorName(code), line);
    return text;
}

const char* LastErrorName() {
    return ErrorName(GetLastError());
}

const char* LastErrorText() {
    return ErrorText(GetLastError());
}

const char* ResultText(LONG value) {
    static char ring[ResultRingSize][32];
    LastErrorKeeper keep;
    char(&text)[32] = ring[NextResultSlot()];
    if (value != 0) {
        FormatText(text, "res=%i", value);
    } else {
        FormatText(text, "err=%s", ErrorName(keep.Error()));
    }
    return text;
}
