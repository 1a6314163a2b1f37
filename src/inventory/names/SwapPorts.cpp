#include "inventory/names/SwapPorts.h"

#include "inventory/devices/DeviceControl.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/RestartMarks.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"

// Takes both devices out, marked so that their events are ignored. After a failure neither is left out, and no mark
// remains for a device that will not come back by itself.
static bool TakeBothOut(const CComPort* first, const CComPort* second) {
    SetRestartMark(szRestarting1, SkipPathPrefix(first->DevPath));
    SetRestartMark(szRestarting2, SkipPathPrefix(second->DevPath));
    if (!SafelyRemove(first->DevInst)) {
        szRestarting1[0] = 0;
        szRestarting2[0] = 0;
        return false;
    }
    if (!SafelyRemove(second->DevInst)) {
        // The first one's arrival clears its mark; the second one never left.
        (void)RestartDev(first->DevInst);
        szRestarting2[0] = 0;
        return false;
    }
    return true;
}

static void SwapRegistry(CComPort* first, CComPort* second) {
    char firstName[sizeof(first->szRegPortName)];
    char secondName[sizeof(second->szRegPortName)];
    CopyText(firstName, first->szRegPortName);
    CopyText(secondName, second->szRegPortName);
    ChangeRegistryComPortNumber(firstName, secondName, first->szRegEnumPath, first->szRegClassPath,
                                first->szKernelNameCom);
    ChangeRegistryComPortNumber(secondName, firstName, second->szRegEnumPath, second->szRegClassPath,
                                second->szKernelNameCom);
    WriteLog(2, "update Port[%u] %s -> %s", static_cast<DWORD>(first->Index), firstName, secondName);
    WriteLog(2, "update Port[%u] %s -> %s", static_cast<DWORD>(second->Index), secondName, firstName);
    CopyText(first->szRegPortName, secondName);
    CopyText(second->szRegPortName, firstName);
}

static void TakeNameInForce(CComPort* port) {
    // The arrival that would fill the fields is ignored because of the mark.
    SetRegistryNameInForce(port, GetNumberOfPortName(port->szRegPortName) != 0);
    port->ArrivalTicker = GetTickCount();
}

AssignmentOutcome SwapPortNumbers(CComPort* first, CComPort* second) {
    WriteLog(3, "CComPorts::SwapPortNumbers(%s, %s)...", first->szRegPortName, second->szRegPortName);
    if (!TakeBothOut(first, second)) {
        return AssignmentOutcome::Incomplete;
    }
    SwapRegistry(first, second);
    // A link left behind by the drivers would keep each from making its new name. It is fine if the link is already
    // gone.
    (void)DeleteDosName(first->szPortName);
    (void)DeleteDosName(second->szPortName);
    const int firstStarted = RestartDev(first->DevInst);
    const int secondStarted = RestartDev(second->DevInst);
    if (!firstStarted || !secondStarted) {
        return AssignmentOutcome::Incomplete;
    }
    TakeNameInForce(first);
    TakeNameInForce(second);
    return AssignmentOutcome::Changed;
}
