#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"

#include <algorithm>
#include <cstring>

namespace machine {

using namespace simwin;

constexpr std::size_t LongestQueue = 10'000;

template<typename Result>
static Result Fail(DWORD error, Result result) {
    SetError(error);
    return result;
}

static bool HasThread(DWORD threadId) {
    const std::vector<Thread*> threads = AllThreads();
    return std::any_of(threads.begin(), threads.end(), [&](const Thread* thread) { return thread->id == threadId; });
}

namespace {
struct Filter {
    UINT first, last;
    bool Fits(UINT message) const { return (first == 0 && last == 0) || (message >= first && message <= last); }
};
} // namespace

// The next message of the running thread: posted messages, then WM_QUIT, then timers.
static bool TakeMessage(const Filter& filter, bool remove, MSG* message) {
    MessageQueue& queue = OwnQueue();
    const auto found = std::find_if(queue.posted.begin(), queue.posted.end(),
                                    [&](const MSG& posted) { return filter.Fits(posted.message); });
    if (found != queue.posted.end()) {
        *message = *found;
        if (remove) {
            queue.posted.erase(found);
        }
        return true;
    }
    if (queue.quit) {
        *message = {nullptr, WM_QUIT, static_cast<WPARAM>(*queue.quit), 0, TickCount(), {0, 0}};
        if (remove) {
            queue.quit.reset();
        }
        return true;
    }
    return filter.Fits(WM_TIMER) && TakeTimerMessage(CurrentThread()->id, remove, message);
}

static bool IsButtonUp(UINT message) {
    return message == WM_LBUTTONUP || message == WM_RBUTTONUP || message == WM_MBUTTONUP;
}

static void NoteFarewell(HWND handle, Farewell farewell) {
    if (Window* window = WindowFor(handle); window && window->farewell == Farewell::None) {
        window->farewell = farewell;
    }
}

// What goes from one process to another is copied, since neither sees the other's memory.
static void CarryText(SentMessage& sent) {
    if (sent.message == WM_SETTEXT && sent.lParam) {
        const auto* text = reinterpret_cast<const char*>(sent.lParam);
        sent.data.assign(text, text + std::strlen(text) + 1);
    } else if (sent.message == WM_GETTEXT && sent.lParam) {
        sent.data.assign(sent.wParam, 0);
        sent.copyBack = reinterpret_cast<void*>(sent.lParam);
    }
    if (!sent.data.empty()) {
        sent.lParam = reinterpret_cast<LPARAM>(sent.data.data());
    }
}

// Sends and waits. False with the last error set.
static bool Send(HWND handle, const MSG& message, std::uint64_t ms, LRESULT* result) {
    const Window* window = WindowFor(handle);
    if (!window) {
        return Fail(ERROR_INVALID_WINDOW_HANDLE, false);
    }
    const DWORD threadId = window->threadId;
    if (threadId == 0 || threadId == CurrentThread()->id) {
        *result = CallWindow(handle, message.message, message.wParam, message.lParam);
        return true;
    }
    SentMessage* sent = SendTo(*window, /*isAwaited=*/true);
    sent->message = message.message;
    sent->wParam = message.wParam;
    sent->lParam = message.lParam;
    CarryText(*sent);
    if (message.message == WM_CLOSE && window->process != CurrentProcess()) {
        NoteFarewell(handle, Farewell::Close);
    }
    return AwaitAnswer(sent, threadId, ms, result);
}

} // namespace machine

namespace simwin {

using machine::Fail;

BOOL GetMessageA(LPMSG message, HWND window, UINT first, UINT last) {
    SIM_CALL("GetMessageA", "");
    if (window || first || last) {
        machine::NotModelled("GetMessageA", "a filter");
    }
    (void)machine::OwnQueue();
    for (;;) {
        machine::HandleSent();
        if (machine::TakeMessage({0, 0}, /*remove=*/true, message)) {
            return message->message != WM_QUIT;
        }
        machine::Block(machine::WaitKind::Message, "a message", machine::NoLimit);
    }
}

BOOL PeekMessageA(LPMSG message, HWND window, UINT first, UINT last, UINT remove) {
    SIM_CALL("PeekMessageA", "");
    if (window || remove > PM_REMOVE) {
        machine::NotModelled("PeekMessageA", "a window or flags");
    }
    (void)machine::OwnQueue();
    machine::HandleSent();
    return machine::TakeMessage({first, last}, remove != 0, message);
}

LRESULT DispatchMessageA(const MSG* message) {
    SIM_CALL("DispatchMessageA", "");
    if (!message->hwnd) {
        return 0;
    }
    if (message->message == WM_TIMER && message->lParam) {
        if (!machine::WindowFor(message->hwnd)) {
            return 0;
        }
        machine::NoteFarewell(message->hwnd, machine::Farewell::Time);
        const auto procedure = reinterpret_cast<TIMERPROC>(message->lParam);
        procedure(message->hwnd, WM_TIMER, static_cast<UINT_PTR>(message->wParam), machine::TickCount());
        return 0;
    }
    if (machine::IsButtonUp(message->message)) {
        machine::NoteFarewell(message->hwnd, machine::Farewell::Click);
    }
    return machine::CallWindow(message->hwnd, message->message, message->wParam, message->lParam);
}

BOOL PostMessageA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    SIM_CALL("PostMessageA", "", ERROR_INVALID_WINDOW_HANDLE, ERROR_NOT_ENOUGH_QUOTA);
    machine::Window* window = simCall.error ? nullptr : machine::WindowFor(handle);
    if (!window) {
        return Fail(simCall.error ? simCall.error : DWORD{ERROR_INVALID_WINDOW_HANDLE}, FALSE);
    }
    if (window->threadId == 0) {
        machine::AnswerForProgram(*window, message, lParam);
        return TRUE;
    }
    if (machine::TheDesktop().queues[window->threadId].posted.size() >= machine::LongestQueue) {
        return Fail(ERROR_NOT_ENOUGH_QUOTA, FALSE);
    }
    if (message == WM_CLOSE && window->process != machine::CurrentProcess()) {
        machine::NoteFarewell(handle, machine::Farewell::Close);
    }
    return machine::PostToWindow(handle, message, wParam, lParam);
}

BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam) {
    SIM_CALL("PostThreadMessageA", "", ERROR_INVALID_THREAD_ID);
    auto& queues = machine::TheDesktop().queues;
    const auto queue = queues.find(threadId);
    if (simCall.error || queue == queues.end() || !machine::HasThread(threadId)) {
        return Fail(ERROR_INVALID_THREAD_ID, FALSE);
    }
    queue->second.posted.push_back({nullptr, message, wParam, lParam, machine::TickCount(), {0, 0}});
    machine::WakeForMessage(threadId);
    return TRUE;
}

void PostQuitMessage(int exitCode) {
    SIM_CALL("PostQuitMessage", "");
    machine::OwnQueue().quit = exitCode;
}

LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    SIM_CALL("SendMessageA", "", ERROR_INVALID_WINDOW_HANDLE);
    if (simCall.error) {
        return Fail<LRESULT>(simCall.error, 0);
    }
    LRESULT result = 0;
    const bool isAnswered =
        machine::Send(window, {window, message, wParam, lParam, 0, {0, 0}}, machine::NoLimit, &result);
    return isAnswered ? result : 0;
}

LRESULT SendMessageTimeoutA(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT flags, UINT ms,
                            PDWORD_PTR result) {
    SIM_CALL("SendMessageTimeoutA", "", ERROR_TIMEOUT, ERROR_INVALID_WINDOW_HANDLE);
    if (flags != SMTO_ABORTIFHUNG) {
        machine::NotModelled("SendMessageTimeoutA", "flags other than SMTO_ABORTIFHUNG");
    }
    if (simCall.error) {
        return Fail<LRESULT>(simCall.error, 0);
    }
    LRESULT answer = 0;
    if (!machine::Send(window, {window, message, wParam, lParam, 0, {0, 0}}, ms, &answer)) {
        return 0;
    }
    if (result) {
        *result = static_cast<DWORD_PTR>(answer);
    }
    return 1;
}

} // namespace simwin
