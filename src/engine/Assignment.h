// What one assignment check works on. Made by CheckComPortAssignment, handed through the steps, gone with the check.
#pragma once

#include "engine/AssignmentCheck.h"
#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

struct Assignment {
    CComPort* port;
    CComPort* registryHolder;    // who else has the port's registry name and works; null: nobody
    CComPort* nameHolder;        // who has the wanted name; until one was looked for, who has the registry name
    LONG section;                // 0: none fits
    DWORD newPorts[MaxNewPorts]; // wanted numbers, in order of preference
    LONG newPortCount;
    char newPortNames[MaxNewPorts][12]; // "COM" and up to five digits of each
    LONG quickAndDirty;                 // not 0: move the DOS name, do not restart the device
    char szOldKernelName[520];          // as they were before the change; empty until there is one
    char szOldRegPortName[sizeof(CComPort::szRegPortName)];
};
