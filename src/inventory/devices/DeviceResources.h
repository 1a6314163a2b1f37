// Interrupt and I/O port of a device, from its allocated or boot configuration. Called by UpdatePort, on any thread.
#pragma once

#include "platform/win32.h"

// irq, ioPort: set to 0 first; of several descriptors the last counts.
// Returns: true when an I/O port was found. A device with an interrupt alone gives false.
bool GetDeviceResources(DWORD devInst, DWORD* irq, DWORD* ioPort);
