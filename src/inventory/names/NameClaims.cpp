#include "inventory/names/NameClaims.h"

#include "inventory/devices/DevicePaths.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameAvailability.h"
#include "inventory/names/KnownDrivers.h"
#include "inventory/names/RestartMarks.h"
#include "support/log/LogFile.h"
#include "support/texts/StringTools.h"

constexpr LONG OverdueMs = 5000;
constexpr DWORD OwnRestartMs = 5000;

// For CComPort::AwaitedRestart. The flag is needed since an old enough tick would appear to lie ahead again.
constexpr DWORD NothingAwaited = 0;
constexpr DWORD RestartPutOff = 1;
constexpr DWORD RestartBegun = 2;
constexpr DWORD RestartOverdue = 3; // given up: the name is free for others, though the port still runs without it

// A port that shared its name at the start has none in force.
static bool IsLinkOf(const CComPort* port, const char* portName, const char* target) {
    return port->IsUsed && port->IsPresent && IsRealDevInst(port->DevInst) && !port->HasCopiedName &&
           IsSameNoCase(port->szPortName, portName) && lstrcmpA(port->szKernelNameCom, target) == 0;
}

// The present port other than `port` to which the link of the name leads, or null.
static const CComPort* FindLinkOwner(const CComPort* port, const char* portName, const char* target) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        const CComPort* other = g_pComPorts->Ports[i];
        // A record whose port was pulled out unnoticed has lost its device to the current owner of the kernel name.
        if (other != nullptr && other != port && IsLinkOf(other, portName, target) && GetProblem(other->DevInst) == 0) {
            WriteLog(3, " %s leads to the device of Ports[%i]", portName, i);
            return other;
        }
    }
    return nullptr;
}

// Is there a present port of this registry name to which the target belongs? A link to the device of a port with
// another name is that port's second name, whatever the driver.
static bool HasOwner(const char* portName, const char* target) {
    bool hasOwner = false;
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        const CComPort* port = g_pComPorts->Ports[i];
        if (port == nullptr || !port->RecordValid || !port->IsUsed || !port->IsPresent) {
            continue;
        }
        if (IsSameNoCase(port->szRegPortName, portName)) {
            hasOwner |= IsKernelNameOf(port, target);
        } else if (!port->HasCopiedName && lstrcmpA(port->szKernelNameCom, target) == 0) {
            return false;
        }
    }
    return hasOwner;
}

bool IsKernelNameOf(const CComPort* port, const char* kernelName) {
    if (kernelName[0] == '\0') {
        return false;
    }
    return lstrcmpA(kernelName, port->szKernelNameDevPath) == 0 ||
           KernelNameFitsDriver(kernelName, port->DeviceID, port->Service, port->ParentService);
}

void AwaitRestart(CComPort* port, DWORD dueTick) {
    port->AwaitedRestart = RestartPutOff;
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* other = g_pComPorts->Ports[i];
        if (other != nullptr && other->AwaitedRestart == RestartPutOff &&
            other->SameParentDevInst == port->SameParentDevInst) {
            other->AwaitedRestartTicker = dueTick;
        }
    }
}

void NoteRestartOf(DWORD sameParentDevInst) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* port = g_pComPorts->Ports[i];
        if (port != nullptr && port->AwaitedRestart == RestartPutOff && port->SameParentDevInst == sameParentDevInst) {
            port->AwaitedRestart = RestartBegun;
        }
    }
}

void EndAwaitedRestart(CComPort* port, bool isArrival) {
    if (!isArrival || port->AwaitedRestart != RestartPutOff) {
        port->AwaitedRestart = NothingAwaited;
    }
}

bool IsRestartAwaited(CComPort* port) {
    if (port->AwaitedRestart == NothingAwaited || port->AwaitedRestart == RestartOverdue) {
        return false;
    }
    if (static_cast<LONG>(GetTickCount() - port->AwaitedRestartTicker) >= OverdueMs) {
        port->AwaitedRestart = RestartOverdue;
    }
    return port->AwaitedRestart != RestartOverdue;
}

bool IsOwnRestart(const CComPort* port) {
    const char* path = SkipPathPrefix(port->DevPath);
    return (port->RestartTicker != 0 && GetTickCount() - port->RestartTicker < OwnRestartMs) ||
           (path[0] != '\0' && (IsSameNoCase(path, szRestarting1) || IsSameNoCase(path, szRestarting2)));
}

bool RunsUnderFormerName(const CComPort* port) {
    char target[DosTargetSize];
    return port->AwaitedRestart != RestartOverdue && IsRealDevInst(port->DevInst) && port->szPortName[0] != '\0' &&
           !IsSameNoCase(port->szPortName, port->szRegPortName) && QueryDosName(port->szPortName, target) &&
           IsLinkOf(port, port->szPortName, target) && GetProblem(port->DevInst) == 0;
}

const CComPort* FindAwaitedHolder(const char* portName, const CComPort* asker) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* port = g_pComPorts->Ports[i];
        if (port != nullptr && port != asker && port->IsUsed && IsSameNoCase(port->szRegPortName, portName) &&
            (IsRestartAwaited(port) || RunsUnderFormerName(port))) {
            return port;
        }
    }
    return nullptr;
}

const CComPort* FindNamelessSibling(const char* portName, const CComPort* asker) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        const CComPort* port = g_pComPorts->Ports[i];
        if (port == nullptr || port == asker || !port->IsUsed || !port->IsPresent || !IsRealDevInst(port->DevInst) ||
            port->SameParentDevInst != asker->SameParentDevInst || !IsSameNoCase(port->szRegPortName, portName) ||
            GetProblem(port->DevInst) != 0) {
            continue;
        }
        char target[DosTargetSize];
        return QueryDosName(portName, target) ? nullptr : port;
    }
    return nullptr;
}

void MarkNamelessHolders(const char* portName, const CComPort* asker) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* port = g_pComPorts->Ports[i];
        if (port == nullptr || port == asker || !port->IsUsed || !port->IsPresent || port->szPortName[0] != '\0' ||
            port->MarkedForRestart || !IsRealDevInst(port->DevInst) || !IsSameNoCase(port->szRegPortName, portName) ||
            IsRestartAwaited(port) || IsOwnRestart(port)) {
            continue;
        }
        char target[DosTargetSize];
        if (GetProblem(port->DevInst) == 0 && !QueryDosName(portName, target)) {
            WriteLog(1, "Ports[%i] has no name, and %s is about to go to Ports[%i] -> mark Ports[%i] for later restart",
                     i, portName, asker->Index, i);
            port->MarkedForRestart = 1;
        }
    }
}

void RetireVirtualRecords(const char* portName) {
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* port = g_pComPorts->Ports[i];
        if (port == nullptr || port->RecordValid || !port->IsUsed || !port->IsPresent ||
            (portName != nullptr && !IsSameNoCase(port->szRegPortName, portName))) {
            continue;
        }
        char target[DosTargetSize];
        if (!QueryDosName(port->szRegPortName, target) || HasOwner(port->szRegPortName, target)) {
            WriteLog(1, "%s has no link without a device any more -> set Port[%i].IsPresent = false",
                     port->szRegPortName, i);
            port->IsPresent = 0;
        }
    }
}

bool IsLinkOfAnother(const CComPort* port, const char* portName, const char* target) {
    return FindLinkOwner(port, portName, target) != nullptr;
}

void MarkCopiedName(CComPort* port) {
    port->HasCopiedName = 0;
    if (port->szPortName[0] == '\0' || port->szKernelNameCom[0] == '\0' ||
        lstrcmpA(port->szKernelNameCom, port->szKernelNameDevPath) == 0) {
        return;
    }
    const CComPort* owner = FindLinkOwner(port, port->szPortName, port->szKernelNameCom);
    // Of two that are read at the same time each may find the other unmarked: without an owner neither would be moved
    // away.
    port->HasCopiedName = owner != nullptr ? 1 : 0;
    if (owner != nullptr && owner->HasCopiedName) {
        port->HasCopiedName = 0;
    }
}

void PassOnLink(const CComPort* gone) {
    char target[DosTargetSize];
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        CComPort* port = g_pComPorts->Ports[i];
        if (port == nullptr || !port->IsPresent || !port->HasCopiedName ||
            !IsSameNoCase(port->szPortName, gone->szRegPortName)) {
            continue;
        }
        if (GetProblem(gone->DevInst) != 0 && QueryDosName(port->szPortName, target) &&
            lstrcmpA(target, port->szKernelNameCom) == 0 && PortDevExist(port->szPortName)) {
            port->HasCopiedName = 0;
        }
        return;
    }
}

bool IsNameOfThird(const char* portName, const CComPort* first, const CComPort* second) {
    char target[DosTargetSize];
    if (!QueryDosName(portName, target)) {
        return false;
    }
    const bool isTheirs = IsLinkOf(first, portName, target) || IsLinkOf(second, portName, target);
    for (LONG i = 0; i < g_pComPorts->PortCount; ++i) {
        const CComPort* third = g_pComPorts->Ports[i];
        if (third == nullptr || third == first || third == second || !third->IsUsed || !third->IsPresent ||
            !IsRealDevInst(third->DevInst)) {
            continue;
        }
        // Of ports that shared the name at the start, any whose driver uses such kernel names may own it.
        const bool mayBeIts =
            !isTheirs && IsSameNoCase(third->szRegPortName, portName) && IsKernelNameOf(third, target);
        if (IsLinkOf(third, portName, target) || mayBeIts) {
            WriteLog(1, "%s leads to Ports[%i] -> no swap", portName, i);
            return true;
        }
    }
    return false;
}
