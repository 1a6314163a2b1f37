// The visual styles library, loaded at run time: Windows before 5.1 lacks it and a user may have disabled it. An
// object that is usable draws the parts of a themed tool tip; the balloon does without when there is none.
// Thread: the balloon thread. No lock.
#pragma once

#include "platform/win32.h"
#include "support/system/Handles.h"

// Parts and states of the class TOOLTIP.
constexpr int ThemePartBalloon = 3;
constexpr int ThemePartBalloonTitle = 4;
constexpr int ThemePartCloseButton = 5;
constexpr int ThemeCloseNormal = 1;
constexpr int ThemeCloseHot = 2;

class CUxTheme {
public:
    // Loads the library and the common controls, whose classes the theme needs.
    CUxTheme();
    CUxTheme(const CUxTheme&) = delete;
    CUxTheme& operator=(const CUxTheme&) = delete;

    // Opens the tool tip's theme for a window and tests it. Returns: whether it can be used.
    bool Open(HWND window);

    // rect: of the whole part. A part that cannot be drawn leaves the area unchanged.
    void DrawBackground(HDC context, int part, int state, const RECT& rect) const;
    // text: ANSI, at most 1024 characters of it. Returns: 0, else the failure.
    HRESULT DrawText(HDC context, int part, int state, const char* text, DWORD format, const RECT& rect) const;
    // *rect: the bounds in, the text's place out; unchanged after a failure.
    HRESULT MeasureText(HDC context, int part, int state, const char* text, DWORD format, RECT* rect) const;

private:
    bool IsUsable() const;

    using OpenThemeDataCall = HANDLE(WINAPI*)(HWND, LPCWSTR);
    using IsThemeActiveCall = BOOL(WINAPI*)();
    using DrawThemeBackgroundCall = HRESULT(WINAPI*)(HANDLE, HDC, int, int, const RECT*, const RECT*);
    using DrawThemeTextCall = HRESULT(WINAPI*)(HANDLE, HDC, int, int, LPCWSTR, int, DWORD, DWORD, const RECT*);
    using GetThemeTextExtentCall = HRESULT(WINAPI*)(HANDLE, HDC, int, int, LPCWSTR, int, DWORD, const RECT*, RECT*);

    OwnedLibrary m_library; // also closes the theme handle
    OwnedLibrary m_commonControls;
    HANDLE m_theme = nullptr;
    OpenThemeDataCall m_openThemeData = nullptr;
    IsThemeActiveCall m_isThemeActive = nullptr;
    DrawThemeBackgroundCall m_drawThemeBackground = nullptr;
    DrawThemeTextCall m_drawThemeText = nullptr;
    GetThemeTextExtentCall m_getThemeTextExtent = nullptr;
};
