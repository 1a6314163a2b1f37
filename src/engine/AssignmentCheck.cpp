#include "engine/AssignmentCheck.h"

#include "engine/NumberChoice.h"
#include "engine/RenamingLoop.h"
#include "engine/SectionMatching.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/NameClaims.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"

constexpr LONG LowestNumber = 1;
constexpr int ComLength = 3;

// Returns: false when there is no room for a further number.
static bool TakeNumbers(CfgSectionType sectionType, LONG sectionNumber, KeyName key, DWORD* numbers, LONG* count) {
    char value[LongestPortNames + 1];
    if (g_pCfgReader->GetString(sectionType, sectionNumber, key, "", value, sizeof(value)) == 0) {
        return true;
    }
    for (const char* at = StrStrIA(value, "COM"); at != nullptr; at = StrStrIA(at, "COM")) {
        at += ComLength;
        const LONG number = StrToIntA(at);
        if (number < LowestNumber || number > HighestPortNumber) {
            continue;
        }
        if (*count == MaxNewPorts) {
            return false;
        }
        numbers[(*count)++] = static_cast<DWORD>(number);
    }
    return true;
}

// The keys are read in the order of preference.
LONG GetPortNamesFromSection(CfgSectionType sectionType, LONG sectionNumber, DWORD* numbers) {
    LONG count = 0;
    bool hasRoom = TakeNumbers(sectionType, sectionNumber, "PortNames", numbers, &count);
    for (char form = '0'; hasRoom && form <= '9'; ++form) {
        const IndexedKey key("PortName_", static_cast<DWORD>(form));
        hasRoom = TakeNumbers(sectionType, sectionNumber, key, numbers, &count);
    }
    return count;
}

AssignmentOutcome CheckComPortAssignment(int index) {
    WriteLog(1, "-------------------------");
    WriteLog(1, "CheckComPortAssignment(%i)", index);
    CComPort* port = g_pComPorts->Ports[index];
    if (port == nullptr) {
        return AssignmentOutcome::Unchanged;
    }
    WriteLog(1, " regportname='%s' portname='%s' portnum=%i kn='%s' devid='%s'", port->szRegPortName, port->szPortName,
             port->PortNumber, port->szKernelNameCom, port->DeviceID);
    if (port->DeviceID[0] == 0) {
        WriteLog(1, " not an actual device -> abort");
        return AssignmentOutcome::Unchanged;
    }
    if (!BeginsWithCom(port->szRegPortName)) {
        WriteLog(1, " does not look like a 'COM' port -> abort");
        port->PortChangeDone = 1;
        return AssignmentOutcome::Unchanged;
    }

    Assignment check = {};
    check.port = port;
    RetireVirtualRecords(port->szRegPortName);
    FindHolderOfRegistryName(&check);
    check.section = GetFittingSectionNumber(port, ComPorts);
    if (check.section == 0) {
        if (port->Problem == 0 && port->szPortName[0] != 0) {
            WriteLog(1, "no [ComPortsNN] section for this port -> no change");
            port->PortChangeDone = 1;
            return AssignmentOutcome::Unchanged;
        }
        if (port->MarkedForRestart || port->szPortName[0] == 0) {
            TakeOverLateName(port);
        }
    } else {
        WriteLog(1, "using section [%s%s]", SectionTypeName(ComPorts), SectionNumberSuffix(check.section));
        check.newPortCount = GetPortNamesFromSection(ComPorts, check.section, check.newPorts);
        if ((check.registryHolder != nullptr && check.registryHolder->Problem == 0) || port->MarkedForRestart) {
            AppendFreeNumber(&check);
        }
        if (check.newPortCount == 0) {
            WriteLog(1, "no ComPort defined in section");
            port->PortChangeDone = 1;
            return AssignmentOutcome::Unchanged;
        }
    }

    BuildNewPortNames(&check);
    if (HasNumber(port, check.newPorts[0])) {
        KeepPresentNumber(port);
        return AssignmentOutcome::Unchanged;
    }
    // A port with a conflict or a problem needs a restart: moving the name alone would hide the problem.
    if (check.registryHolder == nullptr && !port->MarkedForRestart && port->Problem == 0 &&
        port->szKernelNameCom[0] != 0) {
        check.quickAndDirty = ReadQuickMode(check);
    }
    return RenamePort(&check);
}

LONG CheckAllComPortAssignments() {
    LONG changed = 0;
    for (LONG index = 0; index < g_pComPorts->PortCount; ++index) {
        CComPort* port = g_pComPorts->Ports[index];
        if (port == nullptr || (!port->IsPresent && !port->MarkedForRestart)) {
            continue;
        }
        AssignmentOutcome result = AssignmentOutcome::Unchanged;
        {
            LockGuard assign(CS_assign);
            result = CheckComPortAssignment(index);
        }
        if (result == AssignmentOutcome::Changed) {
            ++changed;
        } else if (result == AssignmentOutcome::Unchanged) {
            KeepNumberTaken(port);
        }
        FixFriendlyName(port->szRegEnumPath, port->PortNumber);
    }
    return changed;
}

void CheckPortsTwice() {
    // A starter that gave up waiting lets events through while the table is still being built.
    if (g_pComPorts == nullptr) {
        return;
    }
    WriteLog(4, "ISVC_4");
    if (CheckAllComPortAssignments() > 0) {
        CheckAllComPortAssignments();
    }
    WriteLog(4, "ISVC_5");
}
