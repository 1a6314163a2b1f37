// The two requests that the list of hubs sends to a hub driver, with the driver's record layouts. Answers are checked
// before use, since they come from hardware.
// Thread: any, without a lock. Both block as long as the hub driver does.
#pragma once

#include "platform/win32.h"

// Room for a driver key name with its final zero: a class GUID, a backslash and a number of four digits.
constexpr DWORD HubDriverKeySize = 44;

// hHub: a hub opened for reading. Returns: the number of its hub ports, 0 on failure.
DWORD UsbGetHubPortCount(HANDLE hHub);

// The driver key of the device at a hub port, in the system code page. port: from 1.
// Returns: 1; or 0 with the error in *error and an empty `driverKey`.
int UsbGetConnectionDriverKey(HANDLE hHub, DWORD port, char (&driverKey)[HubDriverKeySize], DWORD* error);
