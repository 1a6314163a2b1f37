// The drivers of ports and modems: what they do when they start and stop, and the handles that keep them busy.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

namespace machine {

// A port's driver starts: kernel device, DOS name, SERIALCOMM. Returns: 0 or the problem number with which it fails.
simwin::DWORD StartPortDriver(DeviceNode& node);
// It stops: one step for everybody else. The DOS name is deleted unless another program made it or the driver leaves it
// behind.
void StopPortDriver(DeviceNode& node);
// Windows' class installer for a port that was never there: the number from ComDB, PortName, FriendlyName.
void InstallPort(DeviceNode& node);
// Whether its registry already names a port: a value of either name, also an empty one.
bool HasPortName(const DeviceNode& node);

// Handles to a kernel device.
void OpenKernelDevice(KernelDevice& device);
void CloseKernelDevice(KernelDevice& device);

// ComDB as bits; number from 1.
bool ComDbTest(unsigned number);
void ComDbSet(unsigned number);
std::vector<unsigned> ComDbNumbers();
// The power goes off: its kernel device is gone, without notification or clean-up.
void DropPortDriver(DeviceNode& node);

} // namespace machine
