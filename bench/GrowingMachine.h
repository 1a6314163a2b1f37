// A machine that grows: 64 ports on each hub, two on each device, COM1 and up. The benchmarks of the port table share
// it, so they run in ascending order of size.
#pragma once

#include <string>

namespace bench {

inline constexpr int LargestMachine = 4096;

// Plugs devices in until there are this many ports, and waits until all of them run. Returns: "" or what went wrong.
std::string GrowTo(int ports);

// Builds hubs and port table from the present devices, as the first snapshot of the service does.
void MakeTables();

// Grows the machine, and makes the tables if the table is not of this size. Returns: false, with a line on standard
// error, if the table then does not match the machine.
bool PrepareTable(int ports);

} // namespace bench
