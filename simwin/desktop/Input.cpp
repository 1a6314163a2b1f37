// Mouse and keys, and which window has the foreground.
#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"

#include <fmt/format.h>

#include <algorithm>

namespace machine {

using namespace simwin;

constexpr DWORD ScriptedThread = 0x100000; // thread ids of scripted programs, which have no threads, by process

namespace {
struct ButtonFacts {
    const char* name;
    UINT down, up;
    WPARAM held;
};
} // namespace
constexpr ButtonFacts Buttons[] = {
    {"left", WM_LBUTTONDOWN, WM_LBUTTONUP, MK_LBUTTON},
    {"right", WM_RBUTTONDOWN, WM_RBUTTONUP, 2},
    {"middle", WM_MBUTTONDOWN, WM_MBUTTONUP, 16},
};

static SessionInput& InputOf(unsigned session) {
    return TheDesktop().inputs[session];
}

static POINT CursorOf(unsigned session) {
    const RECT screen = ScreenRect();
    return InputOf(session).cursor.value_or(POINT{screen.right / 2, screen.bottom / 2});
}

static LPARAM PlaceIn(const Window& window, POINT point) {
    const auto x = static_cast<DWORD>(point.x - window.rect.left), y = static_cast<DWORD>(point.y - window.rect.top);
    return static_cast<LPARAM>((x & 0xFFFF) | (y & 0xFFFF) << 16);
}

static void Deliver(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* window = WindowFor(handle);
    if (!window) {
        return;
    }
    if (window->threadId) {
        PostToWindow(handle, message, wParam, lParam);
    } else {
        AnswerForProgram(*window, message, lParam);
    }
}

static void Note(unsigned session, std::string what, const Window* window) {
    DesktopState& desktop = TheDesktop();
    desktop.inputRecords.push_back(
        {Now(), std::move(what), window ? window->title : "", session, CurrentThread() == nullptr});
    if (desktop.inputWatcher) {
        desktop.inputWatcher(desktop.inputRecords.back());
    }
}

static const Window* PressButton(unsigned session, const ButtonFacts& button, bool isDown) {
    const POINT cursor = CursorOf(session);
    const Window* window = WindowAt(session, cursor);
    if (isDown) {
        Note(session, fmt::format("click {}", button.name), window);
        if (window) {
            SessionInput& input = InputOf(session);
            input.lastInput = input.lastClick = window->process;
            Activate(*WindowFor(window->parent ? window->parent : window->handle));
        }
    }
    if (window) {
        Deliver(window->handle, isDown ? button.down : button.up, isDown ? button.held : 0, PlaceIn(*window, cursor));
    }
    return window;
}

static DWORD ShownThreadId(const Window& window) {
    return window.threadId ? window.threadId : ScriptedThread + (window.process ? window.process->id : 0);
}

static bool IsThread(DWORD id) {
    const std::vector<Thread*> threads = AllThreads();
    return id >= ScriptedThread ||
           std::any_of(threads.begin(), threads.end(), [&](const Thread* thread) { return thread->id == id; });
}

static bool IsAttached(DWORD a, DWORD b) {
    for (const auto& [from, to] : TheDesktop().attachedInputs) {
        if ((from == a && to == b) || (from == b && to == a)) {
            return true;
        }
    }
    return false;
}

static unsigned OwnSession() {
    return CurrentProcess()->session;
}

bool MayTakeForeground(const SessionInput& input, const Process* process) {
    const Window* foreground = WindowFor(input.foreground);
    if (input.rule == Foreground::Free || !foreground || !process) {
        return true;
    }
    for (const Process* holder : {static_cast<const Process*>(foreground->process), input.lastInput}) {
        if (holder && (holder == process || holder->id == process->parentId)) {
            return true;
        }
    }
    return false;
}

void SetForegroundRule(unsigned session, Foreground rule) {
    InputOf(session).rule = rule;
}

void SetCursor(unsigned session, POINT place) {
    InputOf(session).cursor = place;
}

const Window* MoveMouse(unsigned session, POINT place) {
    SetCursor(session, place);
    const Window* window = WindowAt(session, place);
    if (window) {
        Deliver(window->handle, WM_MOUSEMOVE, 0, PlaceIn(*window, place));
    }
    return window;
}

const Window* ClickMouse(unsigned session, MouseButton button) {
    const ButtonFacts& facts = Buttons[static_cast<unsigned>(button)];
    const Window* window = PressButton(session, facts, /*isDown=*/true);
    PressButton(session, facts, /*isDown=*/false);
    return window;
}

const std::vector<InputRecord>& Inputs() {
    return TheDesktop().inputRecords;
}

void WatchInput(std::function<void(const InputRecord&)> watcher) {
    TheDesktop().inputWatcher = std::move(watcher);
}

} // namespace machine

namespace simwin {

using namespace machine;

HWND GetForegroundWindow() {
    SIM_CALL("GetForegroundWindow", "");
    return InputOf(OwnSession()).foreground;
}

BOOL SetForegroundWindow(HWND handle) {
    SIM_CALL("SetForegroundWindow", "", ERROR_INVALID_WINDOW_HANDLE);
    machine::Window* window = simCall.error ? nullptr : WindowFor(handle);
    if (!window || window->session != OwnSession()) {
        machine::SetError(simCall.error ? simCall.error : DWORD{ERROR_INVALID_WINDOW_HANDLE});
        return FALSE;
    }
    const SessionInput& input = InputOf(window->session);
    const machine::Window* foreground = WindowFor(input.foreground);
    const bool isAttached = foreground && IsAttached(CurrentThread()->id, ShownThreadId(*foreground));
    if (!isAttached && input.lastClick != CurrentProcess() && !MayTakeForeground(input, CurrentProcess())) {
        return FALSE;
    }
    Activate(*window);
    return TRUE;
}

BOOL AttachThreadInput(DWORD threadId, DWORD toThreadId, BOOL attach) {
    SIM_CALL("AttachThreadInput", "", ERROR_INVALID_PARAMETER);
    if (simCall.error || threadId == toThreadId || !IsThread(threadId) || !IsThread(toThreadId)) {
        machine::SetError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto& attached = TheDesktop().attachedInputs;
    const std::pair<DWORD, DWORD> both(threadId, toThreadId);
    if (attach) {
        attached.push_back(both);
    } else {
        std::erase(attached, both);
    }
    return TRUE;
}

void keybd_event(BYTE key, BYTE, DWORD flags, ULONG_PTR) {
    SIM_CALL("keybd_event", "");
    const bool isUp = (flags & KEYEVENTF_KEYUP) != 0;
    const HWND handle = InputOf(OwnSession()).foreground;
    const machine::Window* window = WindowFor(handle);
    if (!isUp) {
        Note(OwnSession(), fmt::format("key 0x{:02X}", key), window);
    }
    if (!window) {
        return;
    }
    InputOf(OwnSession()).lastInput = window->process;
    Deliver(handle, isUp ? WM_KEYUP : WM_KEYDOWN, key, 0);
}

void mouse_event(DWORD flags, DWORD, DWORD, DWORD, ULONG_PTR) {
    SIM_CALL("mouse_event", "");
    if (flags != MOUSEEVENTF_LEFTDOWN && flags != MOUSEEVENTF_LEFTUP) {
        NotModelled("mouse_event", "anything but the left button");
    }
    PressButton(OwnSession(), Buttons[0], flags == MOUSEEVENTF_LEFTDOWN);
}

BOOL GetCursorPos(LPPOINT point) {
    SIM_CALL("GetCursorPos", "", ERROR_ACCESS_DENIED);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return FALSE;
    }
    *point = CursorOf(OwnSession());
    return TRUE;
}

DWORD GetWindowThreadProcessId(HWND handle, LPDWORD processId) {
    SIM_CALL("GetWindowThreadProcessId", "", ERROR_INVALID_WINDOW_HANDLE);
    const machine::Window* window = simCall.error ? nullptr : WindowFor(handle);
    if (!window) {
        machine::SetError(simCall.error ? simCall.error : DWORD{ERROR_INVALID_WINDOW_HANDLE});
        return 0;
    }
    if (processId) {
        *processId = window->process ? window->process->id : 0;
    }
    return ShownThreadId(*window);
}

} // namespace simwin
