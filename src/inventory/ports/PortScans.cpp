// Walks over the table that settle what a single device event cannot, and the removal of a port.
#include <cstring>

#include "config/CSettings.h"
#include "inventory/devices/DeviceControl.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/devices/DeviceTree.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/NameClaims.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/CreateFileTimeout.h"
#include "support/system/Handles.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

constexpr DWORD RestartingMs = 2000; // how long an absent port stays in its group after its restart
constexpr DWORD OpenPortMs = 500;
constexpr DWORD UninstallDelayMs = 5000;

constexpr int ShortestIdPart = 10;      // shorter common parts of two ids mean nothing
constexpr int FunctionNumberLength = 3; // "_00": the function of a composite device, before the last backslash

namespace {
// Records of the table in chains by a key, each chain in table order. A scan of all pairs visits only possible pairs,
// in the order of the table.
class RecordChains {
public:
    RecordChains() : m_first(Chains), m_next(MaxPorts), m_keys(MaxPorts) {
        for (int chain = 0; chain < Chains; ++chain) {
            m_first[chain] = NoPort;
        }
    }

    // From the last record of the table to the first.
    void PushFront(LONG index, DWORD key) {
        LONG& first = m_first[ChainOf(key)];
        m_keys[index] = key;
        m_next[index] = first;
        first = index;
    }

    // The first record with the key, and the next record with the same key; -1 at the end.
    LONG First(DWORD key) const { return SkipOthers(m_first[ChainOf(key)], key); }
    LONG Next(LONG index) const { return SkipOthers(m_next[index], m_keys[index]); }

private:
    static constexpr int Chains = 4096;

    static int ChainOf(DWORD key) { return static_cast<int>((key * 2654435761u) >> 20); }

    LONG SkipOthers(LONG index, DWORD key) const {
        while (index != NoPort && m_keys[index] != key) {
            index = m_next[index];
        }
        return index;
    }

    OwnedArray<LONG> m_first;
    OwnedArray<LONG> m_next;
    OwnedArray<DWORD> m_keys;
};
} // namespace

static DWORD HashOfText(const char* text) {
    DWORD hash = 2166136261u;
    for (; *text != '\0'; ++text) {
        hash = (hash ^ static_cast<BYTE>(*text)) * 16777619u;
    }
    return hash;
}

static bool ClaimsName(const CComPort* port) {
    return port != nullptr && port->IsUsed && port->IsPresent && port->szRegPortName[0] != '\0';
}

static void MarkWithoutName(CComPort* port) {
    port->MarkedForRestart = 1;
    port->szPortName[0] = '\0';
    port->PortNumber = 0;
}

static void MarkLoser(CComPort* port) {
    MarkWithoutName(port);
    port->szKernelNameCom[0] = '\0';
}

static void SettleName(CComPort* a, CComPort* b) {
    const bool aFit = IsKernelNameOf(a, a->szKernelNameCom);
    const bool bFit = IsKernelNameOf(b, b->szKernelNameCom);
    if (aFit == bFit) {
        WriteLog(1,
                 " Ports[%i] and Ports[%i] both want %s. Imposible to say who got it -> mark both for later common "
                 "restart",
                 a->Index, b->Index, a->szRegPortName);
        MarkWithoutName(a);
        MarkWithoutName(b);
        return;
    }
    CComPort* owner = aFit ? a : b;
    CComPort* loser = aFit ? b : a;
    WriteLog(1, " Ports[%i] and Ports[%i] both want %s. Ports[%i] seems to have it -> mark Ports[%i] for later restart",
             a->Index, b->Index, a->szRegPortName, owner->Index, loser->Index);
    MarkLoser(loser);
}

// A port that is just being restarted is absent for a moment and stays in its group.
static bool TakesPartInGroups(const CComPort* port, DWORD nowTick) {
    if (port == nullptr || !port->IsUsed) {
        return false;
    }
    return port->IsPresent || nowTick - port->RestartTicker < RestartingMs;
}

// length: at most that of a, so that an end of b within it is a difference.
static bool IsSameStart(const char* a, const char* b, int length) {
    return strncmp(a, b, static_cast<size_t>(length)) == 0;
}

static int FindFirst(const char* text, char c) {
    for (int i = 0; text[i] != '\0'; ++i) {
        if (text[i] == c) {
            return i;
        }
    }
    return -1;
}

static int FindLast(const char* text, char c) {
    int at = static_cast<int>(strlen(text)) - 1;
    while (at >= 0 && text[at] != c) {
        --at;
    }
    return at;
}

static void LogGroup(const CComPorts& table, const CComPort* port) {
    WriteLog(3, " Ports[%i] (%s): ", port->Index, port->szPortName);
    if (port->SameParentCount <= 1) {
        WriteLog(3, "  -");
    }
    for (LONG i = 1; i < port->SameParentCount; ++i) {
        const CComPort* member = table.Ports[port->Same[i]];
        WriteLog(3, "  Same[%u]=%s (idx=%i)", static_cast<DWORD>(i), member->szPortName, port->Same[i]);
    }
    WriteLog(3, "SameParentCount=%i", port->SameParentCount);
}

// Fills one group. Members beyond the capacity of Same are left out: they find the port in their own group.
static void GroupPort(CComPorts* table, CComPort* port, const RecordChains& chains) {
    // Built separately: another scan may fill the same record just now, and neither may rely on the other's entries.
    LONG same[MaxSame] = {port->Index};
    LONG count = 1;
    WriteLog(4, " Ports[%i] (%s) ParentDevInst=%u", port->Index, port->szPortName, port->ParentDevInst);
    WriteLog(4, " Ports[%i] (%s) SameParentDevInst=%u:", port->Index, port->szPortName, port->SameParentDevInst);
    for (LONG i = chains.First(port->SameParentDevInst); i != NoPort && count < MaxSame; i = chains.Next(i)) {
        const CComPort* other = table->Ports[i];
        if (other == port || other->SameParentDevInst != port->SameParentDevInst ||
            !CComPorts::IsSameDevice(other, port)) {
            continue;
        }
        WriteLog(4, " [%i]=%i", count, i);
        same[count] = i;
        ++count;
    }
    if (count == 1) {
        WriteLog(4, " none");
    }
    for (LONG i = 0; i < count; ++i) {
        port->Same[i] = same[i];
    }
    port->SameParentCount = count;
}

static void DeleteNameLogged(const char* portName) {
    if (DeleteDosName(portName)) {
        WriteLog(1, " DDN '%s' removed", portName);
    } else {
        WriteLog(1, " DDN remove err=%u", GetLastError());
    }
}

// The link leads to a device that has gone.
static void HandleZombieName(CComPort* port) {
    WriteLog(2, " kernelname is the expected one");
    if (port->PortChangedByDdn) {
        // Only this service knows of a name that it moved by itself, so nothing else will delete it.
        WriteLog(2, " PortChangedByDdn=1 -> remove the DosDeviceName...");
        port->PortChangedByDdn = 0;
        DeleteNameLogged(port->szRegPortName);
    } else if (g_pSettings != nullptr && g_pSettings->RemoveDosDeviceNameOnRemoval) {
        WriteLog(2, " RemoveDosDeviceNameOnRemoval=1 -> remove the DosDeviceName...");
        DeleteNameLogged(port->szRegPortName);
    } else {
        WriteLog(2, " RemoveDosDeviceNameOnRemoval=0 -> leave zombie %s behind", port->szRegPortName);
    }
}

static void CheckNameOfRemovedPort(CComPort* port) {
    char target[DosTargetSize];
    if (!QueryDosName(port->szRegPortName, target)) {
        WriteLog(1, "DosDeviceName(%s) is gone -> good", port->szRegPortName);
        return;
    }
    WriteLog(1, "DosDeviceName(%s) is kn=%s  PortChangedByDdn=%u", port->szRegPortName, target, port->PortChangedByDdn);
    // The record may have held another port's name, a newer port may have the kernel name now, or the port itself may
    // be back before its removal is handled.
    if (lstrcmpA(target, port->szKernelNameCom) != 0 || IsLinkOfAnother(port, port->szRegPortName, target) ||
        GetProblem(port->DevInst) == 0) {
        WriteLog(3, "szKnCom=%s P->szKernelNameCom=%s", target, port->szKernelNameCom);
        return;
    }
    HandleZombieName(port);
}

static void SetAbsent(CComPort* port) {
    WriteLog(1, " set Port[%i].IsPresent = false", port->Index);
    port->SetAbsent();
    port->szKernelNameDevPath[0] = '\0';
    port->HasCopiedName = 0;
    port->Problem = GetProblem(port->DevInst);
    port->RemovalTicker = GetTickCount();
    port->ChangePortTicker = 0;
}

static bool IsOnUsb(const CComPort* port) {
    return port->BusTypeName != nullptr && lstrcmpA(port->BusTypeName, BusTypeNames[BusUsb]) == 0;
}

static void UninstallAsConfigured(const CComPort* port) {
    if (g_pSettings == nullptr) {
        return;
    }
    if (g_pSettings->RemovePortDeviceOnRemoval) {
        UninstallDeviceByDevInstDelayed(port->DevInst, UninstallDelayMs);
    }
    if (g_pSettings->RemoveUsbDeviceOnRemoval && IsOnUsb(port) && !HasWorkingChild(port->ParentDevInst)) {
        UninstallDeviceByDevInstDelayed(port->ParentDevInst, UninstallDelayMs);
    }
}

void CComPorts::ScanSamePorts() {
    RecordChains chains;
    for (LONG i = PortCount - 1; i >= 0; --i) {
        if (ClaimsName(Ports[i])) {
            chains.PushFront(i, HashOfText(Ports[i]->szRegPortName));
        }
    }
    for (LONG i = 0; i < PortCount; ++i) {
        CComPort* a = Ports[i];
        if (!ClaimsName(a)) {
            continue;
        }
        for (LONG k = chains.First(HashOfText(a->szRegPortName)); k != NoPort; k = chains.Next(k)) {
            CComPort* b = Ports[k];
            if (b != a && lstrcmpA(a->szRegPortName, b->szRegPortName) == 0) {
                SettleName(a, b);
            }
        }
    }
}

void CComPorts::ScanSameParents() {
    WriteLog(4, "CComPorts::ScanSameParents()");
    const DWORD nowTick = GetTickCount();
    RecordChains chains;
    for (LONG i = PortCount - 1; i >= 0; --i) {
        if (TakesPartInGroups(Ports[i], nowTick)) {
            chains.PushFront(i, Ports[i]->SameParentDevInst);
        }
    }
    for (LONG i = 0; i < PortCount; ++i) {
        if (TakesPartInGroups(Ports[i], nowTick)) {
            GroupPort(this, Ports[i], chains);
        }
    }
    if (g_log.LogLevel != 3) {
        return;
    }
    WriteLog(3, "SameParents...");
    for (LONG i = 0; i < PortCount; ++i) {
        if (TakesPartInGroups(Ports[i], nowTick)) {
            LogGroup(*this, Ports[i]);
        }
    }
}

void CComPorts::DeleteNotFoundPorts() {
    WriteLog(4, "CComPorts::DeleteNotFoundPorts()");
    for (LONG i = 0; i < PortCount; ++i) {
        const CComPort* port = Ports[i];
        if (port == nullptr || port->szPortName[0] == '\0') {
            continue; // no DOS name in force, none to delete
        }
        char path[sizeof(port->szPortName) + 8];
        FormatText(path, "\\\\.\\%s", port->szPortName);
        const OwnedFile handle(CreateFileTimeout(path, /*access=*/0, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING,
                                                 /*flags=*/0, OpenPortMs));
        if (handle) {
            continue;
        }
        const DWORD error = GetLastError();
        if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
            continue; // a program may have it open, or it hangs: the device is there
        }
        WriteLog(1, "%s ERROR_FILE_NOT_FOUND -> delete dos device:", path);
        if (DeleteDosName(port->szPortName)) {
            WriteLog(1, " ok");
        } else {
            WriteLog(1, " err=%s", LastErrorName());
        }
    }
    RetireVirtualRecords(nullptr);
}

int CComPorts::RemovePort(const char* devicePath) {
    WriteLog(1, "RemovePort(%s)", devicePath != nullptr ? devicePath : "");
    const int index = FindPortIdxByDevicePath(devicePath);
    if (index == NoPort) {
        WriteLog(1, "not found");
        return NoPort;
    }
    CComPort* port = Ports[index];
    PassOnLink(port);
    CheckNameOfRemovedPort(port);
    SetAbsent(port);
    UninstallAsConfigured(port);
    return index;
}

int CComPorts::IsSameDevice(const CComPort* x, const CComPort* y) {
    const int commonLength = FindLast(x->DeviceID, '\\') - FunctionNumberLength;
    if (commonLength < ShortestIdPart) {
        return 0;
    }
    if (IsSameStart(x->DeviceID, y->DeviceID, commonLength)) {
        return 1;
    }
    // Ids that hold a GUID continue after it with a part that differs from port to port.
    const int braceAt = FindFirst(x->DeviceID, '}');
    return braceAt >= ShortestIdPart && IsSameStart(x->DeviceID, y->DeviceID, braceAt) ? 1 : 0;
}
