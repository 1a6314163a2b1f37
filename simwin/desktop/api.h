// Windows, messages and message boxes.
#pragma once

#include "simwin/types.h"

namespace simwin {

using WNDPROC = LRESULT(CALLBACK*)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// --- Messages and styles that the product or the machine itself uses.
inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_SHOWWINDOW = 0x0018;
inline constexpr UINT WM_NCCREATE = 0x0081;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_DEVICECHANGE = 0x0219;
inline constexpr UINT WM_USER = 0x0400;

inline constexpr DWORD WS_POPUP = 0x80000000;
inline constexpr DWORD WS_CAPTION = 0x00C00000;
inline constexpr DWORD WS_SYSMENU = 0x00080000;
inline constexpr DWORD WS_MINIMIZEBOX = 0x00020000;
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr int COLOR_WINDOW = 5;

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};
using LPMSG = MSG*;

struct WNDCLASSA {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCSTR lpszMenuName;
    LPCSTR lpszClassName;
};

// --- Windows. Behind them: the classes of each process, and the windows of the machine from back to front; they go
// with their process. Messages that are sent come to a window when its thread asks for messages, or at once on its own
// thread.
inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;

ATOM RegisterClassA(const WNDCLASSA* windowClass); // 0 with 1410 for a name that the process has already, 8
// A top-level window without parent and menu. null with 1407 for a class that the process has not, 8, or when the
// window refuses WM_NCCREATE or WM_CREATE. Calls the window's procedure.
HWND CreateWindowExA(DWORD extendedStyle, LPCSTR className, LPCSTR title, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter);
BOOL ShowWindow(HWND window, int command); // whether it was visible before
// The first window with this class and title, without regard to case; either may be null. The machine has one desktop:
// windows of all sessions are found. null with 2.
HWND FindWindowA(LPCSTR className, LPCSTR title);
// What Windows does with a message: WM_CLOSE destroys the window.
LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
HWND GetForegroundWindow(); // null: none
HWND GetDesktopWindow();
BOOL GetWindowRect(HWND window, LPRECT rect); // FALSE with 1400

// --- Messages. Behind them: a queue for each thread that has asked for messages or made a window.

// window null, no filter: the thread's next message. Returns: 0 for WM_QUIT, else 1. Blocks (idle).
BOOL GetMessageA(LPMSG message, HWND window, UINT first, UINT last);
// Looks without waiting; remove PM_NOREMOVE leaves it. A filter of one message beyond WM_USER finds nothing posted by
// the machine. Returns: FALSE when there is none. Gives the thread its queue.
inline constexpr UINT PM_NOREMOVE = 0;
inline constexpr UINT PM_REMOVE = 1;
BOOL PeekMessageA(LPMSG message, HWND window, UINT first, UINT last, UINT remove);
LRESULT DispatchMessageA(const MSG* message); // calls the window's procedure; 0 for a message without window
BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam); // FALSE with 1444 without a queue
// Sends a message and waits for its result for at most `ms`. 0 with 1460 after that, 1400. Blocks for other threads.
inline constexpr UINT SMTO_ABORTIFHUNG = 2;
LRESULT SendMessageTimeoutA(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT flags, UINT ms,
                            PDWORD_PTR result);

// --- Message boxes. Behind them: the described answers; without one a box is answered at once with its first button.
inline constexpr UINT MB_OK = 0x0000;
inline constexpr UINT MB_ICONSTOP = 0x0010;
inline constexpr UINT MB_ICONWARNING = 0x0030;
inline constexpr UINT MB_ICONINFORMATION = 0x0040;
inline constexpr UINT MB_SYSTEMMODAL = 0x1000;
inline constexpr int IDOK = 1;
// Returns: the button. Blocks until it is answered; 0 with 1400 for an owner that is no window.
int MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT flags);

// --- Icons and screens.
#define IDC_ARROW MAKEINTRESOURCEA(32512)
HICON LoadIconA(HINSTANCE instance, LPCSTR name);     // from the program's resources; null with 1813, 1814
HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name); // the system's arrow
inline constexpr DWORD MONITOR_DEFAULTTONEAREST = 2;
HMONITOR MonitorFromRect(const RECT* rect, DWORD flags); // the machine has one
inline constexpr int LOGPIXELSX = 88;
HDC GetDC(HWND window); // null: the screen's
int ReleaseDC(HWND window, HDC context);
int GetDeviceCaps(HDC context, int index); // LOGPIXELSX only

} // namespace simwin
