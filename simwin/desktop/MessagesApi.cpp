#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"

#include <algorithm>

namespace machine {

namespace {

template<typename Result>
Result Fail(simwin::DWORD error, Result result) {
    SetError(error);
    return result;
}

bool HasThread(simwin::DWORD threadId) {
    const std::vector<Thread*> threads = AllThreads();
    return std::any_of(threads.begin(), threads.end(), [&](const Thread* thread) { return thread->id == threadId; });
}

bool Fits(const simwin::MSG& message, simwin::UINT first, simwin::UINT last) {
    return (first == 0 && last == 0) || (message.message >= first && message.message <= last);
}

void Forget(const std::shared_ptr<SentMessage>& message, simwin::DWORD threadId) {
    MessageQueue& queue = TheDesktop().queues[threadId];
    queue.sent.remove(message);
    message->waiter = 0;
}

} // namespace

} // namespace machine

namespace simwin {

using machine::Fail;

BOOL GetMessageA(LPMSG message, HWND window, UINT first, UINT last) {
    SIM_CALL("GetMessageA", "");
    if (window || first || last)
        machine::NotModelled("GetMessageA", "a filter");
    machine::MessageQueue& queue = machine::OwnQueue();
    for (;;) {
        machine::HandleSent();
        if (!queue.posted.empty())
            break;
        machine::Block(machine::WaitKind::Message, "a message", machine::NoLimit);
    }
    *message = queue.posted.front();
    queue.posted.pop_front();
    return message->message != WM_QUIT;
}

BOOL PeekMessageA(LPMSG message, HWND window, UINT first, UINT last, UINT remove) {
    SIM_CALL("PeekMessageA", "");
    if (window || remove > PM_REMOVE)
        machine::NotModelled("PeekMessageA", "a window or flags");
    machine::MessageQueue& queue = machine::OwnQueue();
    machine::HandleSent();
    const auto found = std::find_if(queue.posted.begin(), queue.posted.end(),
                                    [&](const MSG& posted) { return machine::Fits(posted, first, last); });
    if (found == queue.posted.end())
        return FALSE;
    *message = *found;
    if (remove)
        queue.posted.erase(found);
    return TRUE;
}

LRESULT DispatchMessageA(const MSG* message) {
    SIM_CALL("DispatchMessageA", "");
    return message->hwnd ? machine::CallWindow(message->hwnd, message->message, message->wParam, message->lParam) : 0;
}

BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam) {
    SIM_CALL("PostThreadMessageA", "", ERROR_INVALID_THREAD_ID);
    auto& queues = machine::TheDesktop().queues;
    const auto queue = queues.find(threadId);
    if (simCall.error || queue == queues.end() || !machine::HasThread(threadId))
        return Fail(ERROR_INVALID_THREAD_ID, FALSE);
    queue->second.posted.push_back({nullptr, message, wParam, lParam, machine::TickCount(), {0, 0}});
    machine::WakeForMessage(threadId);
    return TRUE;
}

LRESULT SendMessageTimeoutA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam, UINT flags, UINT ms,
                            PDWORD_PTR result) {
    SIM_CALL("SendMessageTimeoutA", "", ERROR_TIMEOUT, ERROR_INVALID_WINDOW_HANDLE);
    if (flags != SMTO_ABORTIFHUNG)
        machine::NotModelled("SendMessageTimeoutA", "flags other than SMTO_ABORTIFHUNG");
    const machine::Window* window = simCall.error ? nullptr : machine::WindowFor(handle);
    if (!window)
        return Fail<LRESULT>(simCall.error ? simCall.error : ERROR_INVALID_WINDOW_HANDLE, 0);
    const DWORD threadId = window->threadId;
    LRESULT answer = 0;
    if (threadId == machine::CurrentThread()->id) {
        answer = machine::CallWindow(handle, message, wParam, lParam);
    } else if (threadId != 0) {
        machine::SentMessage* sent = nullptr;
        {
            auto made = std::make_shared<machine::SentMessage>();
            made->window = handle;
            made->message = message;
            made->wParam = wParam;
            made->lParam = lParam;
            made->waiter = machine::CurrentThread()->id;
            sent = made.get();
            // Held by the sender as well, until it has read the result.
            machine::OwnQueue().awaited.push_back(made);
            machine::TheDesktop().queues[threadId].sent.push_back(made);
        }
        machine::WakeForMessage(threadId);
        machine::Block(machine::WaitKind::Machine, "a window's answer", ms);
        const bool isAnswered = sent->answered;
        answer = sent->result;
        machine::MessageQueue& own = machine::OwnQueue();
        const std::shared_ptr<machine::SentMessage> held = own.awaited.back();
        own.awaited.pop_back();
        if (!isAnswered) {
            machine::Forget(held, threadId);
            return Fail<LRESULT>(ERROR_TIMEOUT, 0);
        }
    }
    if (result)
        *result = static_cast<DWORD_PTR>(answer);
    return 1;
}

} // namespace simwin
