// Devices, DOS names and the COM name database of a description, as the machine's devices room takes them. Called by
// the machine builder, before the machine runs.
#pragma once

#include "rehearse/description/Description.h"

#include "simwin/devices/tree/Description.h"

namespace rehearse {

machine::DeviceDescription DeviceOf(const TomlTable& table);
// "gone", "busy", "late 450ms" and the like. Throws InputError for another text.
machine::Opens OpensOf(const TomlTable& table);

// Builds the device tree from the exports, which are already in the registry, and the description. Throws InputError
// for a parent that does not exist and for what the machine refuses.
void SetUpDevices(const TomlTable& description);

} // namespace rehearse
