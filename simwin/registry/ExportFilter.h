// From the keys of several files, exports and hives, to those that the machine's registry takes: one control set, the
// current one, and values of the type that Windows gives them. What is left out or taken for something is noted.
#pragma once

#include "simwin/registry/RegistryExport.h"

#include <string>
#include <vector>

namespace machine {

// Values of a device's key below Enum whose type is not that of their name: they mean nothing to the machine.
void LeaveOutWrongTypes(std::vector<ExportedKey>& keys, std::vector<ExportNote>& notes);

// A SYSTEM hive that was mounted under another name becomes HKEY_LOCAL_MACHINE\SYSTEM, the control set in use becomes
// CurrentControlSet, others are left out. Returns: a line for each such step, in the machine's code page.
std::vector<std::string> UnifyControlSets(std::vector<ExportedKey>& keys);

} // namespace machine
