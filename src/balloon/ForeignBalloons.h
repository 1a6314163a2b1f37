// Tool tips of the shell and of other programs at the place where the balloon will appear, and full-screen windows over
// which no balloon is shown.
// Thread: the balloon thread before it shows its window; with SuppressWindowsBalloons two threads of their own
// afterwards. Locks: none is held during a call to a foreign window, since it may not respond.
#pragma once

#include "balloon/BalloonState.h"
#include "platform/win32.h"

// The first foreign balloon in the area next to an anchor; null if there is none.
HWND FindForeignBalloon(LONG x, LONG y, BalloonCorner point);

// Whether a window is a tool tip. window: may be null.
bool IsToolTipWindow(HWND window);

// Whether the window fills the screen and must not be disturbed: a game, a screen saver. window: may be null.
// className: takes the window's class for the log.
bool IsSpecialWindow(HWND window, char (&className)[64]);

// Waits until no foreign balloon is next to the anchor, and dismisses one that stays; or dismisses it at once, if the
// settings say so. Returns: false when one is still there after 11 seconds and no balloon must be shown.
bool SettleForeignBalloons(const BalloonAnchor& anchor);

// The two threads that keep foreign balloons away, where the settings say so. The first is started with the new
// window, the second after it; both end with the balloon.
void StartClosingForeignBalloons();
void StartPreventingForeignBalloons();
// Called when the window closes.
void StopClosingForeignBalloons();
