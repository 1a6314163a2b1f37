// Changes of a device's state by calls of the product: what the class installer and the configuration manager share.
// All of them run on the calling thread and block it while devices stop and start; none takes an argument with a
// destructor.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/types.h"

namespace machine {

// 0 or the error of SetupDiCallClassInstaller. change: DICS_PROPCHANGE, DICS_DISABLE, DICS_ENABLE.
simwin::DWORD ChangeDeviceState(DeviceNode& node, simwin::DWORD change);
// Its name in the list of restarts.
const char* MeansOfChange(simwin::DWORD change);
// May the running process change devices? Administrators and the system may.
bool MayChangeDevices();

struct RemovalVeto {
    int type = 0;                   // PNP_VETO_TYPE
    DeviceNode* refusing = nullptr; // null: none
};
// Asks everything below, then stops it: the node stays with problem 21.
RemovalVeto QueryAndRemove(DeviceNode& node);
// The same for a removable node, which stays with problem 47.
RemovalVeto EjectDevice(DeviceNode& node);
// Starts a node with problem 21, 22 or 24.
void SetUpDevice(DeviceNode& node);
// Starts the children.
void ReenumerateDevice(DeviceNode& node);

} // namespace machine
