// The central decision: which COM number a port must have, and how it gets there. Called for a port that arrives, for
// the whole table at start-up and on resume, and for a port with a new device problem.
// CheckComPortAssignment itself is declared in inventory/ports/AssignmentCall.h, since the scan of problem devices
// calls it. Thread: any. Locks: the caller's (CS_main, CS_assign or none); the renaming itself runs inside CS_assign.
#pragma once

#include "config/CCfgReader.h"
#include "inventory/ports/AssignmentCall.h"
#include "platform/win32.h"

constexpr LONG MaxNewPorts = MostPortNumbers;

// The numbers that the section's port names want, in order of preference, into `numbers` of MaxNewPorts elements;
// elements beyond the count are unchanged.
// Returns: their count, 0 to 256.
LONG GetPortNamesFromSection(CfgSectionType sectionType, LONG sectionNumber, DWORD* numbers);

// Checks every present or marked record of the table, each under CS_assign. Blocks for as long as the restarts take.
// Returns: the number of ports whose number was changed.
LONG CheckAllComPortAssignments();

// Checks all ports, and once more if that changed something: a port further down the table may have freed a number
// that a port earlier in the table wanted.
// Thread: the initialisation's, or the dispatcher's on a resume. Locks: takes CS_assign for each port.
void CheckPortsTwice();
