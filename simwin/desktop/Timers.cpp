// Timers of windows: exact to the millisecond; their messages come when the thread has no others.
#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"

#include <algorithm>

namespace machine {

using namespace simwin;

constexpr UINT ShortestTimer = 10, LongestTimer = 0x7FFFFFFF;
using TimerKey = std::pair<std::uint64_t, UINT_PTR>;

static TimerKey KeyOf(HWND window, UINT_PTR id) {
    return {reinterpret_cast<std::uint64_t>(window), id};
}

static void Schedule(const TimerKey& key) {
    WindowTimer& timer = TheDesktop().timers.at(key);
    timer.due = At(timer.dueMs, Due::Machine, [key] {
        WindowTimer& own = TheDesktop().timers.at(key);
        own.due = 0;
        own.waits = true;
        WakeForMessage(own.threadId);
    });
}

static bool DropTimer(const TimerKey& key) {
    const auto found = TheDesktop().timers.find(key);
    if (found == TheDesktop().timers.end()) {
        return false;
    }
    if (found->second.due) {
        CancelDue(found->second.due);
    }
    TheDesktop().timers.erase(found);
    return true;
}

// 0: the running thread may set and kill timers of the window.
static DWORD RefusalOf(HWND handle) {
    const Window* window = WindowFor(handle);
    if (!window) {
        return ERROR_INVALID_WINDOW_HANDLE;
    }
    return window->threadId == CurrentThread()->id ? 0 : ERROR_WINDOW_OF_OTHER_THREAD;
}

void DropTimersOf(HWND window) {
    std::vector<TimerKey> own;
    for (const auto& [key, timer] : TheDesktop().timers) {
        if (key.first == reinterpret_cast<std::uint64_t>(window)) {
            own.push_back(key);
        }
    }
    for (const TimerKey& key : own) {
        DropTimer(key);
    }
}

bool TakeTimerMessage(DWORD threadId, bool remove, MSG* message) {
    const std::pair<const TimerKey, WindowTimer>* first = nullptr;
    for (const auto& entry : TheDesktop().timers) {
        if (entry.second.threadId == threadId && entry.second.waits &&
            (!first || entry.second.dueMs < first->second.dueMs)) {
            first = &entry;
        }
    }
    if (!first) {
        return false;
    }
    const TimerKey key = first->first;
    WindowTimer& timer = TheDesktop().timers.at(key);
    *message = {reinterpret_cast<HWND>(key.first),         WM_TIMER,    key.second,
                reinterpret_cast<LPARAM>(timer.procedure), TickCount(), {0, 0}};
    if (!remove) {
        return true;
    }
    timer.waits = false;
    while (timer.dueMs <= Now()) { // what it missed while its message waited does not count
        timer.dueMs += timer.periodMs;
    }
    Schedule(key);
    return true;
}

} // namespace machine

namespace simwin {

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT ms, TIMERPROC procedure) {
    SIM_CALL("SetTimer", "", ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_WINDOW_HANDLE);
    if (!window) {
        machine::NotModelled("SetTimer", "a timer without a window");
    }
    const DWORD error = simCall.error ? simCall.error : machine::RefusalOf(window);
    if (error) {
        machine::SetError(error);
        return 0;
    }
    const machine::TimerKey key = machine::KeyOf(window, id);
    machine::DropTimer(key);
    machine::WindowTimer timer;
    timer.threadId = machine::CurrentThread()->id;
    timer.periodMs = std::clamp(ms, machine::ShortestTimer, machine::LongestTimer);
    timer.procedure = procedure;
    timer.dueMs = machine::Now() + timer.periodMs;
    machine::TheDesktop().timers.emplace(key, timer);
    machine::WindowFor(window)->timerMs = ms;
    machine::Schedule(key);
    return id ? id : 1;
}

BOOL KillTimer(HWND window, UINT_PTR id) {
    SIM_CALL("KillTimer", "", ERROR_INVALID_WINDOW_HANDLE);
    DWORD error = simCall.error ? simCall.error : machine::RefusalOf(window);
    if (!error && !machine::DropTimer(machine::KeyOf(window, id))) {
        error = ERROR_INVALID_PARAMETER;
    }
    if (error) {
        machine::SetError(error);
    }
    return !error;
}

} // namespace simwin
