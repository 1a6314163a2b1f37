// A machine that grows: 64 ports on each hub, two on each device, COM1 and up. The benchmarks of the port table share
// it, so they run in rising order of their sizes.
#pragma once

#include <string>

namespace bench {

inline constexpr int LargestMachine = 4096;

// Plugs devices in until there are so many ports, and waits until all of them run. Returns: "" or what went wrong.
std::string GrowTo(int ports);

// Makes hubs and port table from what is there, as the first snapshot of the service does.
void MakeTables();

// Grows the machine, and makes the tables if the table is not of this size. Returns: false, told to standard error, if
// the table is then not what the machine is.
bool PrepareTable(int ports);

} // namespace bench
