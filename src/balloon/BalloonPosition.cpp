#include "balloon/BalloonPosition.h"

#include "support/log/LogFile.h"

constexpr LONG UnscaledDpi = 96;
constexpr LONG BarGap = 3;        // scaled: between the bar and the balloon
constexpr LONG EdgeInset = 32;    // scaled: from the end of the bar or the edge of the screen
constexpr LONG BarTestEdge = 400; // a bar this close to an edge counts as at it
constexpr LONG LowestAnchor = 18; // above the lower edge, so that a hidden bar leaves room for its own strip

UINT g_balloonDpi = UnscaledDpi;

HWND FindTaskBar() {
    return FindWindowA("Shell_TrayWnd", nullptr);
}

HWND FindTaskBarOrDesktop() {
    if (const HWND bar = FindTaskBar()) {
        return bar;
    }
    const HWND taskList = FindWindowA("MSTaskListWClass", nullptr);
    return taskList != nullptr ? taskList : GetDesktopWindow();
}

LONG Scale(LONG n) {
    return (n * static_cast<LONG>(g_balloonDpi) + UnscaledDpi / 2) / UnscaledDpi;
}

static BalloonAnchor AnchorBesideBar(const RECT& bar, bool isRightToLeft) {
    const LONG gap = Scale(BarGap);
    const LONG inset = Scale(EdgeInset);
    const LONG alongBar = isRightToLeft ? inset : bar.right - inset;
    if (bar.bottom < BarTestEdge) {
        return {alongBar, bar.bottom + gap, isRightToLeft ? BalloonCorner::TopLeft : BalloonCorner::TopRight};
    }
    if (bar.top > BarTestEdge) {
        const LONG lowest = GetSystemMetrics(SM_CYSCREEN) - LowestAnchor;
        const LONG y = bar.top - gap;
        return {alongBar, y < lowest ? y : lowest,
                isRightToLeft ? BalloonCorner::BottomLeft : BalloonCorner::BottomRight};
    }
    if (bar.right < BarTestEdge) {
        return {bar.right + gap, bar.bottom - inset, BalloonCorner::BottomLeft};
    }
    return {bar.left - gap, bar.bottom - inset, BalloonCorner::BottomRight};
}

BalloonAnchor GetBalloonPos() {
    const HWND bar = FindTaskBar();
    RECT rect = {};
    BalloonAnchor anchor = {};
    // A bar that disappears between the two calls counts as none.
    if (bar == nullptr || !GetWindowRect(bar, &rect)) {
        const LONG inset = Scale(EdgeInset);
        anchor = {GetSystemMetrics(SM_CXSCREEN) - inset, GetSystemMetrics(SM_CYSCREEN) - inset,
                  BalloonCorner::BottomRight};
    } else {
        const bool isRightToLeft = (static_cast<DWORD>(GetWindowLongA(bar, GWL_EXSTYLE)) & WS_EX_LAYOUTRTL) != 0;
        WriteLog(4, " TaskBar %i,%i,%i,%i rtl=%u", rect.left, rect.top, rect.right, rect.bottom,
                 isRightToLeft ? 1U : 0U);
        anchor = AnchorBesideBar(rect, isRightToLeft);
    }
    WriteLog(3, "GetBalloonPos x=%i y=%i point=%i", anchor.X, anchor.Y, static_cast<LONG>(anchor.Point));
    return anchor;
}

POINT PosFromAnchor(LONG width, LONG height) {
    const BalloonCorner corner = g_balloonAnchor.Point;
    const bool isRight = corner == BalloonCorner::TopRight || corner == BalloonCorner::BottomRight;
    const bool isBottom = corner == BalloonCorner::BottomRight || corner == BalloonCorner::BottomLeft;
    return {g_balloonAnchor.X - (isRight ? width : 0), g_balloonAnchor.Y - (isBottom ? height : 0)};
}

static LONG KeptBetween(LONG value, LONG size, LONG screenSize) {
    const LONG last = screenSize - size;
    const LONG kept = value > last ? last : value;
    return kept < 0 ? 0 : kept;
}

POINT KeepOnScreen(POINT place, LONG width, LONG height) {
    return {KeptBetween(place.x, width, GetSystemMetrics(SM_CXSCREEN)),
            KeptBetween(place.y, height, GetSystemMetrics(SM_CYSCREEN))};
}
