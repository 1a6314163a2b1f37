// The named pipe through which a program on this machine gives a visible balloon new texts: one message of 1160 bytes,
// or the five bytes "exit" that end the server. It trusts no client: those of other machines are refused, texts are
// terminated inside their fields, and a client that stays silent is dropped after a second.
// Threads: the server has one of its own; SendExitToBalloonPipe runs on the balloon thread. No lock is held over a
// call that can wait.
#pragma once

#include "platform/win32.h"

// Creates an instance of the pipe and starts its server. If that fails, or another user has the pipe, the balloon shows
// but cannot be updated.
void StartBalloonPipeServer();

// Ends a server. Returns: whether the message was written. Blocks until the server has read it.
bool SendExitToBalloonPipe();
