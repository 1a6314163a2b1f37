// The table of ports at the end of a run, for people. Pure.
#pragma once

#include "rehearse/report/Verdict.h"

#include <string>
#include <vector>

namespace rehearse {

// A line for each port, columns aligned: DOS name, what its rule wants, state, registry name, USB port, restarts,
// device. UTF-8. width: columns of the terminal; a device that has no room stands below its line. 0: a file.
std::string PortsTable(const std::vector<PortVerdict>& ports, std::size_t width);

} // namespace rehearse
