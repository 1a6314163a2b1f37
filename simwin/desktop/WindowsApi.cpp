#include "simwin/desktop/DesktopState.h"
#include "simwin/drawing/api.h"

#include "simwin/files/Files.h"
#include "simwin/files/Resources.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

#include <climits>

namespace machine {

namespace {

template<typename Result>
Result Fail(simwin::DWORD error, Result result) {
    SetError(error);
    return result;
}

std::string ClassKey(simwin::LPCSTR name) {
    if (reinterpret_cast<std::uint64_t>(name) < 0x10000)
        NotModelled("CreateWindowExA", "a class by its atom");
    return Lower(name);
}

const simwin::HWND DesktopWindow = reinterpret_cast<simwin::HWND>(0x10000ull);
const simwin::HDC ScreenContext = reinterpret_cast<simwin::HDC>(0x30001ull);
const simwin::HMONITOR TheMonitor = reinterpret_cast<simwin::HMONITOR>(0x40001ull);
const simwin::HCURSOR ArrowCursor = reinterpret_cast<simwin::HCURSOR>(0x20001ull);
constexpr const char* IconGroups = "#14"; // the resource type of icons
constexpr const char* SystemArrow = "#32512";
constexpr simwin::UINT BoxIcons = 0xF0;

simwin::HWND MakeWindow(const simwin::WNDCLASSA& windowClass, simwin::LPCSTR className, simwin::LPCSTR title) {
    const simwin::HWND handle = AddScriptedWindow(CurrentProcess(), className, title ? title : "");
    Window* window = WindowFor(handle);
    window->threadId = CurrentThread()->id;
    window->procedure = windowClass.lpfnWndProc;
    window->visible = false;
    return handle;
}

} // namespace

} // namespace machine

namespace simwin {

using machine::Fail;

ATOM RegisterClassA(const WNDCLASSA* windowClass) {
    SIM_CALL("RegisterClassA", windowClass->lpszClassName, ERROR_CLASS_ALREADY_EXISTS, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error)
        return Fail<ATOM>(simCall.error, 0);
    machine::DesktopState& desktop = machine::TheDesktop();
    const auto key = std::pair<const machine::Process*, std::string>(machine::CurrentProcess(),
                                                                     machine::ClassKey(windowClass->lpszClassName));
    if (!desktop.classes.emplace(key, *windowClass).second)
        return Fail<ATOM>(ERROR_CLASS_ALREADY_EXISTS, 0);
    return desktop.nextAtom++;
}

HWND CreateWindowExA(DWORD extendedStyle, LPCSTR className, LPCSTR title, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE, LPVOID) {
    SIM_CALL("CreateWindowExA", className, ERROR_CANNOT_FIND_WND_CLASS, ERROR_NOT_ENOUGH_MEMORY, ERROR_ACCESS_DENIED);
    if (parent || menu)
        machine::NotModelled("CreateWindowExA", "a window with a parent or a menu");
    if (simCall.error)
        return Fail<HWND>(simCall.error, nullptr);
    const WNDCLASSA* windowClass = nullptr;
    {
        const auto& classes = machine::TheDesktop().classes;
        const auto found = classes.find({machine::CurrentProcess(), machine::ClassKey(className)});
        if (found == classes.end())
            return Fail<HWND>(ERROR_CANNOT_FIND_WND_CLASS, nullptr);
        windowClass = &found->second;
    }
    (void)machine::OwnQueue();
    const HWND handle = machine::MakeWindow(*windowClass, className, title);
    machine::Window* window = machine::WindowFor(handle);
    window->style = style;
    window->extendedStyle = extendedStyle;
    window->rect = {x, y, x + width, y + height};
    if (!machine::CallWindow(handle, WM_NCCREATE, 0, 0) || machine::CallWindow(handle, WM_CREATE, 0, 0) == -1) {
        machine::DestroyWindowNow(handle);
        return nullptr;
    }
    return handle;
}

BOOL ShowWindow(HWND handle, int command) {
    SIM_CALL("ShowWindow", "");
    if (command != SW_SHOWNORMAL)
        machine::NotModelled("ShowWindow", "a command other than SW_SHOWNORMAL");
    machine::Window* window = machine::WindowFor(handle);
    if (!window)
        return Fail(ERROR_INVALID_WINDOW_HANDLE, FALSE);
    const bool wasVisible = window->visible;
    window->visible = true;
    if (!wasVisible)
        machine::CallWindow(handle, WM_SHOWWINDOW, TRUE, 0);
    return wasVisible;
}

HWND FindWindowA(LPCSTR className, LPCSTR title) {
    SIM_CALL("FindWindowA", className ? className : title, ERROR_FILE_NOT_FOUND);
    if (simCall.error)
        return Fail<HWND>(simCall.error, nullptr);
    for (const auto& [key, window] : machine::TheDesktop().windows)
        if ((!className || machine::EqualNoCase(window->className, className)) &&
            (!title || machine::EqualNoCase(window->title, title)))
            return window->handle;
    return Fail<HWND>(ERROR_FILE_NOT_FOUND, nullptr);
}

LRESULT DefWindowProcA(HWND window, UINT message, WPARAM, LPARAM) {
    SIM_CALL("DefWindowProcA", "");
    switch (message) {
    case WM_CLOSE:
        machine::DestroyWindowNow(window);
        return 0;
    case WM_NCCREATE:
    case WM_DEVICECHANGE:
        return TRUE;
    default:
        return 0;
    }
}

HWND GetForegroundWindow() {
    SIM_CALL("GetForegroundWindow", "");
    return nullptr;
}

HWND GetDesktopWindow() {
    SIM_CALL("GetDesktopWindow", "");
    return machine::DesktopWindow;
}

BOOL GetWindowRect(HWND handle, LPRECT rect) {
    SIM_CALL("GetWindowRect", "", ERROR_INVALID_WINDOW_HANDLE);
    const machine::Window* window = simCall.error ? nullptr : machine::WindowFor(handle);
    if (!window)
        return Fail(ERROR_INVALID_WINDOW_HANDLE, FALSE);
    *rect = window->rect;
    return TRUE;
}

HICON LoadIconA(HINSTANCE instance, LPCSTR name) {
    SIM_CALL("LoadIconA", machine::ResourceId(name), ERROR_RESOURCE_TYPE_NOT_FOUND, ERROR_RESOURCE_NAME_NOT_FOUND);
    if (!instance)
        machine::NotModelled("LoadIconA", "the system's own icons");
    if (simCall.error)
        return Fail<HICON>(simCall.error, nullptr);
    const std::string id = machine::ResourceId(name);
    if (!machine::FindProgramResource(machine::IconGroups, id))
        return Fail<HICON>(ERROR_RESOURCE_NAME_NOT_FOUND, nullptr);
    machine::DesktopState& desktop = machine::TheDesktop();
    const auto [icon, isNew] = desktop.icons.emplace(id, reinterpret_cast<HICON>(desktop.nextIcon));
    if (isNew)
        desktop.nextIcon += 2;
    return icon->second;
}

HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name) {
    SIM_CALL("LoadCursorA", machine::ResourceId(name));
    if (instance || machine::ResourceId(name) != machine::SystemArrow)
        machine::NotModelled("LoadCursorA", "anything but the system's arrow");
    return machine::ArrowCursor;
}

HMONITOR MonitorFromRect(const RECT*, DWORD flags) {
    SIM_CALL("MonitorFromRect", "");
    if (flags != MONITOR_DEFAULTTONEAREST)
        machine::NotModelled("MonitorFromRect", "flags other than the nearest monitor");
    return machine::TheMonitor;
}

HDC GetDC(HWND) {
    SIM_CALL("GetDC", "");
    return machine::ScreenContext;
}

int ReleaseDC(HWND, HDC) {
    SIM_CALL("ReleaseDC", "");
    return 1;
}

int GetDeviceCaps(HDC, int index) {
    SIM_CALL("GetDeviceCaps", "");
    if (index != LOGPIXELSX)
        machine::NotModelled("GetDeviceCaps", "an index other than LOGPIXELSX");
    return machine::TheSetup().dpi;
}

// Both are looked up at run time by a program that wants to run where they are missing.
static UINT GetDpiForWindow(HWND window) {
    SIM_CALL("GetDpiForWindow", "");
    return window && machine::WindowFor(window) ? static_cast<UINT>(machine::TheSetup().dpi) : 0;
}

static HRESULT GetDpiForMonitor(HMONITOR monitor, int kind, UINT* x, UINT* y) {
    SIM_CALL("GetDpiForMonitor", "");
    constexpr int EffectiveDpi = 0;
    constexpr HRESULT InvalidArgument = static_cast<HRESULT>(0x80070057);
    if (kind != EffectiveDpi)
        machine::NotModelled("GetDpiForMonitor", "a kind other than the effective one");
    if (monitor != machine::TheMonitor)
        return InvalidArgument;
    *x = *y = static_cast<UINT>(machine::TheSetup().dpi);
    return 0;
}

static const machine::OptionalOperation Optional[] = {
    {"user32.dll", "GetDpiForWindow", machine::AsProc(GetDpiForWindow), 0x0A00, 14393},
    {"shcore.dll", "GetDpiForMonitor", machine::AsProc(GetDpiForMonitor), 0x0603},
};

int MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT flags) {
    SIM_CALL("MessageBoxA", text, ERROR_INVALID_WINDOW_HANDLE);
    if (flags & ~(machine::BoxIcons | MB_SYSTEMMODAL))
        machine::NotModelled("MessageBoxA", "buttons other than OK");
    if (simCall.error || (owner && owner != machine::DesktopWindow && !machine::WindowFor(owner)))
        return Fail(ERROR_INVALID_WINDOW_HANDLE, 0);
    machine::DesktopState& desktop = machine::TheDesktop();
    std::uint64_t waitMs = 0;
    for (const machine::BoxAnswer& answer : desktop.answers)
        if (std::string_view(text).find(answer.text) != std::string_view::npos) {
            if (answer.button != IDOK)
                machine::NotModelled("MessageBoxA", "an answer by a button that the box has not");
            waitMs = answer.afterMs;
            break;
        }
    desktop.boxes.push_back({machine::Now(), caption, text, flags, machine::CurrentProcess()->id, IDOK});
    if (waitMs > 0)
        machine::SleepMs(waitMs);
    return IDOK;
}

} // namespace simwin
