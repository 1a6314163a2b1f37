// Follows a task bar that moves while the balloon shows.
// Thread: one of its own; it never waits for the balloon's window. Locks: takes CS_BalloonData for each move.
#pragma once

#include "platform/win32.h"

// Starts the thread, which ends with the balloon. Returns: its handle, closed by the caller; null when it could not be
// started: the balloon then stays where it is.
HANDLE StartCorrectingBalloonPos();
