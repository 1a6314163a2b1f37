#include "actions/ForegroundWindow.h"

#include "support/log/LogFile.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ThreadTools.h"
#include "support/texts/BoundedText.h"

constexpr int OutOfSight = 32000;
constexpr DWORD WindowStepMs = 30;
constexpr DWORD WindowLimitMs = 3000;
constexpr DWORD SettleMs = 10;
constexpr UINT TextLimitMs = 100;
constexpr BYTE NearlyTransparent = 32;
constexpr size_t TextChars = 128;

static char g_title[32];                // set before the thread starts
static HWND volatile g_foreWindow;      // set once by the window's thread
static volatile LONG g_isWindowRefused; // the window failed

namespace {
struct WindowText {
    char text[2 * TextChars + 8];
};
} // namespace

static WindowText Describe(HWND window) {
    char title[TextChars] = {};
    char className[TextChars] = {};
    DWORD_PTR length = 0;
    if (window) {
        (void)SendMessageTimeoutA(window, WM_GETTEXT, sizeof(title), reinterpret_cast<LPARAM>(title), SMTO_ABORTIFHUNG,
                                  TextLimitMs, &length);
        (void)GetClassNameA(window, className, sizeof(className));
    }
    title[sizeof(title) - 1] = '\0';
    WindowText described;
    FormatText(described.text, "'%s' <%s>", title, className);
    return described;
}

void LogWindow(const char* what, HWND window) {
    if (LogFile_Wants(3)) {
        WriteLog(3, "%s=%s", what, Describe(window).text);
    }
}

static DWORD WINAPI CreateForeWindow_ThreadProc(void* title) {
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcA;
    windowClass.lpszClassName = ForeWindowClass;
    if (!RegisterClassA(&windowClass)) {
        WriteLog(3, " registerclass err=%u", GetLastError());
    }
    const HWND window =
        CreateWindowExA(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, ForeWindowClass, static_cast<const char*>(title),
                        WS_POPUP | WS_VISIBLE | WS_CAPTION, OutOfSight, OutOfSight, /*width=*/1, /*height=*/1,
                        GetDesktopWindow(), nullptr, nullptr, nullptr);
    if (!window) {
        g_isWindowRefused = 1;
        return 0;
    }
    g_foreWindow = window;
    ShowWindow(window, SW_SHOW);
    MSG message;
    while (IsWindow(window) && GetMessageA(&message, nullptr, 0, 0) > 0) {
        DispatchMessageA(&message);
    }
    return 1;
}

HWND StartForeWindow(const char* title) {
    CopyText(g_title, title);
    if (!StartThreadForId("CreateForeWindow_ThreadProc", CreateForeWindow_ThreadProc, g_title)) {
        return nullptr;
    }
    const DWORD startTicks = GetTickCount();
    while (!g_foreWindow && !g_isWindowRefused && GetTickCount() - startTicks < WindowLimitMs) {
        Sleep(WindowStepMs);
    }
    const HWND window = g_foreWindow;
    if (!window) {
        WriteLog(2, "MyForeWin did not come -> program starts without it");
        return nullptr;
    }
    const BOOL result = ShowWindow(window, SW_SHOW);
    const DWORD error = GetLastError();
    if (LogFile_Wants(3)) {
        WriteLog(3, "MyForeWin=%s showres=%u err=%u", Describe(window).text, static_cast<DWORD>(result), error);
    }
    Sleep(SettleMs);
    return window;
}

// A thread attached to the input of the foreground thread may take its place.
static void TakeForegroundByInput(HWND window, HWND foreground) {
    const DWORD itsThread = GetWindowThreadProcessId(window, nullptr);
    const DWORD foreThread = GetWindowThreadProcessId(foreground, nullptr);
    if (itsThread == foreThread) {
        return;
    }
    const BOOL isAttached = AttachThreadInput(foreThread, itsThread, /*attach=*/TRUE);
    WriteLog(3, " AttachThreadInput(%u, %u, 1) res=%u", foreThread, itsThread, static_cast<DWORD>(isAttached));
    const BOOL isSet = SetForegroundWindow(window);
    WriteLog(3, " SetForegroundWindow res=%u", static_cast<DWORD>(isSet));
    if (isAttached) {
        const BOOL isDetached = AttachThreadInput(foreThread, itsThread, /*attach=*/FALSE);
        WriteLog(3, " AttachThreadInput(%u, %u, 0) res=%u", foreThread, itsThread, static_cast<DWORD>(isDetached));
    }
}

// The window that got the last click may take the foreground, so it moves under the cursor and is clicked.
static void TakeForegroundByClick(HWND window) {
    POINT cursor = {};
    (void)GetCursorPos(&cursor);
    // Only a layered window can be made transparent. A style that cannot be read would be overwritten.
    const LONG style = GetWindowLongA(window, GWL_EXSTYLE);
    if (style != 0) {
        (void)SetWindowLongA(window, GWL_EXSTYLE, style | WS_EX_LAYERED);
    }
    (void)SetLayeredWindowAttributes(window, /*colorKey=*/0, NearlyTransparent, LWA_ALPHA);
    (void)SetWindowPos(window, HWND_TOPMOST, cursor.x, cursor.y, /*width=*/1, /*height=*/1, SWP_SHOWWINDOW);
    // A click on anything else would reach the user's program.
    if (WindowFromPoint(cursor) != window) {
        return;
    }
    WriteLog(3, " send mouseclick");
    mouse_event(MOUSEEVENTF_LEFTDOWN, 0, 0, 0, 0);
    mouse_event(MOUSEEVENTF_LEFTUP, 0, 0, 0, 0);
    (void)SetForegroundWindow(window);
}

void ForceMyDummyWindowToForeground(HWND window) {
    const HWND foreground = GetForegroundWindow();
    if (foreground == window) {
        return;
    }
    TakeForegroundByInput(window, foreground);
    if (GetForegroundWindow() != window) {
        TakeForegroundByClick(window);
    }
    if (GetForegroundWindow() == window) {
        keybd_event(VK_LSHIFT, 0, 0, 0);
        keybd_event(VK_LSHIFT, 0, KEYEVENTF_KEYUP, 0);
    }
}
