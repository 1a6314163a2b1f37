#include "inventory/devices/DeviceRemoval.h"

#include "inventory/devices/ClassInstaller.h"
#include "inventory/devices/DeviceLists.h"
#include "inventory/devices/DevicePaths.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ThreadTools.h"

constexpr DWORD WillBeRemoved = 21;
constexpr DWORD DeviceNotThere = 24;
constexpr DWORD VetoNameSize = 260; // characters
constexpr DWORD DelayStepMs = 1000;

static_assert(sizeof(SP_REMOVEDEVICE_PARAMS) == 16);

namespace {
// What a delayed uninstall works on; its thread owns it.
struct DelayedUninstall {
    DWORD DevInst;
    DWORD DelayMs;
};
} // namespace

// A node that cannot be queried any more has the problem number of a phantom, as elsewhere.
static CONFIGRET ReadProblem(DWORD devInst, ULONG* status, ULONG* problem) {
    *status = 0;
    *problem = 0;
    const CONFIGRET cret = CM_Get_DevNode_Status(status, problem, devInst, /*flags=*/0);
    if (cret != CR_SUCCESS) {
        *problem = ProblemPhantom;
    }
    return cret;
}

static CONFIGRET RemoveSubTree(DWORD devInst, LONG level) {
    PNP_VETO_TYPE vetoType = PNP_VetoTypeUnknown;
    WCHAR vetoName[VetoNameSize] = {};
    const CONFIGRET cret =
        CM_Query_And_Remove_SubTreeW(devInst, &vetoType, vetoName, VetoNameSize, CM_REMOVE_NO_RESTART);
    WriteLog(level, "CM_Query_And_Remove_SubTree(%u)  cret=%s vetotype=%s", devInst, ConfigRetName(cret),
             VetoTypeName(static_cast<DWORD>(vetoType)));
    return cret;
}

static void RequestEject(DWORD devInst) {
    WriteLog(3, "CM_Request_Device_Eject(%u)...", devInst);
    PNP_VETO_TYPE vetoType = PNP_VetoTypeUnknown;
    WCHAR vetoName[VetoNameSize] = {};
    const CONFIGRET cret = CM_Request_Device_EjectW(devInst, &vetoType, vetoName, VetoNameSize, /*flags=*/0);
    WriteLog(3, "CM_Request_Device_Eject(%u)  cret=%s vetotype=%s", devInst, ConfigRetName(cret),
             VetoTypeName(static_cast<DWORD>(vetoType)));
}

static int RemoveDevice(HDEVINFO list, SP_DEVINFO_DATA* device) {
    SP_REMOVEDEVICE_PARAMS params = {};
    params.ClassInstallHeader.cbSize = sizeof(params.ClassInstallHeader);
    params.ClassInstallHeader.InstallFunction = DIF_REMOVE;
    params.Scope = DI_REMOVEDEVICE_GLOBAL;
    params.HwProfile = 0;
    // Without parameters the removal takes its defaults, which name the same device.
    (void)SetupDiSetClassInstallParamsA(list, device, &params.ClassInstallHeader, sizeof(params));
    const int res = SetupDiRemoveDevice(list, device) ? 1 : 0;
    WriteLog(3, " SetupDiRemoveDevice(%u)  res=%u", device->DevInst, static_cast<DWORD>(res));
    return res;
}

// Returns: false when the service is to stop before the delay is over.
static bool WaitDelay(DWORD delayMs) {
    const DWORD startTicks = GetTickCount();
    while (GetTickCount() - startTicks < delayMs) {
        Sleep(DelayStepMs);
        if (g_StopRequested) {
            return false;
        }
    }
    return true;
}

static void UninstallAfterDelay(const DelayedUninstall* request) {
    if (!WaitDelay(request->DelayMs)) {
        return;
    }
    const DWORD devInst = request->DevInst;
    ULONG status = 0;
    ULONG problem = 0;
    const CONFIGRET cret = ReadProblem(devInst, &status, &problem);
    WriteLog(3, "CM_Get_DevNode_Status(%i) cret=%s Status=%s Problem=%i", static_cast<LONG>(devInst),
             ConfigRetName(cret), DevNodeStatusName(status), static_cast<LONG>(problem));
    if (problem == 0) {
        WriteLog(3, "devinst %u is present -> do not uninstall", devInst);
    } else {
        (void)UninstallDeviceByDevInst(devInst);
    }
}

int SafelyRemove(DWORD devInst) {
    WriteLog(3, "SafelyRemove(%u)", devInst);
    ULONG status = 0;
    ULONG problemBefore = 0;
    CONFIGRET cret = ReadProblem(devInst, &status, &problemBefore);
    if (cret != CR_SUCCESS) {
        WriteLog(3, "CM_Get_DevNode_Status cret=%s", ConfigRetName(cret));
        return 0;
    }
    WriteLog(3, "CM_Get_DevNode_Status prob=%s", ProblemName(problemBefore));
    WriteLog(3, "CM_Query_And_Remove_SubTree(%u)...", devInst);
    if (RemoveSubTree(devInst, /*level=*/3) != CR_SUCCESS) {
        return 0;
    }
    ULONG problem = 0;
    cret = ReadProblem(devInst, &status, &problem);
    WriteLog(3, "CM_Get_DevNode_Status  cret=%s  prob=%s", ConfigRetName(cret), ProblemName(problem));
    if (problem != problemBefore) {
        return 1;
    }
    // The device agreed and kept running. An eject may still bring it down, but it is unknown when, so it does not
    // count.
    WriteLog(3, "Problem is still %s -> try CM_Request_Device_Eject", ProblemName(problem));
    RequestEject(devInst);
    return 0;
}

int PerformDeviceSafeRemovalAndRestart(DWORD devInst) {
    WriteLog(1, "PerformDeviceSafeRemovalAndRestart(%u)", devInst);
    WaitForPendingInstalls("CM_WaitNoPendingInstallEvents()");
    if (RemoveSubTree(devInst, /*level=*/1) != CR_SUCCESS) {
        return 0;
    }
    ULONG status = 0;
    ULONG problem = 0;
    CONFIGRET cret = ReadProblem(devInst, &status, &problem);
    WriteLog(1, "CM_Get_DevNode_Status  cret=%s  prob=%s", ConfigRetName(cret), ProblemName(problem));
    if (problem != WillBeRemoved && problem != DeviceNotThere) {
        return 0;
    }
    cret = CM_Setup_DevNode(devInst, CM_SETUP_DEVNODE_READY);
    WriteLog(1, "CM_Setup_DevNode(%u)  cret=%s", devInst, ConfigRetName(cret));
    return cret == CR_SUCCESS;
}

int UninstallDeviceByDevInst(DWORD devInst) {
    WriteLog(3, "UninstallDeviceByDevInst(%u)", devInst);
    const DeviceList list(nullptr, DIGCF_ALLCLASSES);
    if (!list.IsValid()) {
        WriteLog(2, "SetupDiGetClassDevs res=INVALID_HANDLE_VALUE -> abort");
        return 0;
    }
    SP_DEVINFO_DATA device;
    const int res = list.FindDevice(devInst, &device) ? RemoveDevice(list.Get(), &device) : 0;
    WriteLog(3, " res=%u", static_cast<DWORD>(res));
    return res;
}

void UninstallDeviceByDevInstDelayed(DWORD devInst, DWORD delayMs) {
    WriteLog(3, "UninstallDeviceByDevInstDelayed(%u, %u)", devInst, delayMs);
    Owned<DelayedUninstall> request(new DelayedUninstall{devInst, delayMs});
    if (StartThreadLogged("UninstallDeviceByDevInstDelayed_ThreadProc", UninstallDeviceByDevInstDelayed_ThreadProc,
                          request.Get())) {
        (void)request.Release();
    }
}

DWORD WINAPI UninstallDeviceByDevInstDelayed_ThreadProc(void* param) {
    const Owned<DelayedUninstall> request(static_cast<DelayedUninstall*>(param));
    UninstallAfterDelay(request.Get());
    return 0;
}
