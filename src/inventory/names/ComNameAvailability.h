// Can a COM name be taken? Two tests that the assignment check uses together: one on the DOS name space, which also
// clears a link that leads to no device any more, and one on the port table, CComPorts::IsComPortNameAvailable, which
// also sets records absent that have gone stale.
// Thread: any. Locks: none of its own; the check calls both inside CS_assign.
#pragma once

#include "platform/win32.h"

// Is the DOS name free? A name that leads to no device is deleted. Blocks up to 500 ms for the open of the device.
// Returns: 1 when the name is free or has just been freed, else 0.
int IsComPortNameAvailable(const char* name);

// Is there a device behind the DOS name? Only the two errors for a missing device mean that there is none: a port in
// use refuses the open but exists. Blocks up to 500 ms.
// Returns: 1 unless the device is gone.
int PortDevExist(const char* name);
