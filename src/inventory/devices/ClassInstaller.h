// What the device tools request from a device's class installer: a change of its state; and the wait before it, since
// an installation in progress would undo or block the change. Used by the restarts and removals, on their caller's
// thread.
#pragma once

#include "platform/win32.h"

// Logs the announcement at level 1 and waits up to 5000 ms until no installation is pending. The outcome is only
// logged: a restart during an installation that hangs is better than none.
void WaitForPendingInstalls(const char* announcement);

// Sets the parameters of a property change. stateChange: DICS_PROPCHANGE, DICS_DISABLE or DICS_ENABLE.
// Returns: 1, or 0 with the last error.
int SetStateChange(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD stateChange);

// Has the class installer carry out the property change whose parameters are set. Returns: 1, or 0 with the last error.
int CallPropertyChange(HDEVINFO list, SP_DEVINFO_DATA* device);

// Both steps. Returns: 1, or 0 with the last error of the step that failed.
int ChangeDeviceState(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD stateChange);
