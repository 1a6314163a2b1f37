// The drivers of ports and modems: what they do when they start and stop, and whose handles keep them busy.
#pragma once

#include "simwin/devices/DeviceTree.h"

namespace machine {

// A port's driver starts: kernel device, DOS name, SERIALCOMM. Returns 0 or the problem number that it fails with.
simwin::DWORD StartPortDriver(DeviceNode& node);
// It stops: one step for everybody else. The DOS name goes unless somebody else made it or it stays behind.
void StopPortDriver(DeviceNode& node);
// Windows' class installer for a port that was never there: the number from ComDB, PortName, FriendlyName.
void InstallPort(DeviceNode& node);
// Whether its registry names a port already: a value of either name, also an empty one.
bool HasPortName(const DeviceNode& node);

// Handles to a kernel device.
void OpenKernelDevice(KernelDevice& device);
void CloseKernelDevice(KernelDevice& device);

// ComDB as bits; number from 1.
bool ComDbTest(unsigned number);
void ComDbSet(unsigned number);
std::vector<unsigned> ComDbNumbers();
// The power goes: its kernel device is gone, and nobody is notified or cleans up.
void DropPortDriver(DeviceNode& node);

} // namespace machine
