// The command line of a balloon child: what to show, as written by the service.
// Thread: the parsing thread. No lock.
#pragma once

#include "balloon/FreeBalloonInfo.h"
#include "platform/win32.h"

struct BalloonArguments {
    LONG ShowTime;
    LONG CharSet;
    LONG Icon;
    DWORD Tick;
    char Title[120];
    char Text[256];
};

// Reads the tokens of this process's command line. The first of each kind counts, so that a text that escapes its
// quotes cannot replace another.
BalloonArguments ReadBalloonArguments();

// Shows what the command line requests. Blocks until the balloon has closed.
void ShowBalloonByCommandLine();
