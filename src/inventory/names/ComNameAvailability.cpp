#include "inventory/names/ComNameAvailability.h"

#include "inventory/devices/DevicePaths.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/NameClaims.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/CreateFileTimeout.h"
#include "support/system/Handles.h"
#include "support/texts/BoundedText.h"

constexpr DWORD OpenTimeoutMs = 500;

// ERROR_NO_SUCH_DEVICE, which older headers lack: a driver's answer for a device that has left.
constexpr DWORD NoSuchDevice = 433;

namespace {
// What a record claims, and what is true at this moment.
struct LiveState {
    DWORD Problem;
    int DosNameExists;
    char KernelName[DosTargetSize];
};
} // namespace

static void ReadLiveState(const CComPort* port, LiveState* live) {
    // The DevInst of a virtual record is a number of our own, which must never reach the configuration manager.
    live->Problem = IsRealDevInst(port->DevInst) ? GetProblem(port->DevInst) : 0;
    live->DosNameExists = QueryDosName(port->szRegPortName, live->KernelName);
}

static void LogRecord(int index, const CComPort* port, const LiveState* live) {
    WriteLog(3,
             " P[%i] used=%u present=%u portreg=%-6s port=%-6s dev=%u id=%s dp='%s' kndp='%s', kncom='%s' svc=%s "
             "parsvc=%s problive=%u ddnpresent=%u knlive='%s'",
             index, port->IsUsed, port->IsPresent, port->szRegPortName, port->szPortName, port->DevInst, port->DeviceID,
             port->DevPath, port->szKernelNameDevPath, port->szKernelNameCom, port->Service, port->ParentService,
             live->Problem, static_cast<DWORD>(live->DosNameExists), live->KernelName);
}

static void SetAbsent(CComPort* port, DWORD problem) {
    port->Problem = problem;
    port->SetAbsent();
}

int IsComPortNameAvailable(const char* name) {
    WriteLog(1, "IsComPortNameAvailable(%s)...", name);
    char target[DosTargetSize];
    if (!QueryDosName(name, target)) {
        WriteLog(1, " yes (QueryDosDevice(%s) failed with err=%s)", name, LastErrorName());
        return 1;
    }
    if (PortDevExist(name)) {
        WriteLog(1, " no, in use by %s", target);
        return 0;
    }
    WriteLog(1, " no, in use by %s but device %s not found", target, name);
    WriteLog(1, " -> delete zombie symlink %s -> %s", name, target);
    if (!DeleteDosName(name)) {
        WriteLog(1, "  err=%s", LastErrorName());
        return 0;
    }
    WriteLog(1, "  OK -> is available now");
    return 1;
}

int PortDevExist(const char* name) {
    WriteLog(1, "PortDevExist(%s)...", name);
    char path[260];
    FormatText(path, "\\\\.\\%s", name);
    OwnedFile port(
        CreateFileTimeout(path, /*access=*/0, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0, OpenTimeoutMs));
    int res = 1;
    if (port) {
        port.Reset();
    } else {
        const DWORD error = GetLastError();
        res = error != ERROR_FILE_NOT_FOUND && error != NoSuchDevice;
    }
    WriteLog(1, " res=%u", static_cast<DWORD>(res));
    return res;
}

int CComPorts::IsComPortNameAvailable(const char* portName) {
    WriteLog(3, "CComPorts::IsComPortNameAvailable(%s)...", portName);
    for (int i = 0; i < PortCount; ++i) {
        CComPort* const port = Ports[i];
        if (port == nullptr) {
            continue;
        }
        const bool claims = port->IsUsed && port->IsPresent &&
                            (SameText(port->szPortName, portName) || SameText(port->szRegPortName, portName));
        // The other records are checked for the log alone.
        if (!claims && !LogFile_Wants(3)) {
            continue;
        }
        LiveState live;
        ReadLiveState(port, &live);
        LogRecord(i, port, &live);
        if (!claims) {
            continue;
        }
        if (live.Problem == 0 && live.DosNameExists) {
            WriteLog(3, " used by Ports[%i] id=%s kn=%s", i, port->DeviceID, live.KernelName);
            return 0;
        }
        if (IsRestartAwaited(port) || RunsUnderFormerName(port)) {
            continue; // its link is missing because it gets the name at its next start, not because it is dead
        }
        if (live.Problem != 0) {
            WriteLog(1, "unexpected problem=%u -> set Port[%i].IsPresent = false", live.Problem, i);
            SetAbsent(port, live.Problem);
        } else {
            WriteLog(1, "unexpected gone ddn -> set Port[%i].IsPresent = false", i);
            SetAbsent(port, 0);
        }
    }
    WriteLog(3, " seems available");
    return 1;
}
