// Where a balloon stands: its anchor beside the task bar, and its place from that and its size. Pixels of the screen.
// Thread: any of a balloon child's.
#pragma once

#include "balloon/BalloonState.h"
#include "platform/win32.h"

// The task bar whose resolution and reading direction the balloon takes over; the desktop's window if there is none.
HWND FindTaskBarOrDesktop();

// The window that the balloon stands beside, null without a task bar.
HWND FindTaskBar();

// Sizes below follow this resolution. Set by the start and by each new window; a single word, read by any thread.
extern UINT g_BalloonDpi;

// What n pixels at 96 dots per inch are in this resolution, rounded. n: not negative.
LONG Scale(LONG n);

// The anchor for the task bar as it is now, in the resolution in force. Logs it.
BalloonAnchor GetBalloonPos();

// The balloon's upper left corner. The module's anchor decides.
POINT PosFromAnchor(LONG width, LONG height) QM_REQUIRES(CS_BalloonData);

// Moves a place that would lie over the edge of the screen back onto it; the upper left corner wins.
POINT KeepOnScreen(POINT place, LONG width, LONG height);
