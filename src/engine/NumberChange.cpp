#include "engine/NumberChange.h"

#include "actions/CallBackTimer.h"
#include "inventory/devices/DeviceControl.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/ProblemNumbers.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/NameClaims.h"
#include "inventory/usb/CUsbHubs.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr LONG PutOffRestartMs = 4000;
constexpr DWORD NewNameWaitMs = 5000;
constexpr DWORD NewNamePauseMs = 10;

void SetNameInForce(CComPort* port) {
    SetRegistryNameInForce(port, GetNumberOfPortName(port->szRegPortName) != 0);
    port->HasCopiedName = 0;
    EndAwaitedRestart(port, /*isArrival=*/false);
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
    port->WrittenNumber = GetNumberOfPortName(name);
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

static bool CycleItsHubPort(const CComPort* port) {
    const HubReader reader(g_pUsbHubs);
    return CycleHubPort(reader, port->HubDevInst, port->UsbPortNumber);
}

bool RestartForNewNumber(CComPort* port) {
    if (port->Problem != 0 && port->Problem != ProblemWillBeRemoved) {
        return (IsCyclable(port) && CycleItsHubPort(port)) || PerformComPortDisableEnable(port) != 0;
    }
    if (IsCyclable(port)) {
        if (IsUsbCompoundDevice(port->UsbDevInst)) {
            WriteLog(3, "is USB compound device -> do not restart the USB port");
        } else if (CycleItsHubPort(port)) {
            return true;
        }
    }
    return PerformComPortPropertyChange(port) != 0;
}

static void SetRestarted(CComPort* port) {
    port->ChangePortTicker = GetTickCount();
    port->RestartTicker = port->ChangePortTicker;
    SetNameInForce(port);
}

// since: the tick from which the wait counts.
static void AdoptNewName(CComPort* port, DWORD since) {
    char target[DosTargetSize];
    while (!QueryDosName(port->szRegPortName, target)) {
        if (GetTickCount() - since >= NewNameWaitMs) {
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

void WaitForNewName(CComPort* port) {
    SetRestarted(port);
    WriteLog(1, "waiting for %s to appear...", port->szRegPortName);
    AdoptNewName(port, port->RestartTicker);
}

// Even after half a swap the one that came back has its new name. Its driver may have taken another kernel name while
// both were out, and with the former one no later arrival of this name would count as a copy.
void TakeNameOfRunningPort(CComPort* port) {
    char target[DosTargetSize];
    if (!QueryDosName(port->szRegPortName, target) || GetProblem(port->DevInst) != 0) {
        return;
    }
    SetRegistryNameInForce(port, GetNumberOfPortName(port->szRegPortName) != 0);
    CopyText(port->szKernelNameCom, target);
    MarkCopiedName(port);
}

// Matched by kernel name alone, so this may delete another device's link. RestoreOtherPortsName recreates the other
// port's; the storms list the rest as exception (a).
bool DeleteOldName(const Assignment& check) {
    // After a restart under the previous registry name there is no old name: deleting it would remove the name that
    // just appeared.
    if (lstrcmpiA(check.szOldRegPortName, check.port->szRegPortName) == 0) {
        return false;
    }
    char target[DosTargetSize];
    if (!QueryDosName(check.szOldRegPortName, target) || lstrcmpA(target, check.szOldKernelName) != 0) {
        return false;
    }
    WriteLog(1, "old %s still there as %s -> delete", check.szOldRegPortName, target);
    if (!DeleteDosName(check.szOldRegPortName)) {
        WriteLog(1, " err=%s", LastErrorName());
    }
    return true;
}

// Does the other port with this registry name run without a link of its own? It has none, or the one that this port
// had.
static bool IsHolderWithoutLink(const Assignment& check) {
    const CComPort* other = check.registryHolder;
    if (other == nullptr || !IsRealDevInst(other->DevInst) ||
        !IsSameNoCase(other->szRegPortName, check.szOldRegPortName) || GetProblem(other->DevInst) != 0) {
        return false;
    }
    return other->szPortName[0] == '\0' ||
           (check.szOldKernelName[0] != '\0' && lstrcmpA(other->szKernelNameCom, check.szOldKernelName) == 0);
}

void NoteRivalForOldName(const Assignment& check) {
    // A check before the restart, such as that of a resume, finds the new name and no holder: it must not forget this
    // one.
    if (IsHolderWithoutLink(check)) {
        check.port->NameRival = check.registryHolder->Index + 1;
    }
}

void RestartIfNameLeftWithPort(const Assignment& check) {
    CComPort* other = check.registryHolder;
    char target[DosTargetSize];
    if (!IsHolderWithoutLink(check) || QueryDosName(other->szRegPortName, target)) {
        return;
    }
    WriteLog(1, "%s was the name of the new one -> restart Ports[%i]", other->szRegPortName, other->Index);
    char kernelName[sizeof(other->szKernelNameCom)];
    CopyText(kernelName, other->szKernelNameCom);
    other->szKernelNameCom[0] = '\0'; // or it would be restored for a port that is slow
    if (RestartForNewNumber(other)) {
        SetRestarted(other);
        // Not five more seconds: the events of the first port's own restart would look like a plug.
        AdoptNewName(other, check.port->RestartTicker);
    } else {
        CopyText(other->szKernelNameCom, kernelName);
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
