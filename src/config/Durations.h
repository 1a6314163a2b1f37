// Durations as an administrator writes them: a number and a unit, "5s", "10 m", "2h". Called by the configuration
// reader. Pure, any thread, no lock.
#pragma once

#include "platform/win32.h"

// Milliseconds of `text`: its decimal number times the unit named by its first letter a to z, wherever that is: s, m, h
// or d in either case. Any other letter, or none, means milliseconds.
// Returns: 0 for a text of more than 63 characters and for one that does not begin with a number. Wraps at 2^32.
DWORD ParseDuration(const char* text);
