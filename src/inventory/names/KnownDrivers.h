// The kernel names that known drivers give to their ports. The scan of ports with the same registry name uses them to
// find the one that the DOS name really leads to. Constant table, no state.
#pragma once

#include "platform/win32.h"

// Is the kernel name of the form that the driver of this device is known to use?
// Returns: true when a row fits by the kernel name and by vendor id, service or parent service.
bool KernelNameFitsDriver(const char* kernelName, const char* deviceId, const char* service, const char* parentService);
