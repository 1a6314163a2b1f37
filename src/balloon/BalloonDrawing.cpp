#include "balloon/BalloonDrawing.h"

#include "balloon/BalloonLayout.h"
#include "balloon/BalloonPosition.h"
#include "balloon/BalloonState.h"
#include "balloon/GdiObjects.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/OsVersion.h"
#include "support/system/ScopeGuard.h"

constexpr LONG InnerPoint = 16; // from a corner to a point safely inside the rounding
constexpr BYTE Opaque = 255;
constexpr DWORD FadeStepMs = 30;
constexpr BYTE FadeSteps[] = {200, 155, 110, 65, 20};
constexpr UINT ShowFlags = SWP_NOACTIVATE | SWP_NOREDRAW | SWP_NOCOPYBITS;

BalloonDrawingState g_balloonDrawing;

namespace {
// One drawing: the data shared by its steps.
struct Drawing {
    HWND Window;
    HDC Screen;  // of the window
    HDC Context; // to paint on: in memory, else Screen
    BalloonPlace Place;

    bool IsDirect() const { return Context == Screen; }
};
} // namespace

static bool IsFrontAt(HWND window, LONG x, LONG y) {
    return WindowFromPoint({x, y}) == window;
}

static void EnsureBalloonTopmost(HWND window) {
    RECT rect = {};
    if (!IsWindowVisible(window) || !GetWindowRect(window, &rect) || rect.right <= 0 ||
        IsFrontAt(window, rect.left + InnerPoint, rect.top + InnerPoint)) {
        return;
    }
    constexpr UINT OrderOnly = SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE;
    SetWindowPos(window, HWND_NOTOPMOST, 0, 0, 0, 0, OrderOnly);
    SetWindowPos(window, HWND_TOPMOST, 0, 0, 0, 0, OrderOnly);
    WriteLog(4, "balloon was not topmost");
}

static void SetReadingDirection(HDC context) QM_REQUIRES(CS_BalloonData) {
    if (g_balloonLook.IsLayoutMirrored) {
        SetLayout(context, LAYOUT_RTL);
    } else {
        SetProcessDefaultLayout(0);
        SetLayout(context, 0);
    }
    if (ReadsRightToLeft(g_balloonInfo.CharSet)) {
        SetTextAlign(context, TA_RTLREADING);
    }
}

static void MeasureAndPlace(HDC context) QM_REQUIRES(CS_BalloonData) {
    const BalloonLook& look = g_balloonLook;
    const BalloonExtent extent = DrawAllTexts(context, /*isDrawing=*/false, look.IconSize);
    const LONG width = look.HorizontalMargin + extent.Right;
    const LONG height = look.VerticalMargin + extent.Bottom;
    const POINT corner = KeepOnScreen(PosFromAnchor(width, height), width, height);
    g_balloonPlace = {corner.x, corner.y, width, height};
}

static HRGN CreateOutline(const BalloonPlace& place) {
    const int diameter = g_balloonLook.CornerDiameter();
    return CreateRoundRectRgn(0, 0, place.Width + 1, place.Height + 1, diameter, diameter);
}

static void RenewRegion(const BalloonPlace& place) {
    if (g_balloonDrawing.Region != nullptr) {
        DeleteObject(g_balloonDrawing.Region);
    }
    g_balloonDrawing.Region = CreateOutline(place);
}

// A window owns its region, so it gets a new one each time.
static void GiveRegion(const Drawing& drawing) {
    const HRGN region = CreateOutline(drawing.Place);
    if (region != nullptr && SetWindowRgn(drawing.Window, region, g_balloonDrawing.RepaintsByRegion) == 0) {
        DeleteObject(region);
    }
}

static void Fill(const Drawing& drawing) {
    const BalloonLook& look = g_balloonLook;
    const LONG width = drawing.Place.Width;
    const LONG height = drawing.Place.Height;
    if (look.HasThemedText()) {
        look.Theme->DrawBackground(drawing.Context, ThemePartBalloon, /*state=*/0, {0, 0, width, height});
        return;
    }
    SetTextColor(drawing.Context, GetSysColor(COLOR_INFOTEXT));
    SetBkMode(drawing.Context, TRANSPARENT);
    SetBkColor(drawing.Context, GetSysColor(COLOR_INFOBK));
    const OwnedGdiObject brush(CreateSolidBrush(look.Colours.BackColor));
    const SelectedObject noPen(drawing.Context, GetStockObject(NULL_PEN));
    const SelectedObject fill(drawing.Context, brush.Get());
    const int diameter = look.CornerDiameter();
    RoundRect(drawing.Context, 0, 0, width, height, diameter, diameter);
}

static void DrawOutline(const Drawing& drawing) {
    const BalloonLook& look = g_balloonLook;
    constexpr COLORREF Black = 0;
    if (look.IsLayoutMirrored) {
        const int diameter = look.CornerDiameter();
        const OwnedGdiObject region(
            CreateRoundRectRgn(-1, 0, drawing.Place.Width, drawing.Place.Height + 1, diameter, diameter));
        const OwnedGdiObject brush(CreateSolidBrush(Black));
        FrameRgn(drawing.Context, static_cast<HRGN>(region.Get()), static_cast<HBRUSH>(brush.Get()), 1, 1);
        return;
    }
    const OwnedGdiObject brush(CreateSolidBrush(look.IsFlat ? look.Colours.FrameColor : Black));
    FrameRgn(drawing.Context, g_balloonDrawing.Region, static_cast<HBRUSH>(brush.Get()), 1, 1);
}

static void DrawIcon(const Drawing& drawing) QM_REQUIRES(CS_BalloonData) {
    const BalloonLook& look = g_balloonLook;
    const LONG size = look.IconSize;
    const LONG y = look.VerticalMargin + Scale(1) + (GetTitleHeight(drawing.Context) - size) / 2;
    DrawIconEx(drawing.Context, look.HorizontalMargin, y, look.Icon, size, size, 0, nullptr, DI_NORMAL);
}

bool IsPointInCloseButton(LPARAM place) {
    const LONG x = static_cast<short>(place & 0xFFFF);
    const LONG y = static_cast<short>(place >> 16 & 0xFFFF);
    const RECT& button = g_balloonDrawing.CloseButton;
    return x >= button.left && x <= button.right && y >= button.top && y <= button.bottom;
}

static void DrawCloseButton(const Drawing& drawing) {
    const BalloonLook& look = g_balloonLook;
    RECT& button = g_balloonDrawing.CloseButton;
    if (!look.HasCloseButton()) {
        button = {0, 0, -1, -1}; // not even the first pixel is in it
        return;
    }
    button.left = drawing.Place.Width - look.CloseWidth - Scale(6);
    button.top = look.VerticalMargin - Scale(1);
    button.right = drawing.Place.Width - Scale(6) - 1;
    button.bottom = button.top + look.CloseHeight - 1;
    const bool isHot = IsPointInCloseButton(g_balloonDrawing.LastMouse);
    WriteLog(4, "CloseButton %i,%i,%i,%i state=%i", button.left, button.top, button.right, button.bottom,
             isHot ? CloseStateHot : CloseStateNormal);
    if (look.Theme != nullptr) {
        look.Theme->DrawBackground(drawing.Context, ThemePartCloseButton, isHot ? ThemeCloseHot : ThemeCloseNormal,
                                   button);
    } else if (look.IsFlat && look.CloseIcon != nullptr && look.CloseHotIcon != nullptr) {
        DrawIconEx(drawing.Context, button.left, button.top, isHot ? look.CloseHotIcon : look.CloseIcon,
                   look.CloseWidth, look.CloseHeight, 0, nullptr, DI_NORMAL);
    } else {
        DrawFrameControl(drawing.Context, &button, DFC_CAPTION, DFCS_CAPTIONCLOSE | DFCS_FLAT);
    }
}

static void MoveToPlace(const Drawing& drawing) {
    const BalloonPlace& place = drawing.Place;
    SetWindowPos(drawing.Window, HWND_TOPMOST, place.X, place.Y, place.Width, place.Height, ShowFlags);
}

static void ShowFirstTime(const Drawing& drawing) {
    if (IsWindowVisible(drawing.Window)) {
        return;
    }
    GiveRegion(drawing);
    MoveToPlace(drawing);
    ShowWindow(drawing.Window, SW_SHOWNOACTIVATE);
}

static void ShowByCopy(const Drawing& drawing) {
    if (drawing.Place.Width < g_balloonDrawing.PreviousWidth) {
        ShowWindow(drawing.Window, SW_HIDE);
        ShowWindow(drawing.Window, SW_SHOWNOACTIVATE);
    }
    MoveToPlace(drawing);
    GiveRegion(drawing);
    if (!drawing.IsDirect()) {
        BitBlt(drawing.Screen, 0, 0, drawing.Place.Width, drawing.Place.Height, drawing.Context, 0, 0, SRCCOPY);
    }
}

static void ShowLayered(const Drawing& drawing) {
    const BalloonPlace& place = drawing.Place;
    const bool isRegionFirst = g_os.MajorVersion >= 6;
    if (isRegionFirst) {
        GiveRegion(drawing);
    }
    POINT corner = {place.X, place.Y};
    POINT source = {0, 0};
    SIZE size = {place.Width, place.Height};
    BLENDFUNCTION blend = {AC_SRC_OVER, 0, Opaque, 0};
    UpdateLayeredWindow(drawing.Window, nullptr, &corner, &size, drawing.Context, &source, 0, &blend, ULW_ALPHA);
    if (!isRegionFirst) {
        GiveRegion(drawing);
    }
    RECT rect = {};
    if (GetWindowRect(drawing.Window, &rect) && (rect.left != place.X || rect.top != place.Y)) {
        SetWindowPos(drawing.Window, HWND_TOPMOST, place.X, place.Y, place.Width, place.Height, SWP_NOACTIVATE);
    }
}

static void EnsureVisible(const Drawing& drawing) {
    if (IsWindowVisible(drawing.Window)) {
        return;
    }
    ShowWindow(drawing.Window, SW_SHOWNOACTIVATE);
    const HWND front = WindowFromPoint({drawing.Place.X + InnerPoint, drawing.Place.Y + InnerPoint});
    char className[64] = {};
    GetClassNameA(front, className, sizeof(className));
    WriteLog(3, "balloon was not visible, window at its place: 0x%p '%s'", front, className);
}

static void Paint(const Drawing& drawing) QM_REQUIRES(CS_BalloonData) {
    RenewRegion(drawing.Place);
    Fill(drawing);
    DrawOutline(drawing);
    DrawAllTexts(drawing.Context, /*isDrawing=*/true, g_balloonLook.IconSize);
    DrawIcon(drawing);
    DrawCloseButton(drawing);
}

static void DrawBalloon(HWND window, HDC screen) {
    LockGuard lock(CS_BalloonData);
    EnsureBalloonTopmost(window);
    SetReadingDirection(screen);
    MeasureAndPlace(screen);
    const BalloonPlace& place = g_balloonPlace;
    const MemoryCanvas canvas(screen, place.Width, place.Height);
    if (canvas.Context() == nullptr) {
        WriteLog(1, "BEEP CreateCompatibleBitmap(0x%p, %u, %u) err=%s", screen, static_cast<DWORD>(place.Width),
                 static_cast<DWORD>(place.Height), LastErrorName());
        Beep(4000, 100);
    }
    const Drawing drawing = {window, screen, canvas.Context() != nullptr ? canvas.Context() : screen, place};
    Paint(drawing);
    ShowFirstTime(drawing);
    if (g_balloonDrawing.IsLayered && !drawing.IsDirect()) {
        ShowLayered(drawing);
    } else {
        ShowByCopy(drawing);
    }
    g_balloonDrawing.PreviousWidth = place.Width;
    EnsureVisible(drawing);
}

void RedrawBalloon() {
    const HWND window = m_hwndBln;
    const HDC context = GetDC(window);
    if (context == nullptr) {
        WriteLog(1, "BEEP GetDC err=%s", LastErrorName());
        Beep(800, 500);
        return;
    }
    DrawBalloon(window, context);
    ReleaseDC(window, context);
}

void FadeOutBalloon() {
    if (!g_balloonDrawing.IsLayered) {
        return;
    }
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
    DWORD stepTicks = GetTickCount();
    for (const BYTE alpha : FadeSteps) {
        BLENDFUNCTION blend = {AC_SRC_OVER, 0, alpha, AC_SRC_ALPHA};
        UpdateLayeredWindow(m_hwndBln, nullptr, nullptr, nullptr, nullptr, nullptr, 0, &blend, ULW_ALPHA);
        const DWORD elapsedMs = GetTickCount() - stepTicks;
        if (elapsedMs < FadeStepMs) {
            Sleep(FadeStepMs - elapsedMs);
        }
        stepTicks = GetTickCount();
    }
}
