#include "support/system/WindowDpi.h"

#include "support/system/OsVersion.h"
#include "support/system/SystemTools.h"

constexpr DWORD BcdTen = 0x1000;
constexpr DWORD BcdEightOne = 0x0603;
constexpr DWORD FirstBuildWithWindowDpi = 14393;
constexpr int EffectiveDpi = 0;
constexpr UINT UnscaledDpi = 96; // for a desktop that gives no device context

using GetDpiForWindowOperation = UINT(WINAPI*)(HWND);
using GetDpiForMonitorOperation = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*);

// Each of the two returns 0 if this Windows or this window has no answer.
static UINT AskWindow(HWND window) {
    if (g_os.VersionBcd < BcdTen || g_os.BuildNumber < FirstBuildWithWindowDpi) {
        return 0;
    }
    const SystemLibrary user("user32.dll");
    const auto getDpi = user.Find<GetDpiForWindowOperation>("GetDpiForWindow");
    return getDpi ? getDpi(window) : 0;
}

static UINT AskMonitor(HWND window) {
    if (g_os.VersionBcd < BcdEightOne) {
        return 0;
    }
    const SystemLibrary shcore("Shcore.dll");
    const auto getDpi = shcore.Find<GetDpiForMonitorOperation>("GetDpiForMonitor");
    UINT x = 0;
    UINT y = 0;
    RECT place = {};
    if (getDpi && GetWindowRect(window, &place)) {
        (void)getDpi(MonitorFromRect(&place, MONITOR_DEFAULTTONEAREST), EffectiveDpi, &x, &y); // a failure leaves 0
    }
    return x;
}

UINT GetWindowDpi(HWND window) {
    UINT dpi = AskWindow(window);
    if (dpi == 0) {
        dpi = AskMonitor(window);
    }
    if (dpi == 0) {
        const HDC context = GetDC(window);
        dpi = static_cast<UINT>(GetDeviceCaps(context, LOGPIXELSX));
        ReleaseDC(window, context);
    }
    return dpi != 0 ? dpi : UnscaledDpi;
}
