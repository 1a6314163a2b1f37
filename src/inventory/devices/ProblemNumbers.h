// Problem numbers of a device node that decide about something, as cfg.h of the Windows SDK has them.
#pragma once

#include "platform/win32.h"

constexpr DWORD ProblemWillBeRemoved = 21; // CM_PROB_WILL_BE_REMOVED: on its way out
constexpr DWORD ProblemPhantom = 45;       // CM_PROB_PHANTOM: also used for a node that cannot be queried
constexpr DWORD ProblemHeldForEject = 47;  // CM_PROB_HELD_FOR_EJECT: on its way out
