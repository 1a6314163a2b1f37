// Can a COM name be taken? Two tests that the assignment check uses together: one on the DOS name space, which also
// clears a link behind which no device is left, and one on the port table, CComPorts::IsComPortNameAvailable, which
// also sets records absent that have gone stale.
// Thread: any. Locks: none of its own; the check calls both inside CS_assign.
#pragma once

#include "platform/win32.h"

// Is the DOS name free? A name that leads to no device is deleted. Blocks up to 500 ms for the open of the device.
// Returns: 1 when the name is free or has just been freed, else 0.
int IsComPortNameAvailable(const char* name);

// Is there a device behind the DOS name? Only the two errors that say so mean that there is none: a port that another
// program holds open refuses the open and exists. Blocks up to 500 ms.
// Returns: 1 unless the device is gone.
int PortDevExist(const char* name);
