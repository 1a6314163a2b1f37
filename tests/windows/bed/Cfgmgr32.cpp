// The test bed's cfgmgr32.dll. Wine's own ends the process at some calls and knows no device tree; this one answers
// from values that the test has written below each device's Enum key, plays the driver when a device is restarted,
// and leaves the rest to Wine's setupapi (Cfgmgr32.def).
#include "platform/win32.h"

#include <string>

constexpr char EnumKey[] = "SYSTEM\\CurrentControlSet\\Enum\\";

namespace {
struct Property {
    ULONG number;
    const char* value;
};
} // namespace
constexpr Property Properties[] = {{CM_DRP_DEVICEDESC, "DeviceDesc"},
                                   {CM_DRP_HARDWAREID, "HardwareID"},
                                   {CM_DRP_SERVICE, "Service"},
                                   {CM_DRP_CLASS, "Class"},
                                   {CM_DRP_CLASSGUID, "ClassGUID"},
                                   {CM_DRP_DRIVER, "Driver"},
                                   {CM_DRP_FRIENDLYNAME, "FriendlyName"},
                                   {CM_DRP_LOCATION_INFORMATION, "LocationInformation"},
                                   {CM_DRP_PHYSICAL_DEVICE_OBJECT_NAME, "BedKernelName"},
                                   {CM_DRP_ENUMERATOR_NAME, "BedEnumerator"},
                                   {CM_DRP_ADDRESS, "Address"},
                                   {0x24, "BedLocationPaths"}};

static std::string IdOf(DEVINST device) {
    char id[MAX_DEVICE_ID_LEN] = "";
    CM_Get_Device_IDA(device, id, sizeof(id), 0);
    return id;
}

// A value of the device's key, or of a key below it. Returns: the error; size as RegQueryValueEx leaves it.
static LONG ReadValue(DEVINST device, const char* below, const char* name, void* data, DWORD* size,
                      DWORD* type = nullptr) {
    HKEY key = nullptr;
    const std::string id = IdOf(device);
    const LONG error =
        id.empty() ? ERROR_FILE_NOT_FOUND
                   : RegOpenKeyExA(HKEY_LOCAL_MACHINE, (EnumKey + id + below).c_str(), 0, KEY_QUERY_VALUE, &key);
    if (error != ERROR_SUCCESS) {
        return error;
    }
    const LONG result = RegQueryValueExA(key, name, nullptr, type, static_cast<BYTE*>(data), size);
    RegCloseKey(key);
    return result;
}

static std::string ReadText(DEVINST device, const char* below, const char* name) {
    char text[MAX_PATH] = "";
    DWORD size = sizeof(text) - 1;
    return ReadValue(device, below, name, text, &size) == ERROR_SUCCESS ? text : "";
}

static CONFIGRET NodeOf(const std::string& id, DEVINST* device) {
    static const HDEVINFO devices = SetupDiCreateDeviceInfoList(nullptr, nullptr);
    SP_DEVINFO_DATA data = {};
    data.cbSize = sizeof(data);
    if (id.empty() || !SetupDiOpenDeviceInfoA(devices, id.c_str(), nullptr, 0, &data)) {
        return CR_NO_SUCH_DEVNODE;
    }
    *device = data.DevInst;
    return CR_SUCCESS;
}

// What the driver of a port does: its DOS name goes when it stops, and comes from PortName when it starts.
static void Stop(DEVINST device) {
    const std::string kernelName = ReadText(device, "", "BedKernelName");
    char target[512];
    for (int number = 1; number <= 90 && !kernelName.empty(); ++number) {
        const std::string name = "COM" + std::to_string(number);
        if (QueryDosDeviceA(name.c_str(), target, sizeof(target)) && kernelName == target) {
            DefineDosDeviceA(DDD_REMOVE_DEFINITION | DDD_RAW_TARGET_PATH, name.c_str(), kernelName.c_str());
        }
    }
}

static void Start(DEVINST device) {
    const std::string kernelName = ReadText(device, "", "BedKernelName");
    const std::string name = ReadText(device, "\\Device Parameters", "PortName");
    if (!kernelName.empty() && !name.empty()) {
        DefineDosDeviceA(DDD_RAW_TARGET_PATH, name.c_str(), kernelName.c_str());
    }
}

extern "C" {

CONFIGRET WINAPI Bed_Get_Parent(DEVINST* parent, DEVINST device, ULONG) {
    return NodeOf(ReadText(device, "", "BedParent"), parent);
}
CONFIGRET WINAPI Bed_None(DEVINST*, DEVINST, ULONG) {
    return CR_NO_SUCH_DEVNODE;
}
CONFIGRET WINAPI Bed_Status(ULONG* status, ULONG* problem, DEVINST, ULONG) {
    *status = DN_STARTED | DN_DRIVER_LOADED | DN_DISABLEABLE | DN_NT_ENUMERATOR | DN_NT_DRIVER;
    *problem = 0;
    return CR_SUCCESS;
}
CONFIGRET WINAPI Bed_PropertyA(DEVINST device, ULONG property, ULONG* type, void* data, ULONG* size, ULONG) {
    for (const Property& row : Properties) {
        if (row.number == property) {
            DWORD valueType = 0;
            const LONG error = ReadValue(device, "", row.value, data, size, &valueType);
            if (type) {
                *type = valueType;
            }
            return error == ERROR_SUCCESS ? CR_SUCCESS : error == ERROR_MORE_DATA ? CR_BUFFER_SMALL : CR_NO_SUCH_VALUE;
        }
    }
    return CR_NO_SUCH_VALUE;
}
CONFIGRET WINAPI Bed_PropertyW(DEVINST, ULONG, ULONG*, void*, ULONG*, ULONG) {
    return CR_NO_SUCH_VALUE;
}
CONFIGRET WINAPI Bed_NoLogConf(ULONG_PTR*, DEVINST, ULONG) {
    return CR_NO_MORE_LOG_CONF;
}
CONFIGRET WINAPI Bed_Disable(DEVINST device, ULONG) {
    Stop(device);
    return CR_SUCCESS;
}
CONFIGRET WINAPI Bed_Enable(DEVINST device, ULONG) {
    Start(device);
    return CR_SUCCESS;
}
CONFIGRET WINAPI Bed_Remove(DEVINST device, void*, WCHAR*, ULONG, ULONG) {
    Stop(device);
    return CR_SUCCESS;
}
CONFIGRET WINAPI Bed_Reenumerate(DEVINST, ULONG, void*) {
    return CR_SUCCESS;
}

} // extern "C"
