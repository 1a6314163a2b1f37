// What the device tools ask of a device's class installer: a change of its state. And the wait that comes before, since
// an installation that is under way would undo or block it. Used by the restarts and removals, on their caller's
// thread.
#pragma once

#include "platform/win32.h"

// Logs the announcement at level 1 and waits up to 5000 ms until no installation is pending. The outcome is logged and
// changes nothing for the caller: a restart beside an installation that hangs is better than none.
void WaitForPendingInstalls(const char* announcement);

// Sets the parameters of a property change. stateChange: DICS_PROPCHANGE, DICS_DISABLE or DICS_ENABLE.
// Returns: 1, or 0 with the last error.
int SetStateChange(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD stateChange);

// Has the class installer carry out the property change whose parameters are set. Returns: 1, or 0 with the last error.
int CallPropertyChange(HDEVINFO list, SP_DEVINFO_DATA* device);

// Both steps. Returns: 1, or 0 with the last error of the step that failed.
int ChangeDeviceState(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD stateChange);
