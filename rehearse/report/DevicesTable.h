// The device tree built from exports and description, a line for each device, by which an administrator checks before
// anything runs that the machine was understood.
#pragma once

#include <string>

namespace rehearse {

// Columns with a tab between them, under a line with their names; UTF-8.
std::string DevicesTable();

} // namespace rehearse
