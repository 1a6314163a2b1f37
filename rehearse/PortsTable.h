// The table of ports at the end of a run, for people. Pure.
#pragma once

#include "rehearse/MachineFacts.h"

#include <string>
#include <vector>

namespace rehearse {

// A line for each port, columns aligned: DOS name, registry name, USB port, problem, restarts, device. UTF-8.
std::string PortsTable(const std::vector<PortFacts>& ports);

} // namespace rehearse
