#include "balloon/BalloonWindow.h"

#include "balloon/BalloonDrawing.h"
#include "balloon/BalloonLayout.h"
#include "balloon/BalloonPipe.h"
#include "balloon/BalloonPosition.h"
#include "balloon/BalloonSettings.h"
#include "balloon/BalloonState.h"
#include "balloon/ForeignBalloons.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ScopeGuard.h"
#include "support/system/WindowDpi.h"
#include "support/system/WorkerThreads.h"

constexpr char WindowClass[] = "TarnHolveBalloonTipClass";
constexpr char WindowTitle[] = "TarnHolveBalloonTip";
constexpr UINT_PTR CloseTimerId = 0x17062006;
constexpr DWORD FirstThemedBcd = 0x0501; // Windows XP: themes and drop shadows
constexpr DWORD PingAnswerMs = 500;
constexpr DWORD CloseMs = 30;
constexpr DWORD ForegroundReleaseMs = 1000;
constexpr DWORD TrackingEndMs = 1000;
constexpr UINT MetricsBeforeVista = 340;
constexpr UINT MetricsFromVista = 344;
constexpr int CloseIconId = 311;
constexpr int CloseHotIconId = 312;

static HINSTANCE g_instance;    // of the program, for its class and icons; set at the start
static HANDLE g_trackingThread; // balloon thread

static void CALLBACK CloseFreeBalloon_TimerProc(HWND window, UINT message, UINT_PTR id, DWORD tick);

void FreeBalloon_Init(HINSTANCE instance) {
    g_instance = instance;
    InitializeCriticalSection(&CS_BalloonData);
    const BalloonStyles styles = ReadBalloonStyles();
    BalloonLook& look = g_balloonLook;
    look.IsWin11 = styles.Win11Style;
    look.IsFlat = styles.Win10Style;
    g_balloonDpi = GetWindowDpi(FindTaskBarOrDesktop());
    look.HorizontalMargin = Scale(12);
    look.VerticalMargin = Scale(6);
    look.Colours = ReadBalloonColours(look.IsFlat);
}

void FreeBalloon_Exit() {
    if (LiveWorkers() == 0) {
        DeleteCriticalSection(&CS_BalloonData);
    }
}

void SetTrackingThread(HANDLE thread) {
    g_trackingThread = thread;
}

static DWORD ShowTimeMs() {
    LockGuard lock(CS_BalloonData);
    return static_cast<DWORD>(g_balloonInfo.ShowTime);
}

static void StartCloseTimer(HWND window) {
    const DWORD showTimeMs = ShowTimeMs();
    const UINT_PTR result = SetTimer(window, CloseTimerId, showTimeMs, CloseFreeBalloon_TimerProc);
    if (result == 0) {
        WriteLog(2, "SetTimer(0x%p, %u) err=%s", window, showTimeMs, LastErrorName());
    } else {
        WriteLog(3, "SetTimer(0x%p, %u) res=%u", window, showTimeMs, static_cast<DWORD>(result));
    }
}

bool IsBalloonMessage(const MSG& message) {
    return message.message != WM_TIMER ||
           (message.wParam == CloseTimerId && message.lParam == reinterpret_cast<LPARAM>(CloseFreeBalloon_TimerProc));
}

// Asks an older balloon to close. Returns: whether the existing window is this process's own.
static bool MeetOlderBalloon() {
    HWND older = FindWindowA(WindowClass, WindowTitle);
    if (older == nullptr) {
        return false;
    }
    PostMessageA(older, WM_BALLOON_PING, 0, 0);
    Sleep(PingAnswerMs);
    older = FindWindowA(WindowClass, WindowTitle);
    if (older == nullptr) {
        return false;
    }
    DWORD processId = 0;
    GetWindowThreadProcessId(older, &processId);
    if (processId == GetCurrentProcessId()) {
        return true;
    }
    PostMessageA(older, WM_CLOSE, 0, 0);
    return false;
}

static bool IsSystemFlagOn(UINT action) {
    BOOL value = FALSE;
    return SystemParametersInfoA(action, 0, &value, 0) && value;
}

static LRESULT CALLBACK BalloonWndProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

static void RegisterBalloonClass() {
    WNDCLASSA windowClass = {};
    windowClass.style = g_os.VersionBcd >= FirstThemedBcd ? CS_DROPSHADOW : 0;
    windowClass.lpfnWndProc = BalloonWndProc;
    windowClass.hInstance = g_instance;
    windowClass.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    windowClass.lpszClassName = WindowClass;
    const ATOM atom = RegisterClassA(&windowClass);
    WriteLog(4, "RegisterClass(%s) %s", WindowClass, ResultText(atom));
}

static bool CreateBalloonWindow() {
    RegisterBalloonClass();
    const bool isAnimated = IsSystemFlagOn(SPI_GETTOOLTIPANIMATION);
    const bool isFading = IsSystemFlagOn(SPI_GETTOOLTIPFADE);
    WriteLog(3, "TT-Ani=%u TT-Fade=%u", isAnimated ? 1U : 0U, isFading ? 1U : 0U);
    g_balloonDrawing.IsLayered = isAnimated && isFading;
    DWORD extendedStyle = WS_EX_TOPMOST | WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE;
    if (g_balloonLook.IsLayoutMirrored) {
        extendedStyle |= WS_EX_NOINHERITLAYOUT;
    }
    if (g_balloonDrawing.IsLayered) {
        extendedStyle |= WS_EX_LAYERED;
    }
    m_hwndBln = CreateWindowExA(extendedStyle, WindowClass, WindowTitle, WS_POPUP, 0, 0, CW_USEDEFAULT, CW_USEDEFAULT,
                                GetDesktopWindow(), nullptr, g_instance, nullptr);
    return m_hwndBln != nullptr;
}

static void TakeTaskBarLook() {
    const HWND bar = FindTaskBarOrDesktop();
    g_balloonDpi = GetWindowDpi(bar);
    g_balloonLook.IsLayoutMirrored = (static_cast<DWORD>(GetWindowLongA(bar, GWL_EXSTYLE)) & WS_EX_LAYOUTRTL) != 0;
}

static void OpenTheme(HWND window) {
    if (g_os.VersionBcd < FirstThemedBcd || g_balloonLook.IsFlat) {
        return;
    }
    Owned<CUxTheme> theme(new CUxTheme);
    if (theme->Open(window)) {
        delete g_balloonLook.Theme;
        g_balloonLook.Theme = theme.Release();
    }
}

static HICON LoadBalloonIcon(LONG id) {
    const int size = g_balloonLook.IconSize;
    return static_cast<HICON>(
        LoadImageA(g_instance, MAKEINTRESOURCEA(static_cast<WORD>(id)), IMAGE_ICON, size, size, LR_SHARED));
}

static LONG IconId() {
    LockGuard lock(CS_BalloonData);
    return g_balloonInfo.Icon;
}

static void LoadIcons() {
    BalloonLook& look = g_balloonLook;
    if (look.IsFlat) {
        if (look.CloseIcon == nullptr) {
            look.CloseIcon = LoadBalloonIcon(CloseIconId);
        }
        if (look.CloseHotIcon == nullptr) {
            look.CloseHotIcon = LoadBalloonIcon(CloseHotIconId);
        }
    }
    if (look.Icon == nullptr) {
        look.Icon = LoadBalloonIcon(IconId());
    }
}

static bool ReadMetrics(NONCLIENTMETRICSA* metrics, UINT size) {
    metrics->cbSize = size;
    if (SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, size, metrics, 0)) {
        return true;
    }
    WriteLog(1, "SystemParametersInfo(SPI_GETNONCLIENTMETRICS)  err=%s", LastErrorName());
    return false;
}

static bool CreateBalloonFont(const LOGFONTA& font, HFONT* created) {
    *created = CreateFontIndirectA(&font);
    if (*created == nullptr) {
        WriteLog(1, "error %s creating font %s(%i)", LastErrorName(), font.lfFaceName, font.lfHeight);
    }
    return *created != nullptr;
}

static LONG CharSet() {
    LockGuard lock(CS_BalloonData);
    return g_balloonInfo.CharSet;
}

static void DeleteFonts() {
    for (HFONT* font : {&g_balloonLook.TitleFont, &g_balloonLook.TextFont}) {
        if (*font != nullptr) {
            DeleteObject(*font);
            *font = nullptr;
        }
    }
}

static bool CreateFonts() {
    // Windows writes the long form into it, for which the type may lack room.
    struct {
        NONCLIENTMETRICSA metrics;
        BYTE rest[MetricsFromVista - MetricsBeforeVista];
    } buffer = {};
    if (!ReadMetrics(&buffer.metrics, MetricsBeforeVista) && !ReadMetrics(&buffer.metrics, MetricsFromVista)) {
        return false;
    }
    LOGFONTA title = buffer.metrics.lfSmCaptionFont;
    LOGFONTA text = buffer.metrics.lfStatusFont;
    if (g_balloonLook.IsFlat) {
        title.lfHeight = title.lfHeight * 14 / 10;
        text.lfHeight = text.lfHeight * 13 / 10;
        text.lfWeight = FW_NORMAL;
    }
    const BYTE charSet = static_cast<BYTE>(CharSet());
    title.lfCharSet = charSet;
    text.lfCharSet = charSet;
    DeleteFonts();
    return CreateBalloonFont(title, &g_balloonLook.TitleFont) && CreateBalloonFont(text, &g_balloonLook.TextFont);
}

// The new window with all that is drawn on it. Returns: whether it can be shown.
static bool PrepareBalloonWindow() {
    g_balloonClosing = 0;
    TakeTaskBarLook();
    if (!CreateBalloonWindow()) {
        return false;
    }
    OpenTheme(m_hwndBln);
    g_balloonDrawing.PreviousWidth = 0;
    g_balloonDrawing.CloseState = CloseStateNormal;
    WriteLog(2, "m_hwndBln = 0x%p", m_hwndBln);
    g_balloonLook.IconSize = IconSizeForDpi(g_balloonDpi);
    LoadIcons();
    if (!g_balloonLook.HasThemedText() && !CreateFonts()) {
        return false;
    }
    SetCloseButtonSize();
    return true;
}

void ShowBalloonNow() {
    WriteLog(3, "ShowBalloonNow()");
    StartClosingForeignBalloons();
    if (!MeetOlderBalloon() && !PrepareBalloonWindow()) {
        return;
    }
    StartCloseTimer(m_hwndBln);
    RedrawBalloon();
}

static void UpdateCloseButtonState() {
    const LONG state = IsPointInCloseButton(g_balloonDrawing.LastMouse) ? CloseStateHot : CloseStateNormal;
    if (state == g_balloonDrawing.CloseState) {
        return;
    }
    WriteLog(3, "CloseButton state changed from %i to %i", g_balloonDrawing.CloseState, state);
    RedrawBalloon();
    g_balloonDrawing.CloseState = state;
}

static void OnMouseMove(HWND window, LPARAM place) {
    if (place == g_balloonDrawing.LastMouse) {
        return; // Windows sends mouse moves without a move when windows come and go
    }
    StartCloseTimer(window);
    g_balloonDrawing.LastMouse = place;
    if (g_balloonLook.Theme != nullptr || g_balloonLook.IsFlat) {
        UpdateCloseButtonState();
    }
}

static void OnButtonUp(HWND window) {
    WriteLog(3, "WM_xButtonUp");
    FadeOutBalloon();
    if (GetForegroundWindow() == window) {
        // Hidden first: the window that gets the foreground next paints what was below.
        SetWindowPos(window, HWND_TOPMOST, -32, -32, 1, 1, SWP_NOACTIVATE);
        Sleep(ForegroundReleaseMs);
    }
    g_balloonClosing = 1;
    Sleep(CloseMs);
    PostMessageA(window, WM_CLOSE, 0, 0);
}

static void OnClose(HWND window) {
    WriteLog(3, "Balloon WM_CLOSE");
    SendExitToBalloonPipe();
    ShowWindow(window, SW_HIDE);
    g_balloonClosing = 1;
    StopClosingForeignBalloons();
    if (g_trackingThread != nullptr) {
        (void)WaitForSingleObject(g_trackingThread, TrackingEndMs); // it ends by itself, later if it is slow
        CloseGlobal<ThreadKind>(g_trackingThread);
    }
    DestroyWindow(window);
}

static void DestroyIcons() {
    BalloonLook& look = g_balloonLook;
    for (HICON* icon : {&look.Icon, &look.CloseIcon, &look.CloseHotIcon}) {
        if (*icon != nullptr) {
            DestroyIcon(*icon);
            *icon = nullptr;
        }
    }
}

static void OnDestroy(HWND window) {
    WriteLog(3, "BalloonWin: WM_DESTROY TT");
    SetWindowRgn(window, nullptr, FALSE);
    if (g_balloonDrawing.Region != nullptr) {
        DeleteObject(g_balloonDrawing.Region);
        g_balloonDrawing.Region = nullptr;
    }
    DestroyIcons();
    DeleteFonts();
    delete g_balloonLook.Theme;
    g_balloonLook.Theme = nullptr;
    PostQuitMessage(0);
    m_hwndBln = nullptr;
}

// A record came through the pipe: its time starts again, and the window is resized at the same anchor.
static void OnUpdate(HWND window) {
    if (!IsWindowVisible(window)) {
        return;
    }
    StartCloseTimer(window);
    g_balloonDrawing.RepaintsByRegion = true;
    RedrawBalloon();
}

static LRESULT CALLBACK BalloonWndProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_DESTROY:
        OnDestroy(window);
        return 0;
    case WM_SETTEXT:
        return 0;
    case WM_PAINT:
        ValidateRect(window, nullptr);
        return 0;
    case WM_CLOSE:
        OnClose(window);
        return 0;
    case WM_ERASEBKGND:
        return 1;
    case WM_MOUSEMOVE:
        OnMouseMove(window, lParam);
        return 0;
    case WM_BALLOON_PING:
        StartCloseTimer(window);
        return 0;
    case WM_BALLOON_HOLD:
        if (IsWindowVisible(window)) { // a window that never shows keeps the timer that closes it
            KillTimer(window, CloseTimerId);
        }
        return 0;
    case WM_BALLOON_UPDATE:
        OnUpdate(window);
        return 0;
    case WM_BALLOON_REDRAW:
        RedrawBalloon();
        return 0;
    case WM_LBUTTONUP:
    case WM_RBUTTONUP:
    case WM_MBUTTONUP:
        OnButtonUp(window);
        return 0;
    default:
        return DefWindowProcA(window, message, wParam, lParam);
    }
}

static void CALLBACK CloseFreeBalloon_TimerProc(HWND window, UINT, UINT_PTR id, DWORD) {
    WriteLog(3, "CloseFreeBalloon_TimerProc");
    KillTimer(window, id);
    FadeOutBalloon();
    PostMessageA(window, WM_CLOSE, 0, 0);
}
