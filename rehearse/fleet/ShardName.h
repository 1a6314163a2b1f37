// Which share of a fleet a process is to rehearse: as the command line says, or as a job array does in its environment.
#pragma once

#include "rehearse/fleet/Store.h"

#include <string>

namespace rehearse::fleet {

// text: "3/10", counted from 0; "/10": the number of the task comes from the environment; "": both do, or there is one
// shard. Throws runtime_error.
Shard ShardOf(const std::string& text);

} // namespace rehearse::fleet
