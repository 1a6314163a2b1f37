#include "inventory/devices/DeviceProperties.h"

#include <algorithm>

#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/texts/BoundedText.h"
#include "support/texts/TimeTools.h"

// The longest text property that is read: a list of hardware ids.
constexpr size_t MaxPropertyChars = 1024;

constexpr size_t MaxIdChars = 260;

// The list of location paths, for which not every edition of the SDK has a name.
constexpr ULONG PropertyLocationPaths = 0x24;

constexpr size_t LocationPathsBytes = 2048;
constexpr size_t LocationPathsChars = LocationPathsBytes / sizeof(WCHAR);

// The most bytes that one wide character needs in any system code page.
constexpr size_t MaxAnsiPerWide = 3;

static bool IsTextType(ULONG type) {
    return type == REG_SZ || type == REG_MULTI_SZ || type == REG_EXPAND_SZ;
}

bool ReadDeviceText(DWORD devInst, ULONG property, char* text, size_t sizeChars) {
    char buffer[MaxPropertyChars + 1] = {}; // one more than requested, so that the text always ends
    ULONG type = REG_NONE;
    ULONG sizeBytes = static_cast<ULONG>(std::min(sizeChars, MaxPropertyChars));
    if (CM_Get_DevNode_Registry_PropertyA(devInst, property, &type, buffer, &sizeBytes, 0) != CR_SUCCESS) {
        return false;
    }
    if (!IsTextType(type)) {
        return false;
    }
    CopyText(text, sizeChars, buffer);
    return true;
}

bool ReadDeviceNumber(DWORD devInst, ULONG property, DWORD* number) {
    DWORD value = 0;
    ULONG type = REG_NONE;
    ULONG sizeBytes = sizeof(value);
    if (CM_Get_DevNode_Registry_PropertyA(devInst, property, &type, &value, &sizeBytes, 0) != CR_SUCCESS ||
        sizeBytes != sizeof(value)) {
        return false;
    }
    *number = value;
    return true;
}

void ReadLocationPath(DWORD devInst, char* text, size_t sizeChars) {
    WCHAR paths[LocationPathsChars + 1] = {};
    ULONG type = REG_NONE;
    ULONG sizeBytes = LocationPathsBytes;
    if (CM_Get_DevNode_Registry_PropertyW(devInst, PropertyLocationPaths, &type, paths, &sizeBytes, 0) != CR_SUCCESS ||
        !IsTextType(type)) {
        paths[0] = 0;
    }
    char ansi[(LocationPathsChars + 1) * MaxAnsiPerWide] = {};
    if (WideCharToMultiByte(CP_ACP, 0, paths, -1, ansi, static_cast<int>(sizeof(ansi)), nullptr, nullptr) == 0) {
        ansi[0] = '\0';
    }
    CopyText(text, sizeChars, ansi);
}

bool ReadDeviceId(DWORD devInst, char* id, size_t sizeChars) {
    char buffer[MaxIdChars + 1] = {};
    const ULONG room = static_cast<ULONG>(std::min(sizeChars, MaxIdChars));
    if (CM_Get_Device_IDA(devInst, buffer, room, 0) != CR_SUCCESS) {
        return false;
    }
    CopyText(id, sizeChars, buffer);
    return true;
}

bool GetDeviceEnumTime(const char* deviceId, FILETIME* time) {
    char key[320];
    FormatText(key, "System\\CurrentControlSet\\Enum\\%s", deviceId);
    if (RegGetKeyWriteTime(HKEY_LOCAL_MACHINE, key, time) != 0) {
        return false;
    }
    WriteLog(2, "GetDeviceEnumTime(%s) %s", deviceId, FileTimeText(*time));
    return true;
}
