// Device contexts, bitmaps, fonts, regions, icons, layered windows and visual styles. What is drawn goes into lists, as
// items with their place, text, colour and size; see DisplayList.h.
#pragma once

#include "simwin/desktop/api.h"

namespace simwin {

// --- Device contexts. State: the list of the window or of the bitmap that they draw on, and what is selected.
// Drawing on a window's context changes the window at once; on a memory context it stays in the bitmap.
HDC GetDC(HWND window); // null: the screen's. null with 1400; never waits for the window's thread
int ReleaseDC(HWND window, HDC context);
inline constexpr int HORZRES = 8;
inline constexpr int VERTRES = 10;
inline constexpr int LOGPIXELSX = 88;
int GetDeviceCaps(HDC context, int index); // those three
// With one pixel of bitmap until one is selected; adopts the layout. null with 8, 6 for an invalid context.
HDC CreateCompatibleDC(HDC context);
BOOL DeleteDC(HDC context);                                         // FALSE with 6
HBITMAP CreateCompatibleBitmap(HDC context, int width, int height); // null with 8, 87
// The one that was selected before; null with 6 for an invalid object, also for a bitmap that is selected elsewhere.
HGDIOBJ SelectObject(HDC context, HGDIOBJ object);
BOOL DeleteObject(HGDIOBJ object); // FALSE for one that is selected somewhere, or is invalid
inline constexpr int NULL_PEN = 8;
HGDIOBJ GetStockObject(int index);        // NULL_PEN
HBRUSH CreateSolidBrush(COLORREF colour); // null with 8
inline constexpr int TRANSPARENT = 1;
inline constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;
COLORREF SetTextColor(HDC context, COLORREF colour); // the colour before; CLR_INVALID
COLORREF SetBkColor(HDC context, COLORREF colour);
int SetBkMode(HDC context, int mode); // the mode before; 0
inline constexpr UINT TA_RTLREADING = 256;
UINT SetTextAlign(HDC context, UINT align); // the alignment before; GDI_ERROR
inline constexpr DWORD GDI_ERROR = 0xFFFFFFFF;
// LAYOUT_RTL mirrors everything but the glyphs: x counts from the right edge of what is drawn on.
inline constexpr DWORD LAYOUT_RTL = 1;
DWORD SetLayout(HDC context, DWORD layout); // the layout before; GDI_ERROR
BOOL SetProcessDefaultLayout(DWORD layout); // for windows made later; 0 only
// Copies the whole drawing of a bitmap onto a window or another bitmap. FALSE with 6.
inline constexpr DWORD SRCCOPY = 0x00CC0020;
BOOL BitBlt(HDC to, int x, int y, int width, int height, HDC from, int fromX, int fromY, DWORD operation);

// --- Shapes and regions.
BOOL RoundRect(HDC context, int left, int top, int right, int bottom, int width, int height); // with the null pen
HRGN CreateRoundRectRgn(int left, int top, int right, int bottom, int width, int height);     // null with 8
BOOL FrameRgn(HDC context, HRGN region, HBRUSH brush, int width, int height); // an outline inside the region
// The window owns the region from then on. 0 with 1400, 6. null: none. Waits for another thread's window.
int SetWindowRgn(HWND window, HRGN region, BOOL redraw);

// --- Fonts and texts. A font of height -h has characters of width (h + 1) / 2 and lines of h * 4 / 3 pixels.
inline constexpr LONG FW_NORMAL = 400;
inline constexpr LONG FW_BOLD = 700;
HFONT CreateFontIndirectA(const LOGFONTA* font); // negative heights; null with 8
inline constexpr UINT DT_RIGHT = 0x0002;
inline constexpr UINT DT_CALCRECT = 0x0400;
inline constexpr UINT DT_NOPREFIX = 0x0800;
inline constexpr UINT DT_RTLREADING = 0x20000;
// The height of the text, whose lines end at their line ends. DT_CALCRECT: *rect takes its size and nothing is drawn.
// 0 with 6. Only with DT_NOPREFIX or DT_CALCRECT, and these flags.
int DrawTextA(HDC context, LPCSTR text, int count, LPRECT rect, UINT format);

// --- Icons. Those of the program's resources in the size asked for; a size is one icon.
#define IDC_ARROW MAKEINTRESOURCEA(32512)
HICON LoadIconA(HINSTANCE instance, LPCSTR name);     // from the program's resources; null with 1813, 1814
HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name); // the system's arrow
inline constexpr UINT IMAGE_ICON = 1;
inline constexpr UINT LR_SHARED = 0x8000;
HANDLE LoadImageA(HINSTANCE instance, LPCSTR name, UINT kind, int width, int height,
                  UINT flags); // null with 1813, 1814
BOOL DestroyIcon(HICON icon);  // TRUE for a shared one, which stays; FALSE with 1402
inline constexpr DWORD ERROR_INVALID_CURSOR_HANDLE = 1402;
inline constexpr UINT DI_NORMAL = 3;
BOOL DrawIconEx(HDC context, int x, int y, HICON icon, int width, int height, UINT step, HBRUSH brush, UINT flags);
inline constexpr UINT DFC_CAPTION = 1;
inline constexpr UINT DFCS_CAPTIONCLOSE = 0;
inline constexpr UINT DFCS_FLAT = 0x4000;
BOOL DrawFrameControl(HDC context, LPRECT rect, UINT kind, UINT state); // a caption's close mark

// --- Layered windows. Neither waits for the window's thread.
struct BLENDFUNCTION {
    BYTE BlendOp;
    BYTE BlendFlags;
    BYTE SourceConstantAlpha;
    BYTE AlphaFormat;
};
inline constexpr BYTE AC_SRC_OVER = 0;
inline constexpr BYTE AC_SRC_ALPHA = 1;
inline constexpr DWORD ULW_ALPHA = 2;
inline constexpr DWORD LWA_ALPHA = 2;
// Shows a memory context's drawing as the window, with place and size; from null: only the blending changes. FALSE with
// 1400, 87 for a window without WS_EX_LAYERED or with SetLayeredWindowAttributes.
BOOL UpdateLayeredWindow(HWND window, HDC screen, POINT* place, SIZE* size, HDC from, POINT* fromPlace, COLORREF key,
                         BLENDFUNCTION* blend, DWORD flags);
BOOL SetLayeredWindowAttributes(HWND window, COLORREF key, BYTE alpha, DWORD flags); // LWA_ALPHA; FALSE with 1400, 87

// --- Visual styles. From 5.1 on UxTheme.dll has, to be looked up: OpenThemeData, IsThemeActive, DrawThemeBackground,
// DrawThemeText, GetThemeTextExtent. State: whether the user has a theme, and
// the theme's class TOOLTIP. Results are HRESULTs: 0, 0x80070006 for an invalid theme, 0x80070490 where it lacks the
// part.
//     HTHEME OpenThemeData(HWND window, LPCWSTR classes); null without such a class or theme
//     BOOL IsThemeActive();
//     HRESULT DrawThemeBackground(HTHEME, HDC, int part, int state, const RECT* rect, const RECT* clip);
//     HRESULT DrawThemeText(HTHEME, HDC, int part, int state, LPCWSTR, int count, DWORD format, DWORD, const RECT*);
//     HRESULT GetThemeTextExtent(HTHEME, HDC, int part, int state, LPCWSTR, int count, DWORD format,
//                                const RECT* bounds, RECT* extent);

// Initialises the classes of the newer controls, which a manifest asks for. comctl32.dll has it, to be looked up too.
void InitCommonControls();

} // namespace simwin
