#include "balloon/ForeignBalloons.h"

#include "balloon/BalloonPosition.h"
#include "balloon/BalloonSettings.h"
#include "support/log/LogFile.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ThreadTools.h"
#include "support/system/WorkerThreads.h"

// Plain pixels.
constexpr LONG SearchWidth = 384;
constexpr LONG SearchHeight = 64;
constexpr LONG ColumnStep = 32;
constexpr LONG RowStep = 16;
constexpr LONG SmallTipWidth = 100; // tips up to this size are hints under the mouse
constexpr LONG SmallTipHeight = 50;
constexpr LONG OffScreen = 32000;
constexpr LONG CloseMarkInset = 16; // where the shell's balloon has its close mark

constexpr DWORD LookMs = 400;
constexpr DWORD DismissMs = 4000;
constexpr DWORD GiveUpMs = 11000;
constexpr DWORD PreventStepMs = 10;
constexpr DWORD CloseStepMs = 1;

constexpr DWORD StyleOfKind = 0xFFF00000;
constexpr DWORD FullScreenStyle = WS_POPUP | WS_VISIBLE | WS_CLIPSIBLINGS;
constexpr DWORD FullScreenCaptionStyle = WS_VISIBLE | WS_CLIPSIBLINGS | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;

static LONG g_lastSeenWidth = -1; // of a foreign balloon; balloon thread
static volatile LONG g_isClosingStopped;

bool IsToolTipWindow(HWND window) {
    char className[64] = {};
    return window != nullptr && GetClassNameA(window, className, sizeof(className)) != 0 &&
           lstrcmpA(className, "tooltips_class32") == 0;
}

static LONG WidthOf(HWND window) {
    RECT rect = {};
    return GetWindowRect(window, &rect) ? rect.right - rect.left : 0;
}

static bool IsForeignBalloon(HWND window) {
    RECT rect = {};
    return window != nullptr && window != m_hwndBln && IsToolTipWindow(window) && GetWindowRect(window, &rect) &&
           rect.right - rect.left > SmallTipWidth && rect.bottom - rect.top > SmallTipHeight;
}

HWND FindForeignBalloon(LONG x, LONG y, BalloonCorner point) {
    const bool isRightOfAnchor = point == BalloonCorner::BottomLeft;
    const bool isAboveAnchor = point == BalloonCorner::BottomLeft || point == BalloonCorner::BottomRight;
    const LONG left = isRightOfAnchor ? x : x - SearchWidth;
    const LONG top = isAboveAnchor ? y - SearchHeight : y;
    HWND last = nullptr;
    for (LONG row = top; row <= top + SearchHeight; row += RowStep) {
        for (LONG column = left; column <= left + SearchWidth; column += ColumnStep) {
            const HWND window = WindowFromPoint({column, row});
            if (window == last) {
                continue;
            }
            last = window;
            if (IsForeignBalloon(window)) {
                return window;
            }
        }
    }
    return nullptr;
}

static void Dismiss(HWND window) {
    SetWindowPos(window, nullptr, OffScreen, OffScreen, 0, 0, SWP_NOZORDER);
    SendMessageA(window, TTM_POP, 0, 0);
}

bool IsSpecialWindow(HWND window, char (&className)[64]) {
    className[0] = 0;
    if (window == nullptr) {
        return false;
    }
    const DWORD style = static_cast<DWORD>(GetWindowLongA(window, GWL_STYLE));
    RECT rect = {};
    GetClassNameA(window, className, sizeof(className));
    if (!GetWindowRect(window, &rect)) {
        return false;
    }
    const HDC screen = GetDC(nullptr);
    const LONG width = GetDeviceCaps(screen, HORZRES);
    const LONG height = GetDeviceCaps(screen, VERTRES);
    ReleaseDC(nullptr, screen);
    const bool isWholeScreen = rect.right - rect.left >= width && rect.bottom - rect.top >= height;
    const bool isSpecial =
        isWholeScreen && ((style & StyleOfKind) == FullScreenStyle || style == FullScreenCaptionStyle ||
                          lstrcmpA(className, "WindowsScreenSaverClass") == 0);
    WriteLog(3, "IsSpecialWindow(0x%p) '%s' style=0x%08X %i,%i,%i,%i res=%u", window, className, style, rect.left,
             rect.top, rect.right, rect.bottom, isSpecial ? 1U : 0U);
    return isSpecial;
}

// Waits while a foreign balloon is next to the anchor.
static bool WaitForForeignBalloons(const BalloonAnchor& anchor) {
    const DWORD startTicks = GetTickCount();
    DWORD changeTicks = 0;
    for (;;) {
        const HWND before = FindForeignBalloon(anchor.X, anchor.Y, anchor.Point);
        Sleep(LookMs);
        const HWND now = FindForeignBalloon(anchor.X, anchor.Y, anchor.Point);
        if (before == nullptr && now == nullptr) {
            return true;
        }
        WriteLog(4, "Foreigen Balloon found, waiting...");
        const LONG width = now != nullptr ? WidthOf(now) : 0;
        if (width != g_lastSeenWidth) {
            g_lastSeenWidth = width;
            changeTicks = GetTickCount();
        } else if (now != nullptr && GetTickCount() - changeTicks >= DismissMs) {
            WriteLog(3, "foreign balloon in my way for 4 seconds, send TTM_POP");
            Dismiss(now);
        }
        Sleep(LookMs);
        if (GetTickCount() - startTicks >= GiveUpMs) {
            if (now != nullptr) {
                WriteLog(3, "foreigen balloon too int in my way -> abort");
            }
            return now == nullptr;
        }
    }
}

static void DismissIfInTheWay(const BalloonAnchor& anchor) {
    if (const HWND foreign = FindForeignBalloon(anchor.X, anchor.Y, anchor.Point)) {
        WriteLog(3, "foreign balloon in my way, send TTM_POP");
        Dismiss(foreign);
    }
}

bool SettleForeignBalloons(const BalloonAnchor& anchor) {
    if (!SuppressesForeignBalloons()) {
        return WaitForForeignBalloons(anchor);
    }
    DismissIfInTheWay(anchor);
    return true;
}

static void PreventForeignBalloons() {
    const BalloonAnchor anchor = GetBalloonPos();
    while (m_hwndBln != nullptr && !g_balloonClosing) {
        DismissIfInTheWay(anchor);
        Sleep(PreventStepMs);
    }
}

// Closes a tool tip as a user does: if only hidden, some programs show theirs again.
static void ClickCloseMark(HWND window) {
    WriteLog(3, "foreign balloon to suppress, sim mouseclick");
    const LONG x = WidthOf(window) - CloseMarkInset;
    const LPARAM place = static_cast<LPARAM>(static_cast<DWORD>(x & 0xFFFF) | static_cast<DWORD>(CloseMarkInset) << 16);
    PostMessageA(window, WM_LBUTTONDOWN, MK_LBUTTON, place);
    PostMessageA(window, WM_LBUTTONUP, 0, place);
}

static BalloonPlace CurrentPlace() {
    LockGuard lock(CS_BalloonData);
    return g_balloonPlace;
}

static void CloseForeignBalloons() {
    HWND last = nullptr;
    for (; !g_isClosingStopped; Sleep(CloseStepMs)) {
        const BalloonPlace place = CurrentPlace();
        HWND window = WindowFromPoint({place.X - 2, place.Y + place.Height - 33});
        if (window == last) {
            continue;
        }
        last = window;
        if (!IsToolTipWindow(window)) {
            window = WindowFromPoint({place.X + place.Width + 1, place.Y + 16});
        }
        if (IsToolTipWindow(window)) {
            ClickCloseMark(window);
        }
    }
}

static DWORD WINAPI PreventForeignBalloons_ThreadProc(void*) {
    const WorkerScope worker;
    PreventForeignBalloons();
    return 0;
}

static DWORD WINAPI CloseForeignBalloons_ThreadProc(void*) {
    const WorkerScope worker;
    CloseForeignBalloons();
    return 0;
}

static void StartIfSuppressing(const char* name, LPTHREAD_START_ROUTINE procedure) {
    if (!SuppressesForeignBalloons()) {
        return;
    }
    WorkerStarting();
    if (StartThreadForId(name, procedure, nullptr) == 0) {
        WorkerEnded();
    }
}

void StartClosingForeignBalloons() {
    g_isClosingStopped = 0;
    StartIfSuppressing("CloseForeignBalloons_ThreadProc", CloseForeignBalloons_ThreadProc);
}

void StartPreventingForeignBalloons() {
    StartIfSuppressing("PreventForeignBalloons_ThreadProc", PreventForeignBalloons_ThreadProc);
}

void StopClosingForeignBalloons() {
    g_isClosingStopped = 1;
}
