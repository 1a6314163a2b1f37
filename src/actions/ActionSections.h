// The programs that the administrator wants to run when a port arrives or leaves: the sections [OnArrival...] and
// [OnRemoval...]. A section runs on the thread of a callback timer, so slow programs, delays and waits never hold up
// the device events; its sleeps are not interrupted, and killing the timer has no effect once the section runs.
// Locks: none. The port's record is read while the engine may change it, and its flag that a section has run is a plain
// field: an arrival clears it, the section sets it.
#pragma once

#include "actions/ActionEntries.h"
#include "config/CCfgReader.h"
#include "platform/win32.h"

struct CComPort;

// Result of an entry, or for a section that of the first entry that ran.
enum class OpenResult : BYTE {
    NotRun = 0, // no entry was run
    Started = 1,
    Failed = 2,
    NotPossible = 3, // the port has gone, or no user is logged on
};

// Runs the port's section after the delay, in milliseconds. Another call for the same port and type before that
// replaces it. type: OnArrival or OnRemoval. Returns: 1.
int DoOnArrivalRemoval_Async(CComPort* port, CfgSectionType type, DWORD delayMs);

// Runs the first section that fits the port, if there is one. Returns: 1. Blocks until its last entry is done.
int DoOnArrivalRemoval(CComPort* port, CfgSectionType type);

// Runs a section's entries one after another, unless it has run for this presence of the port.
// defaultDir, defaultShowCommand: for entries without their own. If an entry needs a user and there is none, the
// section ends.
OpenResult ExecuteOpenSection(CComPort* port, CfgSectionType type, LONG number, const char* defaultDir,
                              WORD defaultShowCommand);

// Starts one entry. params: its program and parameters are filled in. wait, phProcess: as for AutoRunExec.
OpenResult ExecuteOpenByParams(const CComPort* port, OpenParams* params, bool wait, HANDLE* phProcess);
