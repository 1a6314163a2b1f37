#include "host/MainWindow.h"

#include "engine/NewDeviceArrived.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/MessageTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

constexpr WORD IconResource = 101;
constexpr DWORD MainWindowStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
static_assert(MainWindowStyle == 0x80CA0000);
// The window colour of the user's theme.
constexpr ULONG_PTR WindowColourBrush = COLOR_WINDOW + 1;
static_assert(WindowColourBrush == 6);
constexpr int WindowLeft = 32;
constexpr int WindowTop = 32;
constexpr int WindowWidth = 256;
constexpr int WindowHeight = 96;

static void ShowWindowError(const char* format) {
    char text[512];
    FormatText(text, format, LastErrorText());
    ShowMessage(text, MB_ICONSTOP);
}

int CreateMainWindowProc(HINSTANCE hInstance) {
    WriteLog(3, "CreateMainWindowProc");
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = MainWndProc;
    windowClass.hInstance = hInstance;
    windowClass.hIcon = LoadIconA(hInstance, MAKEINTRESOURCEA(IconResource));
    windowClass.hCursor = LoadCursorA(nullptr, reinterpret_cast<LPCSTR>(IDC_ARROW));
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(WindowColourBrush);
    windowClass.lpszClassName = MainWindowClass;
    if (!RegisterClassA(&windowClass)) {
        ShowWindowError("Error registering the window class err=%s");
        return 0;
    }
    g_hwndMain = CreateWindowExA(/*extendedStyle=*/0, MainWindowClass, MainWindowTitle, MainWindowStyle, WindowLeft,
                                 WindowTop, WindowWidth, WindowHeight, nullptr, nullptr, hInstance, nullptr);
    if (g_hwndMain == nullptr) {
        ShowWindowError("Error creating the main window err=%s");
        return 0;
    }
    WriteLog(3, "g_hwndMain=%u", static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(g_hwndMain)));
    RegisterDeviceNotifications(g_hwndMain, DEVICE_NOTIFY_WINDOW_HANDLE);
    ShowWindow(g_hwndMain, SW_SHOWNORMAL);
    return 0;
}
