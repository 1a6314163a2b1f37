#include "engine/NumberChoice.h"

#include "config/CSettings.h"
#include "engine/NumberChange.h"
#include "engine/SectionMatching.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/FriendlyName.h"
#include "inventory/names/NameClaims.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr DWORD LateNameWaitMs = 1000;

static void LogDeletion(const char* name, int isDeleted) {
    if (isDeleted) {
        WriteLog(1, "%s removed", name);
    } else {
        WriteLog(1, "err=%s", LastErrorName());
    }
}

void FindHolderOfRegistryName(Assignment* check) {
    const CComPort* port = check->port;
    const int index = g_pComPorts->FindPortByComPort(port->szRegPortName, port);
    if (index < 0) {
        WriteLog(4, " no other port has the same port name -> good");
        return;
    }
    check->registryHolder = g_pComPorts->Ports[index];
    check->nameHolder = check->registryHolder;
    if (!LogFile_Wants(3)) {
        return;
    }
    WriteLog(3, "%s seems to be used by %s (%s) -> check", port->szRegPortName, check->registryHolder->szPortName,
             check->registryHolder->DeviceID);
    char target[DosTargetSize];
    if (QueryDosName(port->szRegPortName, target)) {
        WriteLog(3, " kn=%s", target);
    } else {
        WriteLog(3, " no, unused");
    }
}

void TakeOverLateName(CComPort* port) {
    WriteLog(1, "device has %s in registry but is not assigned", port->szRegPortName);
    Sleep(LateNameWaitMs);
    char target[DosTargetSize];
    if (!QueryDosName(port->szRegPortName, target)) {
        return;
    }
    CopyText(port->szKernelNameCom, target);
    SetNameInForce(port);
    MarkCopiedName(port);
    WriteLog(1, " oh, there it is %s -> %s", port->szPortName, port->szKernelNameCom);
}

// A port that lost its name at the start stays marked when its restart is that of its hub port or of an upper device.
// Each check would then pick another free number and restart it again, although it has one of its own by now, so that
// number is tried before any free one.
static bool HasOwnNumberByNow(const Assignment& check) {
    return check.registryHolder == nullptr && check.port->PortNumber != 0 && !check.port->HasCopiedName;
}

void AppendFreeNumber(Assignment* check) {
    if (check->newPortCount == MaxNewPorts) {
        return;
    }
    const LONG number = g_pComPorts->FindFreePortNumber();
    if (number == 0) {
        return;
    }
    if (HasOwnNumberByNow(*check) && check->newPortCount + 1 < MaxNewPorts) {
        check->newPorts[check->newPortCount++] = static_cast<DWORD>(check->port->PortNumber);
    }
    check->newPorts[check->newPortCount++] = static_cast<DWORD>(number);
    WriteLog(1, "adding COM%i to list of new ports because %s is in use and we must change the port", number,
             check->port->szRegPortName);
}

void BuildNewPortNames(Assignment* check) {
    for (LONG i = 0; i < check->newPortCount; ++i) {
        FormatText(check->newPortNames[i], "COM%u", check->newPorts[i]);
    }
    if (!LogFile_Wants(1)) {
        return;
    }
    // A list that is longer than the line is cut; the most preferred numbers come first.
    char list[512] = "";
    for (LONG i = 0; i < check->newPortCount; ++i) {
        AppendText(list, i != 0 ? ", " : "");
        AppendText(list, check->newPortNames[i]);
    }
    WriteLog(1, "new ComPorts=%s", list);
}

LONG ReadQuickMode(const Assignment& check) {
    const LONG general = g_pSettings != nullptr ? g_pSettings->QuickAndDirtyMode : 0;
    LONG mode = general;
    g_pCfgReader->GetInt(ComPorts, check.section, "QuickAndDirtyMode", general, &mode);
    if (mode != general) {
        WriteLog(1, "QuickAndDirty overrule=%u", static_cast<DWORD>(mode));
    }
    return mode;
}

bool HasNumber(const CComPort* port, DWORD number) {
    return number == static_cast<DWORD>(port->PortNumber) && !port->HasCopiedName;
}

void KeepPresentNumber(CComPort* port) {
    WriteLog(1, "current portnumber %i is configured -> nothing more to do", port->PortNumber);
    ComNameArbiterAdd(port->PortNumber);
    port->PortChangeDone = 1;
}

void KeepWantedOfTwoNames(CComPort* port, const char* name) {
    // If the registry name already is the wanted name, there is no old name: deleting it would leave the device without
    // any.
    if (lstrcmpiA(port->szRegPortName, name) != 0) {
        WriteLog(1, "%s has two Win32 names: %s, %s -> delete %s", port->szKernelNameCom, port->szRegPortName, name,
                 port->szRegPortName);
        LogDeletion(port->szRegPortName, DeleteDosName(port->szRegPortName));
    }
    ComNameArbiterRemove(port->szRegPortName);
    ComNameArbiterAddByName(name);
    port->PortNumber = GetNumberOfPortName(name);
    if (ChangeRegistryComPortNumber(port->szRegPortName, name, port->szRegEnumPath, port->szRegClassPath,
                                    port->szKernelNameCom)) {
        WriteLog(2, "update Port[%u] %s -> %s", static_cast<DWORD>(port->Index), port->szRegPortName, name);
        CopyText(port->szRegPortName, name);
        // Otherwise the record would keep the deleted name from other ports.
        CopyText(port->szPortName, name);
        CopyComDigits(name, port->PortNumberText);
    }
    port->PortChangeDone = 1;
}

// An absent port keeps its number too. A virtual record stood for a link, and would hold the number for good.
static bool IsRegistryNameOfAny(const char* name) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        const CComPort* port = g_pComPorts->Ports[i];
        if (port != nullptr && port->RecordValid && port->IsUsed && IsSameNoCase(port->szRegPortName, name)) {
            return true;
        }
    }
    return false;
}

// Returns: false if a link or a port has the number, so that it has to stay taken.
static bool FreeNumberOfNobody(LONG number) {
    char name[16];
    char target[DosTargetSize];
    FormatText(name, "COM%i", number);
    if (QueryDosName(name, target) || IsRegistryNameOfAny(name)) {
        return false;
    }
    ComNameArbiterRemove(name);
    return true;
}

void FreeLeftNumber(CComPort* port) {
    // Another port may have it until its own restart, and a link may outlive its driver: asked again at the next
    // arrival.
    if (port->LeftNumber == 0 || port->LeftNumber == port->PortNumber || FreeNumberOfNobody(port->LeftNumber)) {
        port->LeftNumber = 0;
    }
}

void FreeUnwrittenNumber(CComPort* port) {
    const LONG number = port->WrittenNumber;
    port->WrittenNumber = 0;
    // A registry that cannot be read says nothing about what it holds.
    if (number != 0 && port->szRegPortName[0] != '\0' && number != GetNumberOfPortName(port->szRegPortName)) {
        FreeNumberOfNobody(number);
    }
}

void KeepNumberTaken(CComPort* port) {
    ComNameArbiterAdd(port->PortNumber);
    if (port->PortNumber == 0) {
        return;
    }
    FreeLeftNumber(port);
    if (port->PortNumber != GetNumberOfPortName(port->szRegPortName)) {
        port->LeftNumber = port->PortNumber;
    }
}

bool DoPortsWantEachOther(const Assignment& check) {
    const LONG section = GetFittingSectionNumber(check.nameHolder, ComPorts);
    DWORD numbers[MaxNewPorts];
    // Neither name may lead to a third device: the swap deletes both links.
    if (check.port->HasCopiedName || check.nameHolder->HasCopiedName) {
        return false;
    }
    if (section == 0 || GetPortNamesFromSection(ComPorts, section, numbers) == 0 ||
        numbers[0] != static_cast<DWORD>(check.port->PortNumber)) {
        return false;
    }
    if (IsNameOfThird(check.port->szRegPortName, check.port, check.nameHolder) ||
        IsNameOfThird(check.nameHolder->szRegPortName, check.port, check.nameHolder)) {
        return false;
    }
    WriteLog(1, "other port will use section ComPorts%i with Port=COM%i -> swap ports", section,
             static_cast<LONG>(numbers[0]));
    return true;
}

bool DeleteStrayDosName(const char* name) {
    const int isDeleted = DeleteDosName(name);
    LogDeletion(name, isDeleted);
    return isDeleted != 0;
}
