// What the threads of a balloon child share: the record, the anchor, the place of the window, and the two words that
// tell them that the balloon is closing. One balloon per process.
// Threads: the balloon thread owns the window; the parsing, pipe and tracking threads change record and anchor.
// Locks: CS_BalloonData guards what is marked. No thread waits for a window of another thread while it holds the lock:
// that thread may be waiting for the lock, and neither would continue.
#pragma once

#include "balloon/FreeBalloonInfo.h"
#include "platform/win32.h"

// The corner of the balloon that touches the anchor.
enum class BalloonCorner : LONG { TopLeft = 1, TopRight = 2, BottomRight = 3, BottomLeft = 4 };

struct BalloonAnchor {
    LONG X; // pixels of the screen
    LONG Y;
    BalloonCorner Point;
};

struct BalloonPlace {
    LONG X;
    LONG Y;
    LONG Width;
    LONG Height;
};

extern CRITICAL_SECTION CS_BalloonData;
extern FreeBalloonInfo g_balloonInfo QM_GUARDED_BY(CS_BalloonData);
extern BalloonAnchor g_balloonAnchor QM_GUARDED_BY(CS_BalloonData);
extern BalloonPlace g_balloonPlace QM_GUARDED_BY(CS_BalloonData);

// The balloon's window, null when no balloon is up; written by the balloon thread. The other threads run while it is
// not null. A single word: during a change a reader may post to a window that is gone, which harmlessly fails.
extern HWND volatile m_hwndBln;
// 1 once the balloon was asked to close. A single word, polled.
extern volatile LONG g_balloonClosing;
// The tick word of the command line. Stored, but not used.
extern DWORD g_balloonTick;

// Messages to the balloon's window in addition to those of Windows. A ping comes from a newer child that wants the
// place; the others are requests of the pipe and tracking threads to the thread that owns the window.
constexpr UINT WM_BALLOON_PING = 0x8002;
constexpr UINT WM_BALLOON_HOLD = 0x8003;   // a new record is on its way: the close timer stops
constexpr UINT WM_BALLOON_UPDATE = 0x8004; // the record has arrived: time and show it
constexpr UINT WM_BALLOON_REDRAW = 0x8005; // the anchor has moved
