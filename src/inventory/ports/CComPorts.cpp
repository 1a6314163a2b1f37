#include "inventory/ports/CComPorts.h"

#include "config/CSettings.h"
#include "inventory/devices/DevicePaths.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/NameClaims.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

CComPorts* g_pComPorts;

constexpr LONG PortCountForWideIndex = 10;

namespace {
// Searches one text in the same field of many records, ignoring case as lstrcmpiA does. That call uses the locale's
// tables, and a full table is searched once for each port: so texts that plainly differ at one place are rejected
// without it, and the place where the last candidate differed is compared first, since ids of one kind differ late.
class FieldSearch {
public:
    explicit FieldSearch(const char* wanted) : m_wanted(wanted) {}

    // field: an array of the same size each time; what follows a text's end does no harm, since the text then differs.
    bool Matches(const char* field) {
        if (DifferPlainly(field[m_lastDifference], m_wanted[m_lastDifference])) {
            return false;
        }
        size_t at = 0;
        while (field[at] == m_wanted[at]) {
            if (m_wanted[at] == '\0') {
                return true;
            }
            ++at;
        }
        m_lastDifference = at;
        return !DifferPlainly(field[at], m_wanted[at]) && lstrcmpiA(field, m_wanted) == 0;
    }

private:
    const char* m_wanted;
    size_t m_lastDifference = 0;
};
} // namespace

// The name first: for a record without it a single memory access is enough.
static bool HoldsName(const CComPort* port, FieldSearch* name) {
    return port != nullptr && name->Matches(port->szRegPortName) && port->IsUsed && port->IsPresent;
}

static LONGLONG CompareByLocation(const CComPort* a, const CComPort* b) {
    const DWORD common = CountSameStart(a->Location, b->Location);
    const char* restA = a->Location + common;
    const char* restB = b->Location + common;
    const int numberA = StrToIntA(restA);
    const int numberB = StrToIntA(restB);
    if (numberA != numberB) {
        return numberA < numberB ? -1 : 1;
    }
    return lstrcmpA(restA, restB);
}

CComPorts::CComPorts() {
    InitializeCriticalSection(&CS_slots);
}

CComPorts::~CComPorts() {
    ClearPorts();
    DeleteCriticalSection(&CS_slots);
}

void CComPorts::ClearPorts() {
    PortCount = 0;
    for (CComPort*& port : Ports) {
        delete port;
        port = nullptr;
    }
}

int CComPorts::FindPortIdxByDevInst(DWORD devInst) const {
    for (LONG i = 0; i < PortCount; ++i) {
        const CComPort* port = Ports[i];
        if (port != nullptr && port->IsUsed && port->DevInst == devInst) {
            return static_cast<int>(i);
        }
    }
    return NoPort;
}

int CComPorts::FindFreePortSlot() const {
    for (int slot = 0; slot < MaxPorts; ++slot) {
        if (Ports[slot] == nullptr || !Ports[slot]->IsUsed) {
            return slot;
        }
    }
    return NoPort;
}

int CComPorts::FindSlotOfLongestAbsent() const {
    int longest = NoPort;
    DWORD longestMs = 0;
    for (LONG i = 0; i < PortCount; ++i) {
        CComPort* port = Ports[i];
        if (port == nullptr || port->IsPresent || port->MarkedForRestart || IsRestartAwaited(port) ||
            IsOwnRestart(port)) {
            continue;
        }
        const DWORD absentMs = GetTickCount() - port->RemovalTicker;
        // A record may be absent because its name was gone, while its port runs.
        if ((longest == NoPort || absentMs > longestMs) &&
            (!IsRealDevInst(port->DevInst) || GetProblem(port->DevInst) == ProblemPhantom)) {
            longest = static_cast<int>(i);
            longestMs = absentMs;
        }
    }
    return longest;
}

int CComPorts::FindPortIdxByDevicePath(const char* devicePath) const {
    if (devicePath == nullptr || devicePath[0] == '\0') {
        return NoPort;
    }
    FieldSearch path(SkipPathPrefix(devicePath));
    for (LONG i = 0; i < PortCount; ++i) {
        const CComPort* port = Ports[i];
        if (port == nullptr || !port->IsUsed || port->DevPath[0] == '\0') {
            continue; // a virtual record has no path, so not even a bare prefix finds it
        }
        if (path.Matches(SkipPathPrefix(port->DevPath))) {
            return static_cast<int>(i);
        }
    }
    return NoPort;
}

CComPort* CComPorts::FindPortByComPort(const char* portName) const {
    FieldSearch name(portName);
    for (LONG i = 0; i < PortCount; ++i) {
        if (HoldsName(Ports[i], &name)) {
            return Ports[i];
        }
    }
    return nullptr;
}

int CComPorts::FindPortByComPort(const char* portName, const CComPort* skip) const {
    FieldSearch name(portName);
    for (LONG i = 0; i < PortCount; ++i) {
        const CComPort* port = Ports[i];
        if (port == skip || !HoldsName(port, &name) || port->Problem != 0 || port->HasCopiedName) {
            continue;
        }
        char target[DosTargetSize];
        if (QueryDosName(portName, target) && lstrcmpA(target, port->szKernelNameCom) == 0) {
            return static_cast<int>(i);
        }
    }
    return NoPort;
}

void CComPorts::ListPorts() const {
    WriteLog(4, "++++++++ CComPorts::ListPorts() ++++++++");
    char indexText[16];
    for (LONG i = 0; i < PortCount && LogFile_Wants(1); ++i) {
        const CComPort* port = Ports[i];
        if (port == nullptr) {
            continue;
        }
        FormatText(indexText, PortCount >= PortCountForWideIndex ? "P[%2i]" : "P[%i]", i);
        // A virtual record has no node to query; it is shown as the phantom that the query would report.
        const DWORD problem = IsRealDevInst(port->DevInst) ? GetProblem(port->DevInst) : ProblemPhantom;
        WriteLog(1,
                 "%s used=%u present=%u portreg=%-6s port=%-6s dev=%-5u id=%s dp='%s' kndp='%s', kncom='%s' svc=%s "
                 "parsvc=%s problive=%u",
                 indexText, port->IsUsed, port->IsPresent, port->szRegPortName, port->szPortName, port->DevInst,
                 port->DeviceID, port->DevPath, port->szKernelNameDevPath, port->szKernelNameCom, port->Service,
                 port->ParentService, problem);
    }
}

LONGLONG ComparePortsByPosition(const void* a, const void* b) {
    const CComPort* portA = *static_cast<const CComPort* const*>(a);
    const CComPort* portB = *static_cast<const CComPort* const*>(b);
    if (portA->UsbPortChain != portB->UsbPortChain) {
        return static_cast<LONGLONG>(portA->UsbPortChain - portB->UsbPortChain);
    }
    if (portA->Location[0] != '\0' && portB->Location[0] != '\0' && lstrcmpA(portA->Location, portB->Location) != 0) {
        return CompareByLocation(portA, portB);
    }
    return lstrcmpA(portA->DeviceID, portB->DeviceID);
}

static bool HasUsedNumber(const CComPorts* ports, LONG number) {
    for (LONG i = 0; i < ports->PortCount; ++i) {
        const CComPort* const port = ports->Ports[i];
        if (port != nullptr && port->IsUsed && port->IsPresent && port->PortNumber == number) {
            return true;
        }
    }
    return false;
}

int CComPorts::FindFreePortNumber() const {
    const LONG maxNumber = g_pSettings != nullptr ? g_pSettings->MaxPortNumber : 0;
    LONG first = 1;
    while (first <= maxNumber) {
        const LONG number = ComNameArbiterFindFree(first);
        if (number == 0 || !HasUsedNumber(this, number)) {
            return number;
        }
        first = number + 1;
    }
    return 0;
}
