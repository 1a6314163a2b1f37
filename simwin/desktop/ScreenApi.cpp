// The screen, what the user has set for it, and message boxes.
#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Setup.h"

#include <cstring>

namespace machine {

using namespace simwin;

const HMONITOR TheMonitor = reinterpret_cast<HMONITOR>(0x40001ull);
constexpr UINT BoxIcons = 0xF0;
constexpr UINT ShortMetrics = 340, LongMetrics = 344;
constexpr unsigned FirstWithLongMetrics = 6;
constexpr LONG FontPoints = 9, PointsPerInch = 72;
constexpr LONG NormalWeight = 400, BoldWeight = 700;

static LONG FontHeight() {
    return (FontPoints * TheSetup().dpi + PointsPerInch / 2) / PointsPerInch;
}

static LOGFONTA FontOf(LONG weight) {
    LOGFONTA font = {};
    font.lfHeight = -FontHeight();
    font.lfWeight = weight;
    font.lfCharSet = 1; // DEFAULT_CHARSET
    std::strcpy(font.lfFaceName, TheSetup().version.major >= FirstWithLongMetrics ? "Segoe UI" : "Tahoma");
    return font;
}

// data: a buffer whose first word is its size, 340 or 344 bytes.
static bool FillMetrics(void* data) {
    UINT size = 0;
    std::memcpy(&size, data, sizeof(size));
    const bool isKnown =
        size == ShortMetrics || (size == LongMetrics && TheSetup().version.major >= FirstWithLongMetrics);
    if (!isKnown) {
        return false;
    }
    NONCLIENTMETRICSA metrics = {};
    metrics.cbSize = size;
    metrics.lfCaptionFont = metrics.lfSmCaptionFont = FontOf(BoldWeight);
    metrics.lfMenuFont = metrics.lfStatusFont = metrics.lfMessageFont = FontOf(NormalWeight);
    std::memcpy(data, &metrics, size);
    return true;
}

} // namespace machine

namespace simwin {

using namespace machine;

HMONITOR MonitorFromRect(const RECT*, DWORD flags) {
    SIM_CALL("MonitorFromRect", "");
    if (flags != MONITOR_DEFAULTTONEAREST) {
        NotModelled("MonitorFromRect", "flags other than the nearest monitor");
    }
    return TheMonitor;
}

int GetSystemMetrics(int index) {
    SIM_CALL("GetSystemMetrics", "");
    if (index != SM_CXSCREEN && index != SM_CYSCREEN) {
        NotModelled("GetSystemMetrics", "an index other than the screen's size");
    }
    return index == SM_CXSCREEN ? TheSetup().screenWidth : TheSetup().screenHeight;
}

COLORREF GetSysColor(int index) {
    SIM_CALL("GetSysColor", "");
    if (index != COLOR_INFOTEXT && index != COLOR_INFOBK) {
        NotModelled("GetSysColor", "colours other than those of tool tips");
    }
    return index == COLOR_INFOTEXT ? TheAppearance().infoText : TheAppearance().infoBack;
}

BOOL SystemParametersInfoA(UINT action, UINT, PVOID data, UINT) {
    SIM_CALL("SystemParametersInfoA", "", ERROR_INVALID_PARAMETER);
    bool isDone = !simCall.error;
    if (isDone) {
        switch (action) {
        case SPI_GETNONCLIENTMETRICS:
            isDone = FillMetrics(data);
            break;
        case SPI_GETTOOLTIPANIMATION:
            *static_cast<BOOL*>(data) = TRUE;
            break;
        case SPI_GETTOOLTIPFADE:
            *static_cast<BOOL*>(data) = TheAppearance().tooltipFade;
            break;
        default:
            NotModelled("SystemParametersInfoA", "actions other than those that are declared");
        }
    }
    if (!isDone) {
        machine::SetError(ERROR_INVALID_PARAMETER);
    }
    return isDone;
}

// Programs that must run where these are missing look them up at run time.
static UINT GetDpiForWindow(HWND window) {
    SIM_CALL("GetDpiForWindow", "");
    const bool isThere = window == DesktopWindow || WindowFor(window);
    return isThere ? static_cast<UINT>(TheSetup().dpi) : 0;
}

static HRESULT GetDpiForMonitor(HMONITOR monitor, int kind, UINT* x, UINT* y) {
    SIM_CALL("GetDpiForMonitor", "");
    constexpr int EffectiveDpi = 0;
    constexpr HRESULT InvalidArgument = static_cast<HRESULT>(0x80070057);
    if (kind != EffectiveDpi) {
        NotModelled("GetDpiForMonitor", "a kind other than the effective one");
    }
    if (monitor != TheMonitor) {
        return InvalidArgument;
    }
    *x = *y = static_cast<UINT>(TheSetup().dpi);
    return 0;
}

static const OptionalOperation Optional[] = {
    {"user32.dll", "GetDpiForWindow", AsProc(GetDpiForWindow), 0x0A00, 14393},
    {"shcore.dll", "GetDpiForMonitor", AsProc(GetDpiForMonitor), 0x0603},
};

int MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT flags) {
    SIM_CALL("MessageBoxA", text, ERROR_INVALID_WINDOW_HANDLE);
    if (flags & ~(BoxIcons | MB_SYSTEMMODAL)) {
        NotModelled("MessageBoxA", "buttons other than OK");
    }
    if (simCall.error || (owner && owner != DesktopWindow && !WindowFor(owner))) {
        machine::SetError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    DesktopState& desktop = TheDesktop();
    std::uint64_t waitMs = 0;
    for (const BoxAnswer& answer : desktop.answers) {
        if (std::string_view(text).find(answer.text) != std::string_view::npos) {
            if (answer.button != IDOK) {
                NotModelled("MessageBoxA", "an answer by a button that the box has not");
            }
            waitMs = answer.afterMs;
            break;
        }
    }
    desktop.boxes.push_back({Now(), caption, text, flags, CurrentProcess()->id, IDOK});
    if (waitMs > 0) {
        SleepMs(waitMs);
    }
    return IDOK;
}

} // namespace simwin
