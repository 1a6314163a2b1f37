#include "inventory/devices/DeviceRestart.h"

#include "inventory/devices/ClassInstaller.h"
#include "inventory/devices/DeviceLists.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/names/ComPortNumber.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/OsVersion.h"

constexpr char WaitAnnouncement[] = "CM_WaitNoPendingInstallEvents(5000)...";
constexpr char BareWaitAnnouncement[] = "CM_WaitNoPendingInstallEvents()";

// Problem numbers with which the class installer can start a device.
constexpr DWORD NoProblem = 0;
constexpr DWORD WillBeRemoved = 21;
constexpr DWORD Disabled = 22;

constexpr int MinPathLength = 5;

// The search shared by both restarts of a port: passes each COM port interface with the port's path to `restart` until
// that returns true. A port that offers only the modem interface is not found.
template<typename Restart>
static int RestartByInterface(const CComPort* port, Restart restart) {
    const DeviceList list(&interface_class::ComPort, DIGCF_DEVICEINTERFACE);
    if (!list.IsValid()) {
        WriteLog(1, "SetupDiClassDevs() failed  err=%u", GetLastError());
        return 0;
    }
    SP_DEVICE_INTERFACE_DATA interfaceData;
    InterfaceDetail detail;
    for (DWORD index = 0; list.GetInterface(interface_class::ComPort, index, &interfaceData); ++index) {
        SP_DEVINFO_DATA device;
        if (!detail.Read(list.Get(), &interfaceData, &device) || !IsSameDevicePath(detail.Path(), port->DevPath)) {
            continue;
        }
        if (restart(list.Get(), &device)) {
            return 1;
        }
    }
    return 0;
}

// A property change; each of its two calls is logged.
static bool ChangePropertyLogged(HDEVINFO list, SP_DEVINFO_DATA* device) {
    WriteLog(1, "SetupDiSetClassInstallParams(DIF_PROPERTYCHANGE)...");
    const int paramsSet = SetStateChange(list, device, DICS_PROPCHANGE);
    WriteLog(1, " res=%u", static_cast<DWORD>(paramsSet));
    int changed = 0;
    if (paramsSet) {
        WriteLog(1, "SetupDiCallClassInstaller(DIF_PROPERTYCHANGE)...");
        changed = CallPropertyChange(list, device);
        WriteLog(1, " res=%u", static_cast<DWORD>(changed));
    }
    if (!changed) {
        WriteLog(1, " err=%s", LastErrorName());
    }
    return changed != 0;
}

// Starts the device through the configuration manager. The result is that of the last of the three set-ups.
static int RestartBySetup(DWORD devInst) {
    constexpr ULONG Setups[] = {CM_SETUP_DEVNODE_READY, CM_SETUP_DEVNODE_RESET, CM_SETUP_PROP_CHANGE};
    CONFIGRET cret = CR_SUCCESS;
    for (const ULONG setup : Setups) {
        cret = CM_Setup_DevNode(devInst, setup);
    }
    if (cret != CR_SUCCESS) {
        // A last attempt. Its success shows at the device's next arrival, not here.
        (void)CM_Reenumerate_DevNode_Ex(devInst, /*flags=*/0, /*machine=*/nullptr);
        (void)PerformDeviceCmDisableEnable(devInst);
    }
    WriteLog(1, "CM_Setup_DevNode cret=%s", ConfigRetName(cret));
    return cret == CR_SUCCESS;
}

int PerformComPortPropertyChange(CComPort* port) {
    WriteLog(1, "PerformComPortPropertyChange(%u)", port->DevInst);
    if (lstrlenA(port->DevPath) < MinPathLength) {
        WriteLog(1, " error, no devicepath -> abort");
        FATAL_SOFT("DeviceRestart", "PerformComPortPropertyChange");
        return 0;
    }
    WaitForPendingInstalls(WaitAnnouncement);
    return RestartByInterface(port, [port](HDEVINFO list, SP_DEVINFO_DATA* device) {
        if (device->DevInst != port->DevInst) {
            return false;
        }
        // Set before the installer is called: the removal that it causes arrives while the call is still running.
        port->MarkedForRestart = 0;
        port->RestartTicker = GetTickCount();
        if (!ChangePropertyLogged(list, device)) {
            return false;
        }
        port->ChangePortTicker = GetTickCount();
        SetRegistryNameInForce(port, BeginsWithCom(port->szRegPortName));
        return true;
    });
}

int PerformComPortDisableEnable(CComPort* port) {
    WriteLog(1, "PerformComPortDisableEnable(%s)", port->DevPath);
    if (lstrlenA(port->DevPath) < MinPathLength) {
        return 0;
    }
    return RestartByInterface(port, [port](HDEVINFO list, SP_DEVINFO_DATA* device) {
        // Its removal and its temporary problem are seen while the calls are still running.
        port->RestartTicker = GetTickCount();
        if (!ChangeDeviceState(list, device, DICS_DISABLE) || !ChangeDeviceState(list, device, DICS_ENABLE)) {
            WriteLog(1, "failed  err=%s", LastErrorName());
            return false;
        }
        WriteLog(1, "ok");
        port->ChangePortTicker = GetTickCount();
        return true;
    });
}

int PerformDeviceCmDisableEnable(DWORD devInst) {
    WriteLog(1, "PerformDeviceCmDisableEnable(%u)", devInst);
    WaitForPendingInstalls(BareWaitAnnouncement);
    CONFIGRET cret = CM_Disable_DevNode(devInst, /*flags=*/0);
    WriteLog(2, " CM_Disable_DevNode(%u)  cret=%u", devInst, cret);
    if (cret != CR_SUCCESS) {
        return 0;
    }
    cret = CM_Enable_DevNode(devInst, /*flags=*/0);
    WriteLog(2, " CM_Enable_DevNode(%u)  cret=%u", devInst, cret);
    return cret == CR_SUCCESS;
}

int PerformDevicePropertyChange(DWORD devInst) {
    char deviceId[260] = {};
    if (!ReadDeviceId(devInst, deviceId)) {
        return 0;
    }
    WriteLog(1, "PerformDevicePropertyChange(%s)", deviceId);
    WaitForPendingInstalls(WaitAnnouncement);
    const DeviceList list(nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT);
    if (!list.IsValid()) {
        WriteLog(1, "SetupDiClassDevs() failed  err=%u", GetLastError());
        return 0;
    }
    SP_DEVINFO_DATA device;
    for (DWORD index = 0; list.GetDevice(index, &device); ++index) {
        char listedId[260] = {};
        if (!ReadDeviceId(device.DevInst, listedId) || lstrcmpiA(listedId, deviceId) != 0) {
            continue;
        }
        if (ChangeDeviceState(list.Get(), &device, DICS_PROPCHANGE)) {
            WriteLog(1, "ok");
            return 1;
        }
        WriteLog(1, "failed  err=%s", LastErrorName());
    }
    return 0;
}

int RestartDev(DWORD devInst) {
    // Absent devices too: a device that was taken out is not present.
    const DeviceList list(nullptr, DIGCF_ALLCLASSES);
    SP_DEVINFO_DATA device;
    char deviceId[260] = {};
    if (!list.IsValid() || !list.FindDevice(devInst, &device) || !ReadDeviceId(devInst, deviceId)) {
        return 0;
    }
    const DWORD problem = GetProblem(devInst);
    WriteLog(1, "RestartDev id=%s  Problem=%u", deviceId, problem);
    if (g_os.IsWow64 || (problem != NoProblem && problem != WillBeRemoved && problem != Disabled)) {
        return RestartBySetup(devInst);
    }
    const int res = ChangeDeviceState(list.Get(), &device, problem == Disabled ? DICS_ENABLE : DICS_PROPCHANGE);
    WriteLog(1, "DIF_PROPERTYCHANGE %s", ResultText(res));
    return res;
}
