// Starts of threads. A thread logs its creation with its id when it has a name in the log.
#pragma once

#include "platform/win32.h"

// A plain start with the default stack. Returns: the thread's handle, closed by the caller; null with the last error.
HANDLE StartThread(LPTHREAD_START_ROUTINE procedure, void* parameter);

// Starts suspended, so that the line "thread %s created ThreadId=%04u" (level 3, if name is not null) is logged before
// the thread's first one, then lets it run and closes the handle. Returns: 1; 0 with the last error.
int StartThreadLogged(const char* name, LPTHREAD_START_ROUTINE procedure, void* parameter);

// Starts at once, logs the same or without a name "thread created ThreadId=%04u", closes the handle.
// Returns: the thread's id; 0 with the last error.
DWORD StartThreadForId(const char* name, LPTHREAD_START_ROUTINE procedure, void* parameter);
