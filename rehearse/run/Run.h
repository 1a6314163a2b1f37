// One rehearsal from the description to the exit code: builds the machine, lets it run, reports, judges.
#pragma once

#include "rehearse/host/Options.h"

namespace rehearse {

// Writes the report to standard output and failures to standard error. Throws InputError when nothing was run.
int Rehearse(const Options& options);

} // namespace rehearse
