// The surroundings of the product on a described machine: files and programs, the environment, how message boxes and
// "runas" are answered. Called by the machine builder.
#pragma once

#include "rehearse/description/Description.h"

#include <string>

namespace rehearse {

// A path of the machine; anything else could never be found. Throws InputError unless it begins with a drive.
std::string PathIn(const TomlTable& table, std::string_view key);

void SetUpSurroundings(const TomlTable& description);

} // namespace rehearse
