// Programs that hold ports open.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"

#include <string>
#include <string_view>

namespace machine {

// A program opens and closes a port by its DOS name. False if there is no such port to open or it is open already.
bool HoldPort(std::string_view portName, Process* program);
bool ReleasePort(std::string_view portName);
bool HoldPort(std::string_view portName, std::string_view imagePath);
bool HoldDevice(DeviceNode& node, Process* program);
std::string HolderOf(const DeviceNode& node); // path of the program that holds its port open; "" if none does
// By the program that the description names, once.
void HoldAsSaid(DeviceNode& node);
void ReleaseAllPorts();
// The program that holds ports under this path: the one that runs already, or a scripted process that starts now.
Process* HolderProcess(std::string_view imagePath);

RoomPtr MakeHeldPorts();

} // namespace machine
