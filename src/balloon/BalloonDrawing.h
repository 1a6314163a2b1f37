// Draws the balloon: measures it, paints it off-screen and moves it into place in one step, so that neither a move nor
// an update flickers.
// Thread: the balloon thread alone; other threads post WM_BALLOON_REDRAW. Locks: takes CS_BalloonData for each drawing.
#pragma once

#include "platform/win32.h"

// Of the balloon's window. State of the drawing, for the balloon thread.
struct BalloonDrawingState {
    RECT CloseButton;      // edges included; empty without a button
    LONG CloseState;       // 1 normal, 2 the mouse is over it
    LPARAM LastMouse;      // place of the mouse as the last message packed it
    LONG PreviousWidth;    // 0 until drawn once
    bool IsLayered;        // fades, and is shown as a whole
    bool RepaintsByRegion; // a new region repaints: after an update
    HRGN Region;           // of the window's outline; the window has copies
};
extern BalloonDrawingState g_balloonDrawing;

constexpr LONG CloseStateNormal = 1;
constexpr LONG CloseStateHot = 2;

// Draws the balloon on its window. Beeps without a device context.
void RedrawBalloon();

// Whether a place in the window, packed as in a mouse message, lies in the close button.
bool IsPointInCloseButton(LPARAM place);

// Lets the balloon fade, if it can. Blocks for about 150 ms.
void FadeOutBalloon();
