#include "inventory/names/ComPortNumber.h"

#include "config/CSettings.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/FriendlyName.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

// Longest friendly name and port name, in characters.
constexpr DWORD NameLimit = 128;
constexpr char FriendlyNameValue[] = "FriendlyName";
constexpr char DeviceParameters[] = "\\Device Parameters";
constexpr char DeviceMapKey[] = "HARDWARE\\DEVICEMAP\\SERIALCOMM";

// Values of the device's parameters that hold its port name. A driver keeps one of them, the other, or both.
constexpr const char* PortNameValues[] = {"PortName", "DosDeviceName"};
static_assert(sizeof(PortNameValues) / sizeof(PortNameValues[0]) == 2);

namespace {
// A friendly name on its way to a new COM name. One element larger than the limit, so that a text of exactly the limit
// still ends in a zero.
struct FriendlyNameText {
    char Text[NameLimit + 1] = {};
    char ComName[NameLimit] = {}; // the COM name that the text really shows
};
} // namespace

static bool ReadFriendlyName(const char* regEnumPath, FriendlyNameText* name) {
    return RegReadString(HKEY_LOCAL_MACHINE, regEnumPath, FriendlyNameValue, name->Text, NameLimit, 0) != 0;
}

static bool FindComName(FriendlyNameText* name) {
    const char* const comName = FindComInFriendlyName(name->Text);
    if (comName == nullptr) {
        return false;
    }
    CopyComName(comName, name->ComName);
    return true;
}

// Replaces the shown COM name by the new one. Returns: true if the text has changed.
static bool RenameInFriendlyName(FriendlyNameText* name, const char* newComName) {
    if (!ReplaceString(name->Text, name->ComName, newComName, NameLimit)) {
        return false;
    }
    WriteLog(2, "new FriendlyName=%s", name->Text);
    return true;
}

static int WriteText(const char* key, const char* valueName, const char* text) {
    return RegWriteString(HKEY_LOCAL_MACHINE, key, valueName, text);
}

static void WriteTextLogged(const char* key, const char* valueName, const char* text) {
    const int res = WriteText(key, valueName, text);
    const DWORD error = GetLastError();
    WriteLog(2, " set %s=%u", res ? "res" : "err", res ? 1 : error);
}

static void ChangeFriendlyName(const char* regEnumPath, const char* newName) {
    FriendlyNameText name;
    if (ReadFriendlyName(regEnumPath, &name) && FindComName(&name) && RenameInFriendlyName(&name, newName)) {
        WriteTextLogged(regEnumPath, FriendlyNameValue, name.Text);
    }
}

static void ChangePortName(const char* parametersKey, const char* valueName, const char* newName) {
    char present[NameLimit] = {};
    if (!RegReadString(HKEY_LOCAL_MACHINE, parametersKey, valueName, present, sizeof(present), 0)) {
        return;
    }
    WriteLog(2, "%s=%s", valueName, present);
    WriteLog(2, "new %s=%s", valueName, newName);
    WriteTextLogged(parametersKey, valueName, newName);
}

static void ChangeDeviceMap(const char* kernelNameCom, const char* newName) {
    char present[NameLimit] = {};
    if (*kernelNameCom == 0 ||
        !RegReadString(HKEY_LOCAL_MACHINE, DeviceMapKey, kernelNameCom, present, sizeof(present), 0)) {
        return;
    }
    WriteLog(2, "%s=%s", kernelNameCom, present);
    WriteLog(2, "new value for %s is %s", kernelNameCom, newName);
    WriteTextLogged(DeviceMapKey, kernelNameCom, newName);
}

int ChangeRegistryComPortNumber(const char* oldName, const char* newName, const char* regEnumPath,
                                const char* regClassPath, const char* kernelNameCom) {
    WriteLog(1, "ChangeRegistryComPortNumber(%s, %s, %s, %s)", oldName, newName, regEnumPath, regClassPath);
    ChangeFriendlyName(regEnumPath, newName);
    char parametersKey[260 + sizeof(DeviceParameters)];
    CopyText(parametersKey, regEnumPath);
    AppendText(parametersKey, DeviceParameters);
    for (const char* valueName : PortNameValues) {
        ChangePortName(parametersKey, valueName, newName);
    }
    RegChangeAllValues(HKEY_LOCAL_MACHINE, regClassPath, oldName, newName);
    // Otherwise the device rewrites the map when it restarts.
    if (g_pSettings != nullptr && g_pSettings->QuickAndDirtyMode) {
        ChangeDeviceMap(kernelNameCom, newName);
    }
    return 1;
}

int ChangeDosDeviceComPortNumber(const char* oldName, const char* newName) {
    WriteLog(1, "ChangeDosDeviceComPortNumber(%s, %s)", oldName, newName);
    char kernelName[DosTargetSize] = {};
    if (*oldName != 0) {
        if (!QueryDosName(oldName, kernelName)) {
            WriteLog(1, "%s not found", oldName);
            return 0;
        }
        WriteLog(1, "kernel name is '%s'", kernelName);
        if (!DeleteDosName(oldName)) {
            return 0;
        }
        WriteLog(1, " DDN '%s' removed", oldName);
    }
    if (!CreateDosName(newName, kernelName)) {
        WriteLog(1, "error %u creating %s", GetLastError(), newName);
        return 0;
    }
    char newTarget[DosTargetSize];
    const int exists = QueryDosName(newName, newTarget);
    WriteLog(1, exists ? "%s created as %s" : "%s not created as %s", newName, kernelName);
    return exists;
}

void FixFriendlyName(const char* regEnumPath, LONG portNumber) {
    WriteLog(4, "FixFriendlyName(%s, %i)", regEnumPath, portNumber);
    FriendlyNameText name;
    if (portNumber == 0 || !ReadFriendlyName(regEnumPath, &name)) {
        return;
    }
    if (!FindComName(&name)) {
        WriteLog(4, " no 'COM' found in name");
        return;
    }
    char wanted[16];
    FormatText(wanted, "COM%i", portNumber);
    if (lstrcmpA(name.ComName, wanted) != 0 && RenameInFriendlyName(&name, wanted)) {
        // The friendly name is only a label: the number holds even if it cannot be written.
        (void)WriteText(regEnumPath, FriendlyNameValue, name.Text);
    }
}

int DeleteSerialCommValue(const char* valueName) {
    char present[NameLimit] = {};
    if (*valueName == 0 || !RegReadString(HKEY_LOCAL_MACHINE, DeviceMapKey, valueName, present, sizeof(present), 0) ||
        !RegDeleteValue(HKEY_LOCAL_MACHINE, DeviceMapKey, valueName)) {
        return 0;
    }
    WriteLog(2, "deleted %s '%s'", DeviceMapKey, valueName);
    return 1;
}

int GetRegPortNameByDeviceId(const char* deviceId, char (&portName)[128]) {
    char parametersKey[320];
    FormatText(parametersKey, "SYSTEM\\CurrentControlSet\\Enum\\%s%s", deviceId, DeviceParameters);
    char text[NameLimit] = {};
    const int res = RegReadString(HKEY_LOCAL_MACHINE, parametersKey, PortNameValues[0], text, sizeof(text), 0);
    CopyText(portName, res ? text : "");
    return res;
}

LONG GetNumberOfPortName(const char* portName) {
    return lstrlenA(portName) > 3 ? StrToIntA(portName + 3) : 0;
}

bool BeginsWithCom(const char* name) {
    return name[0] == 'C' && name[1] == 'O' && name[2] == 'M';
}

void SetRegistryNameInForce(CComPort* port, bool hasNumber) {
    CopyText(port->szPortName, port->szRegPortName);
    CopyComDigits(hasNumber ? port->szPortName : "", port->PortNumberText);
    port->PortNumber = hasNumber ? GetNumberOfPortName(port->szPortName) : 0;
}
