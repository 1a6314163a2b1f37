#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Text.h"

#include <algorithm>
#include <cstring>

namespace machine {

simwin::LRESULT GiveRegion(simwin::HWND window, simwin::HRGN region); // of the drawing, whose regions they are

using namespace simwin;

constexpr int DesktopStyle = static_cast<int>(0x96000000);

template<typename Result>
static Result Fail(DWORD error, Result result) {
    SetError(error);
    return result;
}

static std::string ClassKey(LPCSTR name) {
    if (reinterpret_cast<std::uint64_t>(name) < 0x10000) {
        NotModelled("CreateWindowExA", "a class by its atom");
    }
    return Lower(name);
}

// The top-level windows that the running process sees: those of its session from front to back; one in session 0 all,
// in the order of their creation, so that a second instance of the service is noticed.
static std::vector<const Window*> WindowsInSight() {
    const unsigned session = CurrentProcess()->session;
    if (session != 0) {
        return WindowsOfSession(session);
    }
    std::vector<const Window*> windows = Windows();
    std::erase_if(windows, [](const Window* window) { return window->parent != nullptr; });
    return windows;
}

// Null with the last error set.
static Window* UseWindow(HWND handle, DWORD error = 0) {
    Window* window = error ? nullptr : WindowFor(handle);
    if (!window) {
        SetError(error ? error : DWORD{ERROR_INVALID_WINDOW_HANDLE});
    }
    return window;
}

static bool IsOwn(const Window& window) {
    return window.threadId == 0 || window.threadId == CurrentThread()->id;
}

static bool Activates(int command) {
    return command == SW_SHOWNORMAL || command == SW_SHOW || command == SW_SHOWMINIMIZED ||
           command == SW_SHOWMAXIMIZED || command == SW_RESTORE || command == SW_SHOWDEFAULT;
}

// Visible and, if allowed, active. What the caller does not see is left to the window's thread.
static void ShowNow(Window& window, bool activates) {
    const bool mayActivate = activates && MayTakeForeground(TheDesktop().inputs[window.session], window.process);
    SetVisible(window, true);
    if (mayActivate) {
        Activate(window);
    }
}

static RECT PlaceOf(const WINDOWPOS& place, const RECT& now) {
    const LONG left = place.flags & SWP_NOMOVE ? now.left : place.x;
    const LONG top = place.flags & SWP_NOMOVE ? now.top : place.y;
    const LONG width = place.flags & SWP_NOSIZE ? now.right - now.left : std::max(place.cx, 0);
    const LONG height = place.flags & SWP_NOSIZE ? now.bottom - now.top : std::max(place.cy, 0);
    return {left, top, left + width, top + height};
}

static void PlaceNow(Window& window, const WINDOWPOS& place) {
    SetPlace(window, PlaceOf(place, window.rect));
    if (!(place.flags & SWP_NOZORDER)) {
        MoveInOrder(window, place.hwndInsertAfter);
    }
    if (place.flags & SWP_HIDEWINDOW) {
        SetVisible(window, false);
    }
    if (place.flags & SWP_SHOWWINDOW) {
        SetVisible(window, true);
    }
    if (window.visible && !(place.flags & (SWP_NOACTIVATE | SWP_NOZORDER))) {
        ShowNow(window, /*activates=*/true);
    }
}

static RECT FirstPlace(DWORD style, int x, int y, int width, int height) {
    const RECT screen = ScreenRect();
    if (x == CW_USEDEFAULT) {
        x = y = 0;
    }
    if (width == CW_USEDEFAULT) {
        const bool isPopup = (style & WS_POPUP) != 0;
        width = isPopup ? 0 : screen.right * 3 / 4;
        height = isPopup ? 0 : screen.bottom * 3 / 4;
    }
    return {x, y, x + std::max(width, 0), y + std::max(height, 0)};
}

static HWND MakeWindow(const WNDCLASSA& windowClass, LPCSTR className, LPCSTR title, DWORD style, DWORD extendedStyle) {
    (void)OwnQueue();
    Process* process = CurrentProcess();
    Window* window = AddWindow(process, process->session, className, title ? title : "");
    window->threadId = CurrentThread()->id;
    window->procedure = windowClass.lpfnWndProc;
    window->style = style & ~WS_VISIBLE;
    window->extendedStyle = extendedStyle;
    BringToFront(*window);
    return window->handle;
}

static LRESULT PlaceWork(const SentMessage& message) {
    ApplyWindowPos(message.place);
    return TRUE;
}

static LRESULT ShowWork(const SentMessage& message) {
    return ApplyShow(message.window, message.command);
}

static LRESULT RegionWork(const SentMessage& message) {
    return GiveRegion(message.window, message.region);
}

static std::size_t CopyTitle(const std::string& title, char* text, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t length = title.copy(text, size - 1);
    text[length] = 0;
    return length;
}

void ApplyWindowPos(const WINDOWPOS& given) {
    WINDOWPOS place = given;
    if (!(place.flags & SWP_NOSENDCHANGING)) {
        CallWindow(place.hwnd, WM_WINDOWPOSCHANGING, 0, reinterpret_cast<LPARAM>(&place));
    }
    Window* window = WindowFor(place.hwnd);
    if (!window) {
        return;
    }
    PlaceNow(*window, place);
    CallWindow(place.hwnd, WM_WINDOWPOSCHANGED, 0, reinterpret_cast<LPARAM>(&place));
}

LRESULT ApplyShow(HWND handle, int command) {
    const Window* window = WindowFor(handle);
    if (!window) {
        return FALSE;
    }
    const bool wasVisible = window->visible;
    const bool shows = command != SW_HIDE;
    if (wasVisible != shows) {
        CallWindow(handle, WM_SHOWWINDOW, shows, 0);
    }
    if (Window* now = WindowFor(handle)) {
        if (shows) {
            ShowNow(*now, Activates(command));
        } else {
            SetVisible(*now, false);
        }
    }
    return wasVisible;
}

void DestroyWindowNow(HWND handle) {
    if (Window* window = WindowFor(handle)) {
        SetVisible(*window, false);
    }
    CallWindow(handle, WM_DESTROY, 0, 0);
    CallWindow(handle, WM_NCDESTROY, 0, 0);
    RemoveWindow(handle);
}

} // namespace machine

namespace simwin {

using namespace machine;

ATOM RegisterClassA(const WNDCLASSA* windowClass) {
    SIM_CALL("RegisterClassA", windowClass->lpszClassName, ERROR_CLASS_ALREADY_EXISTS, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return Fail<ATOM>(simCall.error, 0);
    }
    DesktopState& desktop = TheDesktop();
    const auto key =
        std::pair<const machine::Process*, std::string>(CurrentProcess(), ClassKey(windowClass->lpszClassName));
    if (!desktop.classes.emplace(key, *windowClass).second) {
        return Fail<ATOM>(ERROR_CLASS_ALREADY_EXISTS, 0);
    }
    return desktop.nextAtom++;
}

HWND CreateWindowExA(DWORD extendedStyle, LPCSTR className, LPCSTR title, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE, LPVOID) {
    SIM_CALL("CreateWindowExA", className, ERROR_CANNOT_FIND_WND_CLASS, ERROR_NOT_ENOUGH_MEMORY, ERROR_ACCESS_DENIED);
    if ((parent && parent != DesktopWindow) || menu) {
        NotModelled("CreateWindowExA", "a window with a parent or a menu");
    }
    if (simCall.error) {
        return Fail<HWND>(simCall.error, nullptr);
    }
    const WNDCLASSA* windowClass = nullptr;
    {
        const auto& classes = TheDesktop().classes;
        const auto found = classes.find({CurrentProcess(), ClassKey(className)});
        if (found == classes.end()) {
            return Fail<HWND>(ERROR_CANNOT_FIND_WND_CLASS, nullptr);
        }
        windowClass = &found->second;
    }
    const HWND handle = MakeWindow(*windowClass, className, title, style, extendedStyle);
    WindowFor(handle)->rect = FirstPlace(style, x, y, width, height);
    if (!CallWindow(handle, WM_NCCREATE, 0, 0) || CallWindow(handle, WM_CREATE, 0, 0) == -1) {
        DestroyWindowNow(handle);
        return nullptr;
    }
    if (style & WS_VISIBLE) {
        ApplyShow(handle, SW_SHOW);
    }
    return handle;
}

BOOL DestroyWindow(HWND handle) {
    SIM_CALL("DestroyWindow", "", ERROR_ACCESS_DENIED, ERROR_INVALID_WINDOW_HANDLE);
    const machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return FALSE;
    }
    if (window->threadId != CurrentThread()->id) {
        return Fail(ERROR_ACCESS_DENIED, FALSE);
    }
    DestroyWindowNow(handle);
    return TRUE;
}

BOOL ShowWindow(HWND handle, int command) {
    SIM_CALL("ShowWindow", "", ERROR_INVALID_WINDOW_HANDLE);
    if (command < SW_HIDE || command > SW_SHOWDEFAULT) {
        NotModelled("ShowWindow", "commands other than those that are declared");
    }
    const machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return FALSE;
    }
    if (IsOwn(*window)) {
        return static_cast<BOOL>(ApplyShow(handle, command));
    }
    const DWORD threadId = window->threadId;
    SentMessage* sent = SendTo(*window, /*isAwaited=*/true);
    sent->work = ShowWork;
    sent->command = command;
    LRESULT wasVisible = FALSE;
    return AwaitAnswer(sent, threadId, NoLimit, &wasVisible) && wasVisible;
}

HWND FindWindowA(LPCSTR className, LPCSTR title) {
    SIM_CALL("FindWindowA", className ? className : title, ERROR_FILE_NOT_FOUND);
    if (simCall.error) {
        return Fail<HWND>(simCall.error, nullptr);
    }
    for (const machine::Window* window : WindowsInSight()) {
        if ((!className || EqualNoCase(window->className, className)) &&
            (!title || EqualNoCase(window->title, title))) {
            return window->handle;
        }
    }
    return Fail<HWND>(ERROR_FILE_NOT_FOUND, nullptr);
}

BOOL IsWindow(HWND window) {
    SIM_CALL("IsWindow", "");
    return window == DesktopWindow || WindowFor(window) != nullptr;
}

BOOL IsWindowVisible(HWND handle) {
    SIM_CALL("IsWindowVisible", "");
    if (handle == DesktopWindow) {
        return TRUE;
    }
    const machine::Window* window = UseWindow(handle);
    const machine::Window* parent = window ? WindowFor(window->parent) : nullptr;
    return window && window->visible && (!parent || parent->visible);
}

BOOL GetWindowRect(HWND handle, LPRECT rect) {
    SIM_CALL("GetWindowRect", "", ERROR_INVALID_WINDOW_HANDLE);
    if (handle == DesktopWindow && !simCall.error) {
        *rect = ScreenRect();
        return TRUE;
    }
    const machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return FALSE;
    }
    *rect = window->rect;
    return TRUE;
}

int GetClassNameA(HWND handle, LPSTR name, int size) {
    SIM_CALL("GetClassNameA", "", ERROR_INVALID_WINDOW_HANDLE);
    const machine::Window* window = handle == DesktopWindow ? nullptr : UseWindow(handle, simCall.error);
    if ((!window && handle != DesktopWindow) || size <= 0) {
        return 0;
    }
    return static_cast<int>(CopyTitle(window ? window->className : "#32769", name, static_cast<std::size_t>(size)));
}

LONG GetWindowLongA(HWND handle, int index) {
    SIM_CALL("GetWindowLongA", "", ERROR_INVALID_WINDOW_HANDLE);
    if (index != GWL_STYLE && index != GWL_EXSTYLE) {
        return Fail(ERROR_INVALID_INDEX, 0);
    }
    if (handle == DesktopWindow) {
        return index == GWL_STYLE ? DesktopStyle : 0;
    }
    const machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return 0;
    }
    const DWORD style = window->style | (window->visible ? WS_VISIBLE : 0);
    return static_cast<LONG>(index == GWL_STYLE ? style : window->extendedStyle);
}

LONG SetWindowLongA(HWND handle, int index, LONG value) {
    SIM_CALL("SetWindowLongA", "", ERROR_INVALID_WINDOW_HANDLE);
    if (index != GWL_EXSTYLE) {
        return Fail(ERROR_INVALID_INDEX, 0);
    }
    machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return 0;
    }
    const DWORD before = window->extendedStyle;
    if ((static_cast<DWORD>(value) ^ before) & ~WS_EX_LAYERED) {
        NotModelled("SetWindowLongA", "a change of other styles than WS_EX_LAYERED");
    }
    window->extendedStyle = static_cast<DWORD>(value);
    if (!(window->extendedStyle & WS_EX_LAYERED)) {
        window->hasAttributes = false;
    }
    return static_cast<LONG>(before);
}

BOOL SetWindowPos(HWND handle, HWND after, int x, int y, int width, int height, UINT flags) {
    SIM_CALL("SetWindowPos", "", ERROR_INVALID_WINDOW_HANDLE);
    constexpr UINT Known = 0x07FF | SWP_ASYNCWINDOWPOS;
    if (flags & ~Known) {
        NotModelled("SetWindowPos", "flags other than those that are declared");
    }
    const machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return FALSE;
    }
    const WINDOWPOS place = {handle, after, x, y, width, height, flags & ~SWP_ASYNCWINDOWPOS};
    if (IsOwn(*window)) {
        ApplyWindowPos(place);
        return TRUE;
    }
    const DWORD threadId = window->threadId;
    const bool isAwaited = !(flags & SWP_ASYNCWINDOWPOS);
    SentMessage* sent = SendTo(*window, isAwaited);
    sent->work = PlaceWork;
    sent->place = place;
    LRESULT result = TRUE;
    if (isAwaited) {
        return AwaitAnswer(sent, threadId, NoLimit, &result);
    }
    WakeForMessage(threadId);
    return TRUE;
}

int SetWindowRgn(HWND handle, HRGN region, BOOL) {
    SIM_CALL("SetWindowRgn", "", ERROR_INVALID_WINDOW_HANDLE);
    const machine::Window* window = UseWindow(handle, simCall.error);
    if (!window) {
        return 0;
    }
    if (IsOwn(*window)) {
        return static_cast<int>(GiveRegion(handle, region));
    }
    const DWORD threadId = window->threadId;
    SentMessage* sent = SendTo(*window, /*isAwaited=*/true);
    sent->work = RegionWork;
    sent->region = region;
    LRESULT result = 0;
    return AwaitAnswer(sent, threadId, NoLimit, &result) ? static_cast<int>(result) : 0;
}

HWND WindowFromPoint(POINT point) {
    SIM_CALL("WindowFromPoint", "");
    const machine::Window* window = WindowAt(CurrentProcess()->session, point);
    return window ? window->handle : nullptr;
}

BOOL ValidateRect(HWND handle, const RECT*) {
    SIM_CALL("ValidateRect", "", ERROR_INVALID_WINDOW_HANDLE);
    return UseWindow(handle, simCall.error) != nullptr;
}

HWND GetDesktopWindow() {
    SIM_CALL("GetDesktopWindow", "");
    return DesktopWindow;
}

LRESULT DefWindowProcA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    SIM_CALL("DefWindowProcA", "");
    machine::Window* window = WindowFor(handle);
    switch (message) {
    case WM_CLOSE:
        DestroyWindowNow(handle);
        return 0;
    case WM_NCCREATE:
    case WM_DEVICECHANGE:
    case WM_ERASEBKGND:
        return TRUE;
    case WM_GETTEXTLENGTH:
        return window ? static_cast<LRESULT>(window->title.size()) : 0;
    case WM_GETTEXT:
        return window ? static_cast<LRESULT>(CopyTitle(window->title, reinterpret_cast<char*>(lParam), wParam)) : 0;
    case WM_SETTEXT:
        if (window) {
            window->title = lParam ? reinterpret_cast<const char*>(lParam) : "";
        }
        return TRUE;
    default:
        return 0;
    }
}

} // namespace simwin
