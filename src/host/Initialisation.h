// Builds the run-time state of the service: the USB tables, the port table, the first check of all ports and the
// device notifications.
//
// Runs on a thread of its own, so that its starter (`CService::ServiceMain`, in a debug run WinMain) can report
// progress and give up waiting. The starter holds `CS_main` for it while it waits.

#pragma once

#include "platform/win32.h"

// param: not read. Returns: 1 when it went through, 0 when it ended early because a stop was requested or a debug run
// has no window. Only the log reads the result.
DWORD WINAPI InitializeQuillmarchService_ThreadProc(LPVOID param);
