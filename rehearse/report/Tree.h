// --tree: the machine as it was understood, before anything runs: what hangs below what, with hubs and their sockets,
// locations, names of ports, what is not there and why. Guesses are marked.
#pragma once

#include <string>

namespace rehearse {

std::string MachineTree(); // UTF-8

} // namespace rehearse
