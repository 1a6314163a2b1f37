#include "engine/AssignmentSteps.h"

#include "actions/CallBackTimer.h"
#include "config/CSettings.h"
#include "engine/SectionMatching.h"
#include "inventory/devices/DeviceControl.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/FriendlyName.h"
#include "inventory/names/NameClaims.h"
#include "inventory/usb/CUsbHubs.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/OsVersion.h"
#include "support/texts/BoundedText.h"

constexpr DWORD LateNameWaitMs = 1000;
constexpr LONG PutOffRestartMs = 4000;
constexpr DWORD NewNameWaitMs = 5000;
constexpr DWORD NewNamePauseMs = 10;
constexpr DWORD ProblemWillBeRemoved = 21; // CM_PROB_WILL_BE_REMOVED

// Name, digits and number of the DOS name in force follow the registry name.
static void SetNameInForce(CComPort* port) {
    CopyText(port->szPortName, port->szRegPortName);
    port->PortNumber = GetNumberOfPortName(port->szPortName);
    CopyComDigits(port->PortNumber != 0 ? port->szPortName : "", port->PortNumberText);
    port->HasCopiedName = 0;
    EndAwaitedRestart(port, /*isArrival=*/false);
}

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
    check->otherPort = g_pComPorts->Ports[index];
    if (!LogFile_Wants(3)) {
        return;
    }
    WriteLog(3, "%s seems to be used by %s (%s) -> check", port->szRegPortName, check->otherPort->szPortName,
             check->otherPort->DeviceID);
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
// It would get another free number at each check, restarted again and again, though it has one of its own by now. So
// that one stands before the free one.
static bool HasOwnNumberByNow(const Assignment& check) {
    return check.otherPort == nullptr && check.port->PortNumber != 0 && !check.port->HasCopiedName;
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
    // A list that is longer than the line is cut; the numbers of most preference stand first.
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
    // A registry name that is the wanted one already is no old name: deleting it would leave the device without any.
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
        // The record would still hold the deleted name against others.
        CopyText(port->szPortName, name);
        CopyComDigits(name, port->PortNumberText);
    }
    port->PortChangeDone = 1;
}

void FreeLeftNumber(CComPort* port) {
    if (port->LeftNumber != 0 && port->LeftNumber != port->PortNumber) {
        char name[16];
        char target[DosTargetSize];
        FormatText(name, "COM%i", port->LeftNumber);
        if (!QueryDosName(name, target) && g_pComPorts->FindPortByComPort(name) == nullptr) {
            ComNameArbiterRemove(name);
        }
    }
    port->LeftNumber = 0;
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
    const LONG section = GetFittingSectionNumber(check.otherPort, ComPorts);
    DWORD numbers[MaxNewPorts];
    // Neither has a name to give that leads to the device of a third one.
    if (check.port->HasCopiedName || check.otherPort->HasCopiedName) {
        return false;
    }
    if (section == 0 || GetPortNamesFromSection(ComPorts, section, numbers) == 0 ||
        numbers[0] != static_cast<DWORD>(check.port->PortNumber)) {
        return false;
    }
    if (IsNameOfThird(check.port->szRegPortName, check.port, check.otherPort) ||
        IsNameOfThird(check.otherPort->szRegPortName, check.port, check.otherPort)) {
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

bool WriteNewNumber(Assignment* check, const char* name) {
    const CComPort* port = check->port;
    WriteLog(1, "changing name to %s", name);
    CopyText(check->szOldKernelName, port->szKernelNameCom);
    CopyText(check->szOldRegPortName, port->szRegPortName);
    return ChangeRegistryComPortNumber(port->szRegPortName, name, port->szRegEnumPath, port->szRegClassPath,
                                       port->szKernelNameCom) != 0;
}

void UpdateRegistryName(Assignment* check, const char* name) {
    CComPort* port = check->port;
    WriteLog(2, "update Port[%u] %s -> %s", static_cast<DWORD>(port->Index), port->szRegPortName, name);
    CopyText(port->szRegPortName, name);
    WriteLog(2, "SameParentArrivalTicker=%u PortArrivalTicker=%u  Diff=%u", port->SameParentArrivalTicker,
             port->ArrivalTicker, port->ArrivalTicker - port->SameParentArrivalTicker);
    ComNameArbiterRemove(check->szOldRegPortName);
    ComNameArbiterAddByName(name);
}

bool MoveDosName(Assignment* check, const char* name) {
    if (!ChangeDosDeviceComPortNumber(check->szOldRegPortName, name)) {
        return false;
    }
    check->port->PortChangedByDdn = 1;
    SetNameInForce(check->port);
    return true;
}

void PutOffRestart(CComPort* port) {
    // The upper device's node is the id: all ports below it share one timer, and one restart serves them all.
    KillCallbackTimer(port->SameParentDevInst);
    CreateCallbackTimer(PutOffRestartMs, port->SameParentDevInst, port->SameParentDevInst, RestartDevice_TimerProc,
                        "RestartSameParent");
    port->ChangePortTicker = GetTickCount() + static_cast<DWORD>(PutOffRestartMs);
    AwaitRestart(port, port->ChangePortTicker);
}

bool IsCyclable(const CComPort* port) {
    return g_Os.CanCycleUsbPort && port->BusType == BusUsb;
}

static bool CycleHubPort(const CComPort* port) {
    HubReader reader(g_pUsbHubs);
    const auto* hub = g_pUsbHubs != nullptr ? g_pUsbHubs->FindHubByDevInst(port->HubDevInst) : nullptr;
    return hub != nullptr && CycleUsbPort(hub->szDevPath, port->UsbPortNumber) != 0;
}

bool RestartForNewNumber(CComPort* port) {
    if (port->Problem != 0 && port->Problem != ProblemWillBeRemoved) {
        return (IsCyclable(port) && CycleHubPort(port)) || PerformComPortDisableEnable(port) != 0;
    }
    if (IsCyclable(port)) {
        if (IsUsbCompoundDevice(port->UsbDevInst)) {
            WriteLog(3, "is USB compound device -> do not restart the USB port");
        } else if (CycleHubPort(port)) {
            return true;
        }
    }
    return PerformComPortPropertyChange(port) != 0;
}

void WaitForNewName(CComPort* port) {
    const DWORD start = GetTickCount();
    port->ChangePortTicker = start;
    port->RestartTicker = start;
    SetNameInForce(port);
    WriteLog(1, "waiting for %s to appear...", port->szRegPortName);
    char target[DosTargetSize];
    while (!QueryDosName(port->szRegPortName, target)) {
        if (GetTickCount() - start >= NewNameWaitMs) {
            WriteLog(1, "QueryDosDevice(%s)  err=%s  :-(", port->szRegPortName, LastErrorName());
            return;
        }
        WriteLog(3, "QueryDosDevice(%s)  err=%s", port->szRegPortName, LastErrorName());
        Sleep(NewNamePauseMs);
    }
    WriteLog(1, "QueryDosDevice(%s)...  kn=%s", port->szRegPortName, target);
    CopyText(port->szKernelNameCom, target);
    MarkCopiedName(port);
}

// The name goes even if another device has come to this kernel name meanwhile: whom that costs its name gets it back in
// the next step. The storms name what is left of it as an exception; the order is not changed for it.
void DeleteOldName(const Assignment& check) {
    // A restart under the name that the registry held before has no old name: it would delete what just appeared.
    if (lstrcmpiA(check.szOldRegPortName, check.port->szRegPortName) == 0) {
        return;
    }
    char target[DosTargetSize];
    if (!QueryDosName(check.szOldRegPortName, target) || lstrcmpA(target, check.szOldKernelName) != 0) {
        return;
    }
    WriteLog(1, "old %s still there as %s -> delete", check.szOldRegPortName, target);
    if (!DeleteDosName(check.szOldRegPortName)) {
        WriteLog(1, " err=%s", LastErrorName());
    }
}

void RestoreOtherPortsName(const CComPort* otherPort) {
    char target[DosTargetSize];
    if (otherPort == nullptr || otherPort->szKernelNameCom[0] == 0 || QueryDosName(otherPort->szRegPortName, target)) {
        return;
    }
    WriteLog(1, "%s has lost its DDN '%s' -> restore", otherPort->DeviceID, otherPort->szRegPortName);
    if (!CreateDosName(otherPort->szRegPortName, otherPort->szKernelNameCom)) {
        WriteLog(1, " err=%s", LastErrorName());
    }
}

void CleanDeviceMap(const Assignment& check) {
    if (check.szOldKernelName[0] != 0 && lstrcmpA(check.port->szKernelNameCom, check.szOldKernelName) != 0) {
        DeleteSerialCommValue(check.port->szKernelNameCom);
    }
}
