// Environment variables, and texts that contain them.
#pragma once

#include "simwin/kernel/Room.h"

#include <string>
#include <string_view>

namespace machine {

// The environment of the running process, by name without regard to case: the machine's variables for all, and those of
// the account whose environment it is. Outside a process, that of the machine.
std::string GetEnvironment(std::string_view name, bool* found = nullptr);
void SetEnvironment(std::string_view name, std::string_view value); // for all
void SetUserEnvironment(std::string_view account, std::string_view name, std::string_view value);
// Each %NAME% that is known replaced.
std::string ExpandEnvironment(std::string_view text);

RoomPtr MakeEnvironment();

} // namespace machine
