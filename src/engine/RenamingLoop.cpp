#include "engine/RenamingLoop.h"

#include "config/CSettings.h"
#include "engine/NumberChange.h"
#include "engine/NumberChoice.h"
#include "inventory/devices/DeviceControl.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/ComNameAvailability.h"
#include "inventory/names/NameClaims.h"
#include "inventory/names/SwapPorts.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"

constexpr DWORD CameAlongMs = 30000; // below it, a port came along with its upper device

namespace {
// Result of one wanted number.
enum class Candidate {
    Taken,        // try the next one
    IsPresent,    // the port has it already
    WasSecond,    // the device had it as a second name
    IsPartners,   // two ports want each other's numbers
    IsInRegistry, // registry changed; the device has to follow
};
} // namespace

static LONG TelitHack() {
    return g_pSettings != nullptr ? g_pSettings->TelitHack : 0;
}

static bool IsRealDevice(const CComPort* port) {
    return port != nullptr && static_cast<LONG>(port->DevInst) >= 0;
}

// Port 0 means no upper device whose restart would serve the port.
static bool ComesWithUpperDevice(const CComPort* port) {
    return port->SameParentDevInst != 0 && port->ArrivalTicker - port->SameParentArrivalTicker < CameAlongMs &&
           !IsCyclable(port);
}

static bool WouldComeToSibling(const char* name, const CComPort* port) {
    const CComPort* sibling = ComesWithUpperDevice(port) ? FindNamelessSibling(name, port) : nullptr;
    if (sibling != nullptr) {
        WriteLog(1, "%s would come to Ports[%i] with the same restart -> try next port", name, sibling->Index);
    }
    return sibling != nullptr;
}

// From the mildest means to the hardest: the name that the port has, a name that is free or only looks taken, the next
// number, one of two names, a swap, a stray name. In another order a port could lose its number without need.
static Candidate TryCandidate(Assignment* check, LONG i) QM_REQUIRES(CS_assign) {
    CComPort* port = check->port;
    const char* name = check->newPortNames[i];
    if (HasNumber(port, check->newPorts[i])) {
        KeepPresentNumber(port);
        return Candidate::IsPresent;
    }
    // Not even the last candidate is exempt: the port that waits for its next start would come back without a name.
    if (const CComPort* holder = FindAwaitedHolder(name, port)) {
        WriteLog(1, "%s waits for the restart of Ports[%i] -> try next port", name, holder->Index);
        return Candidate::Taken;
    }
    // Must precede the table test, which would take that port for dead.
    if (WouldComeToSibling(name, port)) {
        return Candidate::Taken;
    }
    MarkNamelessHolders(name, port);
    const bool isTableFree = g_pComPorts->IsComPortNameAvailable(name) != 0;
    const bool isLast = i == check->newPortCount - 1;
    if (!isTableFree && !isLast) {
        WriteLog(1, "-> try next port");
        return Candidate::Taken;
    }
    while (!IsComPortNameAvailable(name)) {
        WriteLog(4, "TelitHack=%u", static_cast<DWORD>(TelitHack()));
        char target[DosTargetSize];
        if (port->szKernelNameCom[0] == 0 || !QueryDosName(name, target)) {
            return Candidate::Taken;
        }
        // A link left by an earlier driver may lead to a device that took over its kernel name; that device's record
        // then says who owns the wanted name.
        if (lstrcmpA(target, port->szKernelNameCom) == 0 && !port->HasCopiedName &&
            !IsLinkOfAnother(port, name, target)) {
            KeepWantedOfTwoNames(port, name);
            return Candidate::WasSecond;
        }
        check->nameHolder = g_pComPorts->FindPortByComPort(name);
        if (IsRealDevice(check->nameHolder)) {
            return DoPortsWantEachOther(*check) ? Candidate::IsPartners : Candidate::Taken;
        }
        if (!isTableFree || !TelitHack()) {
            return Candidate::Taken;
        }
        WriteLog(1, "%s is present but should not. TelitHack=1 -> delete it...", name);
        if (!DeleteStrayDosName(name)) {
            return Candidate::Taken;
        }
    }
    // The link just deleted may have been left behind by its driver.
    return !WouldComeToSibling(name, port) && WriteNewNumber(check, name) ? Candidate::IsInRegistry : Candidate::Taken;
}

// The registry holds the new number; the device follows, at once, later or by its DOS name alone.
static AssignmentOutcome BringDeviceToName(Assignment* check, const char* name) QM_REQUIRES(CS_assign) {
    CComPort* port = check->port;
    UpdateRegistryName(check, name);
    if (check->quickAndDirty != 0 && check->szOldKernelName[0] != 0) {
        const bool isMoved = MoveDosName(check, name);
        port->PortChangeDone = 1;
        return isMoved ? AssignmentOutcome::Changed : AssignmentOutcome::Incomplete;
    }
    if (ComesWithUpperDevice(port)) {
        WriteLog(1, "port came along with an upper device -> restart this later");
        PutOffRestart(port);
        NoteRivalForOldName(*check);
    } else if (RestartForNewNumber(port)) {
        WaitForNewName(port);
        if (!DeleteOldName(*check)) {
            RestartIfNameLeftWithPort(*check);
        }
        RestoreOtherPortsName(check->nameHolder);
        if (check->nameHolder != check->registryHolder) {
            // The loop replaced it when it met a candidate's link, but the deletion took the link of the former one.
            RestoreOtherPortsName(check->registryHolder);
        }
    }
    CleanDeviceMap(*check);
    port->PortChangeDone = 1;
    return AssignmentOutcome::Changed;
}

// Returns: the outcome of the first number that is not taken. result: the check's, unless two ports are to swap.
static Candidate TryCandidates(Assignment* check, AssignmentOutcome* result) QM_REQUIRES(CS_assign) {
    *result = AssignmentOutcome::Unchanged;
    for (LONG i = 0; i < check->newPortCount; ++i) {
        const Candidate outcome = TryCandidate(check, i);
        if (outcome == Candidate::Taken) {
            continue;
        }
        if (outcome == Candidate::WasSecond) {
            *result = AssignmentOutcome::Changed;
        } else if (outcome == Candidate::IsInRegistry) {
            *result = BringDeviceToName(check, check->newPortNames[i]);
        }
        return outcome;
    }
    return Candidate::Taken;
}

AssignmentOutcome RenamePort(Assignment* check) {
    AssignmentOutcome result = AssignmentOutcome::Unchanged;
    Candidate outcome;
    {
        LockGuard assign(CS_assign);
        outcome = TryCandidates(check, &result);
    }
    if (outcome != Candidate::IsPartners) {
        return result;
    }
    result = SwapPortNumbers(check->port, check->nameHolder);
    TakeNameOfRunningPort(check->port);
    TakeNameOfRunningPort(check->nameHolder);
    // Neither arrival sets its bit, since both are skipped, and an unfinished swap may leave either name in use.
    ComNameArbiterAddByName(check->port->szRegPortName);
    ComNameArbiterAddByName(check->nameHolder->szRegPortName);
    check->port->PortChangeDone = 1;
    check->nameHolder->PortChangeDone = 1;
    return result;
}
