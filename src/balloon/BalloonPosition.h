// Where a balloon appears: its anchor next to the task bar, and its position from that and its size. Pixels of the
// screen.
// Thread: any of a balloon child's.
#pragma once

#include "balloon/BalloonState.h"
#include "platform/win32.h"

// The task bar whose resolution and reading direction the balloon adopts; the desktop's window if there is none.
HWND FindTaskBarOrDesktop();

// The window next to which the balloon appears, null without a task bar.
HWND FindTaskBar();

// Sizes below follow this resolution. Set at the start and by each new window; a single word, read by any thread.
extern UINT g_balloonDpi;

// What n pixels at 96 dots per inch are in this resolution, rounded. n: not negative.
LONG Scale(LONG n);

// The anchor for the task bar as it is now, in the resolution in force. Logs it.
BalloonAnchor GetBalloonPos();

// The balloon's upper left corner. The module's anchor decides.
POINT PosFromAnchor(LONG width, LONG height) QM_REQUIRES(CS_BalloonData);

// Moves a position that crosses the edge of the screen back onto it; the upper left corner wins.
POINT KeepOnScreen(POINT place, LONG width, LONG height);
