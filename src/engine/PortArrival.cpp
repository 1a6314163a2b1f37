#include "engine/PortArrival.h"

#include "actions/ActionSections.h"
#include "actions/CallBackTimer.h"
#include "actions/PortBalloon.h"
#include "config/CCfgReader.h"
#include "config/CSettings.h"
#include "engine/NumberChoice.h"
#include "inventory/devices/DeviceControl.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/NameClaims.h"
#include "inventory/ports/AssignmentCall.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/usb/CUsbHubs.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

// All compared with unsigned tick differences.
constexpr DWORD OwnChangeMs = 5000;       // up to and including it, an arrival was caused by our last change
constexpr DWORD OwnRestartMs = 5000;      // below it, a removal was caused by our own restart
constexpr DWORD FlickerMs = 1000;         // up to and including it, a port only flickered
constexpr DWORD ChangeForgottenMs = 2000; // from it on, a change of the number does not explain a flicker

constexpr LONG AfterArrivalMs = 1000; // until balloon and actions: a device may bring several ports
constexpr LONG AfterRemovalMs = 500;
constexpr size_t LoggedDeviceIdChars = 200;

static DWORD AgeOf(DWORD ticker) {
    return GetTickCount() - ticker;
}

// For the log only: what registry and DOS name space hold for the port beforehand.
static void LogNamesOfNewPort(const char* devpath) {
    const DWORD devInst = GetDevInstByDevicePathAny(devpath, DIGCF_PRESENT);
    char deviceId[LoggedDeviceIdChars];
    char portName[128];
    if (devInst == 0 || !ReadDeviceId(devInst, deviceId) || !GetRegPortNameByDeviceId(deviceId, portName)) {
        return;
    }
    char target[DosTargetSize];
    const int exists = QueryDosName(portName, target);
    WriteLog(1, "portreg=%s kn=%s", portName, exists ? target : LastErrorName());
}

static void ReadChangedConfiguration(const char* reason) {
    if (g_pCfgReader != nullptr && g_pSettings != nullptr && g_pCfgReader->CreateSnapshotIfRequired(reason)) {
        g_pSettings->ReadSettings();
    }
}

static bool SharesHubPort(const CComPort* port) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        const CComPort* other = g_pComPorts->Ports[i];
        if (other != nullptr && other != port && other->IsPresent && other->UsbPortChain == port->UsbPortChain) {
            return true;
        }
    }
    return false;
}

// Cycles the port's hub port, if the port has one to itself. Returns: whether that restarted it.
static bool CycleOwnHubPort(const CComPort* port) {
    if (port->BusType != BusUsb || port->HubDevInst == 0 || port->UsbPortNumber == 0 || SharesHubPort(port)) {
        return false;
    }
    const HubReader reader(g_pUsbHubs);
    return CycleHubPort(reader, port->HubDevInst, port->UsbPortNumber);
}

static void RestartAlone(CComPort* port) {
    if (!CycleOwnHubPort(port)) {
        PerformComPortPropertyChange(port);
    }
}

// Does the DOS name really lead to the port that was there first?
static bool OwnsItsDosName(const CComPort* port) {
    char target[DosTargetSize];
    if (QueryDosName(port->szRegPortName, target) && lstrcmpA(target, port->szKernelNameCom) == 0 &&
        !port->HasCopiedName) {
        WriteLog(1,
                 " current kernel name of %s is %s which belongs to a previousely present port -> assign different "
                 "port to new one",
                 port->szRegPortName, target);
        return true;
    }
    WriteLog(1,
             " current kernel name of %s is %s which does not belong to the previousely present port -> good for the "
             "new one",
             port->szRegPortName, target);
    return false;
}

// Gives the newcomer a free number and restarts it. Returns: false when there is no free number.
static bool MoveToFreeNumber(CComPort* port) {
    const LONG number = g_pComPorts->FindFreePortNumber();
    if (number == 0) {
        return false;
    }
    char name[16];
    FormatText(name, "COM%i", number);
    ChangeRegistryComPortNumber(port->szRegPortName, name, port->szRegEnumPath, port->szRegClassPath,
                                port->szKernelNameCom);
    ComNameArbiterAdd(number);
    port->WrittenNumber = number;
    // The registry may have held another number than the one in force, which is the other port's.
    FreeLeftNumber(port);
    port->LeftNumber = GetNumberOfPortName(port->szRegPortName);
    // The names in the record were those of the port that was there first; this one has none until it is back. Left in
    // place, they would make a second arrival of this start move it again, and move a newcomer away from the number
    // that it left.
    CopyText(port->szRegPortName, name);
    port->szPortName[0] = 0;
    port->szKernelNameCom[0] = 0;
    port->HasCopiedName = 0;
    port->PortNumber = 0;
    port->PortNumberText[0] = 0;
    RestartAlone(port);
    return true;
}

// The link left with the newcomer, so it was the newcomer's all the time, and `port` never had a name. The name is free
// for it now.
static void RestartIfNameless(CComPort* port) {
    char target[DosTargetSize];
    if (!IsRealDevInst(port->DevInst) || GetProblem(port->DevInst) != 0 || QueryDosName(port->szRegPortName, target)) {
        return;
    }
    WriteLog(1, "%s was the name of the new one -> restart Ports[%i]", port->szRegPortName, port->Index);
    RestartAlone(port);
}

// The port is back from a restart that was put off. It may have taken along the link that another one claimed.
static void GiveNameToRival(CComPort* port) {
    if (port->NameRival == 0 || IsRestartAwaited(port)) {
        return;
    }
    CComPort* rival = g_pComPorts->Ports[port->NameRival - 1];
    port->NameRival = 0;
    if (rival != nullptr) {
        RestartIfNameless(rival);
    }
}

// Looks for ports that were there first and own the newcomer's number.
// Returns: whether the newcomer was moved; the arrival after its restart does the rest.
static bool MoveAwayFromCollision(CComPort* port) {
    RetireVirtualRecords(port->szRegPortName);
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* other = g_pComPorts->Ports[i];
        if (other == nullptr || other == port || !other->IsPresent || other->PortNumber != port->PortNumber) {
            continue;
        }
        WriteLog(1, "P[%i] is present with %s (%s) -> collision?", other->Index, other->szPortName,
                 other->szKernelNameCom);
        if (OwnsItsDosName(other) && MoveToFreeNumber(port)) {
            RestartIfNameless(other);
            return true;
        }
    }
    return false;
}

bool IsArrivalBalloonDue(const CComPort* port) {
    if (g_pSettings == nullptr || !g_pSettings->Enabled) {
        return false;
    }
    WriteLog(1, "P->ArrivalTicker - P->RemovalTicker=%u   ageof(P->ChangePortTicker)=%u",
             port->ArrivalTicker - port->RemovalTicker, AgeOf(port->ChangePortTicker));
    return port->ArrivalTicker - port->RemovalTicker > FlickerMs || AgeOf(port->ChangePortTicker) < ChangeForgottenMs;
}

bool IsRemovalToBeReported(const CComPort* port) {
    if (g_pSettings == nullptr || !g_pSettings->EnabledOnRemoval) {
        return false;
    }
    WriteLog(1, "P->ArrivalTicker - P->RemovalTicker=%u   GetTickCount() - P->ChangePortTicker=%u",
             port->ArrivalTicker - port->RemovalTicker, AgeOf(port->ChangePortTicker));
    return port->RemovalTicker - port->ArrivalTicker > FlickerMs || AgeOf(port->ChangePortTicker) < ChangeForgottenMs;
}

void ComPortArrived(const char* devpath) {
    WriteLog(1, "ComPortArrived(%s)...", devpath);
    if (g_pComPorts == nullptr) { // a debug run whose initialisation outlasted the wait for it
        WriteLog(1, "port not added");
        return;
    }
    if (LogFile_Wants(1)) {
        LogNamesOfNewPort(devpath);
    }
    g_pComPorts->ListPorts();
    const int index = g_pComPorts->AddNewPort(devpath);
    if (index < 0) {
        WriteLog(1, "port not added");
        return;
    }
    g_pComPorts->ListPorts();
    ReadChangedConfiguration("ComPortArrived");

    LockGuard main(CS_main);
    CComPort* port = g_pComPorts->Ports[index];
    if (port == nullptr || port->RecordValid != 1) {
        FATAL_SOFT("NewDeviceArrived", "ComPortArrived");
        return;
    }
    port->PortChangeDone = 0;
    auto outcome = AssignmentOutcome::Unchanged;
    if (port->ChangePortTicker != 0) {
        WriteLog(1, "port was changed %ums before", AgeOf(port->ChangePortTicker));
    }
    // Before the check, which would take one number after the other while the registry cannot be written.
    FreeUnwrittenNumber(port);
    // Before the check, which would take the other one for dead and this one back to that name.
    GiveNameToRival(port);
    // A deferred change lies ahead of now: the unsigned difference is then huge, and the port is checked again.
    if (AgeOf(port->ChangePortTicker) > OwnChangeMs) {
        outcome = CheckComPortAssignment(index);
    } else {
        WriteLog(1, "CheckComPortAssignment skipped");
    }
    port->PortChangeDone = 1;
    port->OnArrivalDone = 0;
    port->OnRemovalDone = 0;

    if (outcome == AssignmentOutcome::Unchanged && port->PortNumber != 0 && MoveAwayFromCollision(port)) {
        return;
    }
    KeepNumberTaken(port);
    if (outcome == AssignmentOutcome::Unchanged) {
        FixFriendlyName(port->szRegEnumPath, port->PortNumber);
    } else if (outcome != AssignmentOutcome::Changed || g_pSettings == nullptr || !g_pSettings->QuickAndDirtyMode) {
        return; // the arrival after the restart continues from here
    }
    if (IsArrivalBalloonDue(port)) {
        CreateCallbackTimer(AfterArrivalMs, ArrivalBalloonTimerId, static_cast<ULONG_PTR>(index),
                            ShowBalloonForPort_TimerProc, BalloonTimerName);
    }
    DoOnArrivalRemoval_Async(port, OnArrival, AfterArrivalMs); // whether or not a balloon is due
}

void ComPortRemoved(const char* devpath) {
    WriteLog(1, "ComPortRemoved(%s)", devpath);
    if (g_pComPorts == nullptr) {
        WriteLog(1, " not found");
        return;
    }
    g_pComPorts->ListPorts();
    const int index = g_pComPorts->FindPortIdxByDevicePath(devpath);
    // The removal of a device that the table does not know may be that of the driver that made a link.
    RetireVirtualRecords(nullptr);
    if (index < 0) {
        WriteLog(1, " not found");
        return;
    }
    CComPort* port = g_pComPorts->Ports[index];
    port->OnArrivalDone = 0;
    if (AgeOf(port->RestartTicker) < OwnRestartMs) {
        WriteLog(1, " port is restarting -> ignore removal");
        return;
    }
    g_pComPorts->RemovePort(devpath);
    g_pComPorts->ListPorts();
    ReadChangedConfiguration("ComPortRemoved");
    if (g_pCfgReader != nullptr && g_pSettings != nullptr && g_pSettings->ComNameArbiterClean[0] != 0) {
        CleanRegComPortArbiter(g_pSettings->ComNameArbiterClean);
    }
    KillCallbackTimer(ArrivalBalloonTimerId);
    if (!IsRemovalToBeReported(port)) {
        return;
    }
    CreateCallbackTimer(AfterRemovalMs, RemovalBalloonTimerId, static_cast<ULONG_PTR>(index),
                        ShowBalloonForPort_TimerProc, BalloonTimerName);
    DoOnArrivalRemoval_Async(port, OnRemoval, AfterRemovalMs);
}
