// What one assignment check works on. Created by CheckComPortAssignment, passed through the steps, gone with the check.
#pragma once

#include "engine/AssignmentCheck.h"
#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

struct Assignment {
    CComPort* port;
    CComPort* registryHolder;    // another working port with this registry name; null: none
    CComPort* nameHolder;        // the owner of the wanted name; until that was searched for, of the registry name
    LONG section;                // 0: none fits
    DWORD newPorts[MaxNewPorts]; // wanted numbers, in order of preference
    LONG newPortCount;
    char newPortNames[MaxNewPorts][12]; // "COM" and up to five digits of each
    LONG quickAndDirty;                 // not 0: move the DOS name, do not restart the device
    char szOldKernelName[520];          // before the change; empty until there is one
    char szOldRegPortName[sizeof(CComPort::szRegPortName)];
};
