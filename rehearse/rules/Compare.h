// `--compare`: the same machine and history under two configurations, side by side. Host side, one thread.
#pragma once

#include "rehearse/Run.h"

namespace rehearse {

// options.compare: the old file; the new one is options.ini, else the described one.
// Returns: ExitDone; with options.strict ExitNotMet if a port is touched that no changed rule names; ExitStopped if a
// run does not end in good order. Throws InputError.
int CompareRules(const Options& options);

} // namespace rehearse
