// Finds the section of the configuration that applies to a port: the criteria keys of the numbered sections against the
// fields of the port's record. Used by the assignment check for ComPorts and by the actions for arrival and removal.
// Thread: any. Locks: none of its own; each read of a key takes the reader's lock, so a snapshot renewed in between can
// change the section between two keys.
#pragma once

#include "actions/SectionChoice.h" // GetFittingSectionNumber
#include "config/CCfgReader.h"
#include "platform/win32.h"

struct CComPort;

// Returns: 1 when the section has at least one criterion and the port passes each of them, else 0.
LONG TestSectionCriteria(const CComPort* port, CfgSectionType sectionType, LONG sectionNumber);
