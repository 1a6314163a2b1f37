// Windows and their messages, timers, input and the foreground, the screen, message boxes.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

using WNDPROC = LRESULT(CALLBACK*)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
using TIMERPROC = void(CALLBACK*)(HWND window, UINT message, UINT_PTR id, DWORD tick);

// --- Messages and styles that the product or the machine itself uses.
inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_SETTEXT = 0x000C;
inline constexpr UINT WM_GETTEXT = 0x000D;
inline constexpr UINT WM_GETTEXTLENGTH = 0x000E;
inline constexpr UINT WM_PAINT = 0x000F;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_ERASEBKGND = 0x0014;
inline constexpr UINT WM_SHOWWINDOW = 0x0018;
inline constexpr UINT WM_WINDOWPOSCHANGING = 0x0046;
inline constexpr UINT WM_WINDOWPOSCHANGED = 0x0047;
inline constexpr UINT WM_NCCREATE = 0x0081;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_KEYDOWN = 0x0100;
inline constexpr UINT WM_KEYUP = 0x0101;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_MOUSEMOVE = 0x0200;
inline constexpr UINT WM_LBUTTONDOWN = 0x0201;
inline constexpr UINT WM_LBUTTONUP = 0x0202;
inline constexpr UINT WM_RBUTTONDOWN = 0x0204;
inline constexpr UINT WM_RBUTTONUP = 0x0205;
inline constexpr UINT WM_MBUTTONDOWN = 0x0207;
inline constexpr UINT WM_MBUTTONUP = 0x0208;
inline constexpr UINT WM_DEVICECHANGE = 0x0219;
inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT WM_APP = 0x8000;
inline constexpr UINT TTM_POP = 0x041C;
inline constexpr DWORD MK_LBUTTON = 0x0001;

inline constexpr DWORD WS_POPUP = 0x80000000;
inline constexpr DWORD WS_CHILD = 0x40000000;
inline constexpr DWORD WS_VISIBLE = 0x10000000;
inline constexpr DWORD WS_CLIPSIBLINGS = 0x04000000;
inline constexpr DWORD WS_CLIPCHILDREN = 0x02000000;
inline constexpr DWORD WS_CAPTION = 0x00C00000;
inline constexpr DWORD WS_SYSMENU = 0x00080000;
inline constexpr DWORD WS_MINIMIZEBOX = 0x00020000;
inline constexpr DWORD WS_EX_TOPMOST = 0x00000008;
inline constexpr DWORD WS_EX_TOOLWINDOW = 0x00000080;
inline constexpr DWORD WS_EX_LAYERED = 0x00080000;
inline constexpr DWORD WS_EX_NOINHERITLAYOUT = 0x00100000;
inline constexpr DWORD WS_EX_LAYOUTRTL = 0x00400000;
inline constexpr DWORD WS_EX_NOACTIVATE = 0x08000000;
inline constexpr UINT CS_DROPSHADOW = 0x00020000;
inline constexpr int CW_USEDEFAULT = static_cast<int>(0x80000000);
inline constexpr int COLOR_WINDOW = 5;
inline constexpr int COLOR_INFOTEXT = 23;
inline constexpr int COLOR_INFOBK = 24;

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

struct WINDOWPOS {
    HWND hwnd;
    HWND hwndInsertAfter;
    int x;
    int y;
    int cx;
    int cy;
    UINT flags;
};

// --- Windows. State: the classes of each process, and the windows of each session from front to back; they are
// destroyed with their process. A process sees only the windows of its own session; one in session 0 those of all
// sessions, in the order of their creation. Each operation on a window fails with 1400 where there is none.
// A window that belongs to another thread: SetWindowPos, ShowWindow and SetWindowRgn wait until that thread asks for
// messages or waits for an answer itself; a window of a scripted program, which has no thread, answers at once.
inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
inline constexpr DWORD ERROR_WINDOW_OF_OTHER_THREAD = 1408;

ATOM RegisterClassA(const WNDCLASSA* windowClass); // 0 with 1410 for a name that the process already has, 8
// A top-level window without menu; the parent is null or the desktop window. x CW_USEDEFAULT: 0, 0; width
// CW_USEDEFAULT: of a popup nothing, else three quarters of the screen. WS_VISIBLE shows it with activation. null with
// 1407 for a class that the process does not have, 8, 5, or when the window refuses WM_NCCREATE or WM_CREATE. Calls the
// window's procedure.
HWND CreateWindowExA(DWORD extendedStyle, LPCSTR className, LPCSTR title, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter);
BOOL DestroyWindow(HWND window); // FALSE with 5 for another thread's window
inline constexpr int SW_HIDE = 0;
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr int SW_SHOWMINIMIZED = 2;
inline constexpr int SW_SHOWMAXIMIZED = 3;
inline constexpr int SW_SHOWNOACTIVATE = 4;
inline constexpr int SW_SHOW = 5;
inline constexpr int SW_MINIMIZE = 6;
inline constexpr int SW_SHOWMINNOACTIVE = 7;
inline constexpr int SW_SHOWNA = 8;
inline constexpr int SW_RESTORE = 9;
inline constexpr int SW_SHOWDEFAULT = 10;
BOOL ShowWindow(HWND window, int command); // whether it was visible before; minimising and maximising keep the size
// The first window with this class and title, without regard to case; either may be null. null with 2.
HWND FindWindowA(LPCSTR className, LPCSTR title);
BOOL IsWindow(HWND window);
BOOL IsWindowVisible(HWND window);
BOOL GetWindowRect(HWND window, LPRECT rect);
// The thread, and *processId unless it is null. A scripted program's windows have a thread id of their own.
DWORD GetWindowThreadProcessId(HWND window, LPDWORD processId);
int GetClassNameA(HWND window, LPSTR name, int size); // the characters written, cut to size - 1; 0
// index: GWL_STYLE or GWL_EXSTYLE as they are now. 0 with 1413 for another one.
inline constexpr int GWL_STYLE = -16;
inline constexpr int GWL_EXSTYLE = -20;
inline constexpr DWORD ERROR_INVALID_INDEX = 1413;
LONG GetWindowLongA(HWND window, int index);
// The extended style before, which from then on has WS_EX_LAYERED or not; GWL_EXSTYLE alone. 0 with 1400, 1413.
LONG SetWindowLongA(HWND window, int index, LONG value);
#define HWND_TOP (static_cast<simwin::HWND>(nullptr))
#define HWND_BOTTOM (reinterpret_cast<simwin::HWND>(static_cast<simwin::LONG_PTR>(1)))
#define HWND_TOPMOST (reinterpret_cast<simwin::HWND>(static_cast<simwin::LONG_PTR>(-1)))
#define HWND_NOTOPMOST (reinterpret_cast<simwin::HWND>(static_cast<simwin::LONG_PTR>(-2)))
inline constexpr UINT SWP_NOSIZE = 0x0001;
inline constexpr UINT SWP_NOMOVE = 0x0002;
inline constexpr UINT SWP_NOZORDER = 0x0004;
inline constexpr UINT SWP_NOREDRAW = 0x0008;
inline constexpr UINT SWP_NOACTIVATE = 0x0010;
inline constexpr UINT SWP_FRAMECHANGED = 0x0020;
inline constexpr UINT SWP_SHOWWINDOW = 0x0040;
inline constexpr UINT SWP_HIDEWINDOW = 0x0080;
inline constexpr UINT SWP_NOCOPYBITS = 0x0100;
inline constexpr UINT SWP_NOOWNERZORDER = 0x0200;
inline constexpr UINT SWP_NOSENDCHANGING = 0x0400;
inline constexpr UINT SWP_ASYNCWINDOWPOS = 0x4000;
// Sends WM_WINDOWPOSCHANGING (unless SWP_NOSENDCHANGING) and WM_WINDOWPOSCHANGED to the window. after: the four above
// or a window. Without SWP_NOACTIVATE and SWP_NOZORDER the window becomes active as if clicked.
BOOL SetWindowPos(HWND window, HWND after, int x, int y, int width, int height, UINT flags);
// The front visible window at a point of the screen, by its rectangle and region; a child before its parent. null:
// none.
HWND WindowFromPoint(POINT point);
BOOL ValidateRect(HWND window, const RECT* rect); // nothing is ever painted because of it
HWND GetDesktopWindow();
// The default handling of a message: WM_CLOSE destroys the window, WM_GETTEXT and WM_SETTEXT are its title.
LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// --- Messages. State: a queue for each thread that has asked for messages or created a window. What is sent from
// another thread is handled when a thread asks for messages or waits for an answer, what is posted in order. The
// queue's WM_QUIT comes after all that is posted, timers after that.

// window null, no filter: the thread's next message. Returns: 0 for WM_QUIT, else 1. Blocks (idle).
BOOL GetMessageA(LPMSG message, HWND window, UINT first, UINT last);
// Looks without waiting; remove PM_NOREMOVE leaves it. A filter of one message beyond WM_USER finds nothing posted by
// the machine. Returns: FALSE when there is none. Gives the thread its queue.
inline constexpr UINT PM_NOREMOVE = 0;
inline constexpr UINT PM_REMOVE = 1;
BOOL PeekMessageA(LPMSG message, HWND window, UINT first, UINT last, UINT remove);
// Calls the window's procedure, or a timer's own for WM_TIMER with one; 0 for a message without window.
LRESULT DispatchMessageA(const MSG* message);
BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);          // FALSE with 1400, 1816
BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam); // FALSE with 1444 without a queue
inline constexpr DWORD ERROR_NOT_ENOUGH_QUOTA = 1816;
void PostQuitMessage(int exitCode);
// The procedure's result. Blocks for another thread's window until that thread handles it, possibly forever. 0 with
// 1400. Texts that are sent to another process are copied over (WM_GETTEXT, WM_SETTEXT).
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// The same for at most `ms`. 0 with 1460 after that, 1400.
inline constexpr UINT SMTO_ABORTIFHUNG = 2;
LRESULT SendMessageTimeoutA(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT flags, UINT ms,
                            PDWORD_PTR result);

// --- Timers. Exact to the millisecond; less than 10 ms counts as 10, more than 0x7FFFFFFF as that. A timer comes again
// and again until it is killed; while its message waits it does not count up. A window's id that has one replaces it.
// Only the window's own thread sets and kills them: another's call fails with 1408.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT ms, TIMERPROC procedure); // 0 with 1400, 1408, 8
BOOL KillTimer(HWND window, UINT_PTR id); // FALSE with 1400, 1408, 87 without such a one

// --- Input and the foreground. State: each session has its cursor, its foreground window and who got the last
// input. Keys go to the foreground window, clicks to the window under the cursor, which takes the foreground by them
// unless it has WS_EX_NOACTIVATE. No activation messages are sent.
HWND GetForegroundWindow(); // null: none
// FALSE, without an error, where Windows keeps the foreground for a user who is typing: then only a process may take it
// that has it, was started by the one that has it, got the last input, or has its input attached to it.
BOOL SetForegroundWindow(HWND window);
BOOL AttachThreadInput(DWORD threadId, DWORD toThreadId, BOOL attach); // FALSE with 87, also for one to itself
inline constexpr BYTE VK_SHIFT = 0x10;
inline constexpr BYTE VK_ESCAPE = 0x1B;
inline constexpr BYTE VK_LSHIFT = 0xA0;
inline constexpr DWORD KEYEVENTF_KEYUP = 0x0002;
void keybd_event(BYTE key, BYTE scan, DWORD flags, ULONG_PTR extra);
inline constexpr DWORD MOUSEEVENTF_LEFTDOWN = 0x0002;
inline constexpr DWORD MOUSEEVENTF_LEFTUP = 0x0004;
void mouse_event(DWORD flags, DWORD x, DWORD y, DWORD data, ULONG_PTR extra); // the left button where the cursor is
BOOL GetCursorPos(LPPOINT point);

// --- The screen and what the user has set for it. One monitor; nothing is virtualised for its resolution.
inline constexpr DWORD MONITOR_DEFAULTTONEAREST = 2;
HMONITOR MonitorFromRect(const RECT* rect, DWORD flags);
inline constexpr int SM_CXSCREEN = 0;
inline constexpr int SM_CYSCREEN = 1;
int GetSystemMetrics(int index);
COLORREF GetSysColor(int index); // COLOR_INFOTEXT, COLOR_INFOBK
inline constexpr LONG LF_FACESIZE = 32;
struct LOGFONTA {
    LONG lfHeight;
    LONG lfWidth;
    LONG lfEscapement;
    LONG lfOrientation;
    LONG lfWeight;
    BYTE lfItalic;
    BYTE lfUnderline;
    BYTE lfStrikeOut;
    BYTE lfCharSet;
    BYTE lfOutPrecision;
    BYTE lfClipPrecision;
    BYTE lfQuality;
    BYTE lfPitchAndFamily;
    CHAR lfFaceName[32];
};
static_assert(sizeof(LOGFONTA) == 60);
// The last member came with 6.0: the SDK leaves it out for a program that also runs on older systems, so a buffer for
// the long form must not be of this type there.
struct NONCLIENTMETRICSA {
    UINT cbSize;
    int iBorderWidth;
    int iScrollWidth;
    int iScrollHeight;
    int iCaptionWidth;
    int iCaptionHeight;
    LOGFONTA lfCaptionFont;
    int iSmCaptionWidth;
    int iSmCaptionHeight;
    LOGFONTA lfSmCaptionFont;
    int iMenuWidth;
    int iMenuHeight;
    LOGFONTA lfMenuFont;
    LOGFONTA lfStatusFont;
    LOGFONTA lfMessageFont;
    int iPaddedBorderWidth;
};
static_assert(sizeof(NONCLIENTMETRICSA) == 344);
inline constexpr UINT SPI_GETNONCLIENTMETRICS = 0x0029;
inline constexpr UINT SPI_GETTOOLTIPANIMATION = 0x1016;
inline constexpr UINT SPI_GETTOOLTIPFADE = 0x1018;
// Those three. Metrics of 340 bytes on every version, of 344 from 6.0 on; FALSE with 87 for another cbSize.
BOOL SystemParametersInfoA(UINT action, UINT parameter, PVOID data, UINT update);

// --- Message boxes. State: the described answers; without one a box is answered at once with its first button.
inline constexpr UINT MB_OK = 0x0000;
inline constexpr UINT MB_ICONSTOP = 0x0010;
inline constexpr UINT MB_ICONWARNING = 0x0030;
inline constexpr UINT MB_ICONINFORMATION = 0x0040;
inline constexpr UINT MB_SYSTEMMODAL = 0x1000;
inline constexpr int IDOK = 1;
// Returns: the button. Blocks until it is answered; 0 with 1400 for an owner that is not a window.
int MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT flags);

} // namespace simwin
