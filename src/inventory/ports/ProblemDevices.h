// State of the scans for ports whose device got or lost a problem number without an arrival or removal. The scans are
// members of CComPorts; ProcessDevnodesChanged_TimerProc runs them, new problems first, without CS_main or CS_assign.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// The node that last got its one chance to recover by a safe removal and restart; 0 at the start.
// Guard: none, read and written by the scan alone; two scans at once could at worst give a second chance.
extern DWORD g_LastProblemDevInst;

// The registry name of a device of class Ports or Modem. name: filled only on success.
// Returns: 1, or 0 if the class is another one or anything cannot be read.
int GetPortNameByDevInst(DWORD devInst, char* name, size_t sizeChars);
