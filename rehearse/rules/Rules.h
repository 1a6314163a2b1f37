// `--rules`: reads a configuration by itself and reports what is wrong with it. Host side, one thread.
#pragma once

#include "rehearse/host/Options.h"

namespace rehearse {

// options.rules: the file. Writes the findings to standard output, and as JSON if requested.
// Returns: ExitDone when clean, ExitNotMet with findings. Throws InputError if a file cannot be read or written.
int CheckRules(const Options& options);

} // namespace rehearse
