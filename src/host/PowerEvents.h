// What the service does when the machine goes to sleep and wakes up: it logs the events, and checks the ports again
// on a resume when the settings ask for it.
//
// Called by `CService::HandlerEx` on the dispatcher thread, only while the service is RUNNING. Holds no lock.

#pragma once

#include "platform/win32.h"

// EventType: a PBT code. lpEventData: not read. Returns: 1, which no caller reads.
// Blocks for as long as the check of the ports takes; no other control is handled until then.
DWORD PowerEventMsg(DWORD EventType, LPVOID lpEventData);
