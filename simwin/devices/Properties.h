// The properties of a device node in the form in which the configuration manager and the setup API give them.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace machine {

struct DeviceProperty {
    simwin::DWORD type;             // REG_SZ, REG_MULTI_SZ, REG_DWORD
    std::vector<std::uint8_t> data; // texts with their zeros
};

// property: CM_DRP_...; wide: texts in UTF-16. Nothing for one that the device does not have.
std::optional<DeviceProperty> ReadDeviceProperty(const DeviceNode& node, simwin::DWORD property, bool wide);

bool IsRemovableNode(const DeviceNode& node);

} // namespace machine
