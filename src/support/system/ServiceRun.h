// What the folders below the host need to know of the run as a service. Declared here, defined by the host with
// CService, so that no include points upwards. Any thread, no lock: single words, set before the threads start.
#pragma once

#include "platform/win32.h"

// Whether this process runs under the service control manager.
bool IsServiceProcess();

// The thread that pumps CService::Run, to which WM_QUIT is posted; 0 before it is known.
DWORD GetRunThreadId();
