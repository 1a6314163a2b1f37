#include "balloon/CUxTheme.h"

#include "balloon/GdiObjects.h"
#include "support/log/LogFile.h"
#include "support/system/SystemTools.h"

constexpr int MaxWideChars = 1024;
constexpr LONG ProbeWidth = 200;
constexpr LONG ProbeHeight = 40;

namespace {
// The library takes wide texts only.
struct WideText {
    WCHAR Text[MaxWideChars];
    int Length; // without a final zero

    explicit WideText(const char* text) : Text{}, Length(0) {
        int chars = lstrlenA(text);
        if (chars > MaxWideChars) {
            chars = MaxWideChars;
        }
        Length = chars == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, text, chars, Text, MaxWideChars);
    }
};
} // namespace

CUxTheme::CUxTheme()
    : m_library(LoadSystemLibrary("UxTheme.dll")), m_commonControls(LoadSystemLibrary("comctl32.dll")) {
    using InitCommonControlsCall = void(WINAPI*)();
    if (const auto init = FindOperation<InitCommonControlsCall>(m_commonControls.Get(), "InitCommonControls")) {
        init();
    }
    m_openThemeData = FindOperation<OpenThemeDataCall>(m_library.Get(), "OpenThemeData");
    m_isThemeActive = FindOperation<IsThemeActiveCall>(m_library.Get(), "IsThemeActive");
    m_drawThemeBackground = FindOperation<DrawThemeBackgroundCall>(m_library.Get(), "DrawThemeBackground");
    m_drawThemeText = FindOperation<DrawThemeTextCall>(m_library.Get(), "DrawThemeText");
    m_getThemeTextExtent = FindOperation<GetThemeTextExtentCall>(m_library.Get(), "GetThemeTextExtent");
}

bool CUxTheme::Open(HWND window) {
    const bool isComplete = m_openThemeData != nullptr && m_isThemeActive != nullptr &&
                            m_drawThemeBackground != nullptr && m_drawThemeText != nullptr &&
                            m_getThemeTextExtent != nullptr;
    if (!isComplete) {
        return false;
    }
    static constexpr WCHAR ToolTipClass[] = {'T', 'O', 'O', 'L', 'T', 'I', 'P', 0};
    m_theme = m_openThemeData(window, ToolTipClass);
    return m_theme != nullptr && IsUsable();
}

// A broken theme still opens, and then measures nonsense.
bool CUxTheme::IsUsable() const {
    if (!m_isThemeActive()) {
        return false;
    }
    const OwnedContext context(CreateCompatibleDC(nullptr));
    RECT extent = {0, 0, ProbeWidth, ProbeHeight};
    const HRESULT result = MeasureText(context.Get(), ThemePartBalloon, /*state=*/1, "Test", /*format=*/0, &extent);
    if (result != 0) {
        WriteLog(1, "UxTheme failed to draw (0x%08X)", static_cast<DWORD>(result));
        return false;
    }
    if (extent.right < 1 || extent.right > ProbeWidth || extent.bottom < 1 || extent.bottom > ProbeHeight) {
        WriteLog(1, "UxTheme looks invalid -> don't use");
        return false;
    }
    return true;
}

void CUxTheme::DrawBackground(HDC context, int part, int state, const RECT& rect) const {
    (void)m_drawThemeBackground(m_theme, context, part, state, &rect, nullptr);
}

HRESULT CUxTheme::DrawText(HDC context, int part, int state, const char* text, DWORD format, const RECT& rect) const {
    const WideText wide(text);
    return m_drawThemeText(m_theme, context, part, state, wide.Text, wide.Length, format, 0, &rect);
}

HRESULT CUxTheme::MeasureText(HDC context, int part, int state, const char* text, DWORD format, RECT* rect) const {
    const WideText wide(text);
    RECT extent = {};
    const HRESULT result =
        m_getThemeTextExtent(m_theme, context, part, state, wide.Text, wide.Length, format, rect, &extent);
    if (result == 0) {
        *rect = extent;
    }
    return result;
}
