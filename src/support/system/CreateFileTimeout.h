// A CreateFileA that cannot hang its caller. Opening a device may never return, so it runs on a thread of its own; that
// thread closes a handle that comes too late. A driver that never returns costs one stranded thread and its request.
#pragma once

#include "platform/win32.h"

// name to flags: as for CreateFileA, without security and template. timeoutMs: how long the caller waits.
// Blocks for at most timeoutMs, except that a file that was not found is opened once more on the caller's thread.
// Returns: a handle of the caller's; INVALID_HANDLE_VALUE with the last error of the open, or ERROR_TIMEOUT.
HANDLE CreateFileTimeout(const char* name, DWORD access, DWORD share, DWORD disposition, DWORD flags, DWORD timeoutMs);
