// The command line of a balloon child: what is to be shown, as the service wrote it.
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

// Reads the tokens of this process's command line. The first of each kind counts, so that a text which got out of its
// quotes cannot take another one's place.
BalloonArguments ReadBalloonArguments();

// Shows what the command line asks for. Blocks until the balloon has gone.
void ShowBalloonByCommandLine();
