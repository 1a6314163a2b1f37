// The device tree as it was made of exports and description, a line for each device: how an administrator sees, before
// anything runs, whether the machine was understood.
#pragma once

#include <string>

namespace rehearse {

// Columns with a tab between them, under a line with their names; UTF-8.
std::string DevicesTable();

} // namespace rehearse
