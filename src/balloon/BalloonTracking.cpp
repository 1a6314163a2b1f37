#include "balloon/BalloonTracking.h"

#include "balloon/BalloonPosition.h"
#include "balloon/BalloonState.h"
#include "support/log/LogFile.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ThreadTools.h"
#include "support/system/WorkerThreads.h"

constexpr DWORD LookMs = 10;
constexpr LONG ParkedBeyond = 30000; // a bar out there is parked off the screen for a moment

static bool IsSameRect(const RECT& a, const RECT& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// Returns: false when there is no longer a place for the balloon.
static bool MoveBalloon() {
    LockGuard lock(CS_BalloonData);
    g_balloonAnchor = GetBalloonPos();
    const POINT corner = PosFromAnchor(g_balloonPlace.Width, g_balloonPlace.Height);
    if (corner.x == 0 && corner.y == 0) {
        Beep(1000, 200);
        WriteLog(3, "BEEP CBPTP_3");
        return false;
    }
    const POINT kept = KeepOnScreen(corner, g_balloonPlace.Width, g_balloonPlace.Height);
    const HWND window = m_hwndBln;
    // Does not wait: the window's thread may be waiting for this lock to draw.
    SetWindowPos(window, HWND_TOPMOST, kept.x, kept.y, 0, 0, SWP_NOSIZE | SWP_NOACTIVATE | SWP_ASYNCWINDOWPOS);
    g_balloonPlace.X = kept.x;
    g_balloonPlace.Y = kept.y;
    PostMessageA(window, WM_BALLOON_REDRAW, 0, 0);
    return true;
}

static void CorrectBalloonPos() {
    HWND bar = FindTaskBar();
    RECT kept = {};
    if (bar == nullptr || !GetWindowRect(bar, &kept)) {
        return;
    }
    while (m_hwndBln != nullptr && !g_balloonClosing) {
        Sleep(LookMs);
        RECT rect = {};
        if (!GetWindowRect(bar, &rect)) { // the shell was restarted: its bar is a new window
            bar = FindTaskBar();
            continue;
        }
        if (IsSameRect(rect, kept)) {
            continue;
        }
        WriteLog(4, "TaskBar moved (%i,%i,%i,%i)", rect.left, rect.top, rect.right, rect.bottom);
        if (rect.left > ParkedBeyond || rect.top > ParkedBeyond) {
            continue;
        }
        kept = rect;
        if (!MoveBalloon()) {
            return;
        }
    }
}

static DWORD WINAPI CorrectBalloonPos_ThreadProc(void*) {
    const WorkerScope worker;
    CorrectBalloonPos();
    return 0;
}

HANDLE StartCorrectingBalloonPos() {
    WorkerStarting();
    const HANDLE thread = StartThread(CorrectBalloonPos_ThreadProc, nullptr);
    if (thread == nullptr) {
        WorkerEnded();
    }
    return thread;
}
