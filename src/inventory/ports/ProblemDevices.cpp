#include "inventory/ports/ProblemDevices.h"

#include "inventory/devices/DeviceLists.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/devices/DeviceRemoval.h"
#include "inventory/devices/ProblemNumbers.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/NameClaims.h"
#include "inventory/ports/AssignmentCall.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/PortInterfaceClasses.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"

DWORD g_LastProblemDevInst;

static bool IsLeaving(DWORD problem) {
    return problem == ProblemWillBeRemoved || problem == ProblemHeldForEject;
}

int GetPortNameByDevInst(DWORD devInst, char* name, size_t sizeChars) {
    char className[64] = {};
    if (!ReadDeviceText(devInst, CM_DRP_CLASS, className) ||
        (lstrcmpiA(className, "Ports") != 0 && lstrcmpiA(className, "Modem") != 0)) {
        return 0;
    }
    char deviceId[260] = {};
    char portName[128];
    if (!ReadDeviceId(devInst, deviceId) || !GetRegPortNameByDeviceId(deviceId, portName)) {
        return 0;
    }
    CopyText(name, sizeChars, portName);
    return 1;
}

void CComPorts::FindNewProblemDevices() {
    WriteLog(3, "CComPorts::FindNewProblemDevices()...");
    for (const GUID* interfaceClass : InterfaceClassesOfPorts) {
        const DeviceList list(interfaceClass, DIGCF_DEVICEINTERFACE);
        if (list.IsValid()) {
            ScanNewProblems(list, interfaceClass);
        }
    }
}

void CComPorts::ScanNewProblems(const DeviceList& list, const GUID* interfaceClass) {
    SP_DEVICE_INTERFACE_DATA interfaceData = {};
    InterfaceDetail detail;
    for (DWORD index = 0; list.GetInterface(*interfaceClass, index, &interfaceData); ++index) {
        SP_DEVINFO_DATA device = {};
        if (!detail.Read(list.Get(), &interfaceData, &device)) {
            continue;
        }
        const DWORD problem = GetProblem(device.DevInst);
        if (problem != 0 && problem != ProblemPhantom) {
            ReactToProblem(device.DevInst, problem, detail.Path());
        }
    }
}

void CComPorts::ReactToProblem(DWORD devInst, DWORD problem, const char* devicePath) {
    const int index = FindPortIdxByDevInst(devInst);
    CComPort* port = index != NoPort ? Ports[index] : nullptr;
    if (port != nullptr) {
        if (port->Problem == problem || IsOwnRestart(port)) {
            return;
        }
        if (IsLeaving(problem)) {
            port->Problem = problem;
            return;
        }
        if (devInst != g_LastProblemDevInst) {
            // One chance to recover by itself. Problem stays, so the next scan takes the number for a new one.
            PerformDeviceSafeRemovalAndRestart(devInst);
            g_LastProblemDevInst = devInst;
            return;
        }
        port->Problem = problem;
    }
    char portName[64];
    if (!GetPortNameByDevInst(devInst, portName, sizeof(portName))) {
        return;
    }
    if (port == nullptr) {
        AddNewPort(devicePath);
        return;
    }
    CopyText(port->szRegPortName, portName);
    CheckComPortAssignment(index);
}

void CComPorts::FindRemovedProblemDevices() {
    WriteLog(3, "CComPorts::FindRemovedProblemDevices()...");
    for (LONG i = 0; i < PortCount; ++i) {
        const CComPort* port = Ports[i];
        if (port == nullptr || port->Problem == 0 || IsOwnRestart(port)) {
            continue;
        }
        const DWORD problem = GetProblem(port->DevInst);
        // A device that was gone and runs again is handled by its arrival, which may be reading it just now: it sets
        // the record present before it overwrites the old problem.
        const bool isBack = port->Problem == ProblemPhantom && problem == 0;
        if (problem != port->Problem && !isBack) {
            WriteLog(3, "P[%i] problem changed: %u -> %u", i, port->Problem, problem);
            RemovePort(port->DevPath);
        }
    }
}
