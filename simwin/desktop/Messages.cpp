// The queues of threads: posted messages, sent messages that wait for an answer, and last timers.
#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Call.h"

#include <algorithm>

namespace machine {

using namespace simwin;

static void Answer(SentMessage& message) {
    message.answered = true;
    if (message.waiter) {
        for (Thread* thread : AllThreads()) {
            if (thread->id == message.waiter && thread->waitKind == WaitKind::Answer) {
                Wake(thread, 0);
            }
        }
    }
    if (const std::function<void()> returned = std::move(message.returned)) {
        returned();
    }
}

MessageQueue& OwnQueue() {
    return TheDesktop().queues[CurrentThread()->id];
}

void WakeForMessage(DWORD threadId) {
    for (Thread* thread : AllThreads()) {
        if (thread->id == threadId && (thread->waitKind == WaitKind::Message || thread->waitKind == WaitKind::Answer)) {
            Wake(thread, 0);
        }
    }
}

// Messages still on their way to a destroyed window are never handled; their senders learn of that.
void AnswerAllFor(HWND window) {
    std::vector<std::shared_ptr<SentMessage>> lost;
    for (auto& [threadId, queue] : TheDesktop().queues) {
        for (auto* list : {&queue.sent, &queue.inProcedure}) {
            for (auto at = list->begin(); at != list->end();) {
                const std::shared_ptr<SentMessage> message = *at;
                if (message->window != window) {
                    ++at;
                    continue;
                }
                message->isLost = list == &queue.sent;
                at = list->erase(at);
                lost.push_back(message);
            }
        }
    }
    for (const std::shared_ptr<SentMessage>& message : lost) {
        Answer(*message);
    }
}

std::string UnhandledMessages() {
    for (const auto& [threadId, queue] : TheDesktop().queues) {
        for (const auto* list : {&queue.sent, &queue.inProcedure}) {
            for (const std::shared_ptr<SentMessage>& message : *list) {
                if (message->waiter || !message->work) {
                    return "a message that was sent to thread " + std::to_string(threadId) + " is not answered";
                }
            }
        }
    }
    return {};
}

LRESULT CallWindow(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* window = WindowFor(handle);
    if (!window) {
        return 0;
    }
    return window->procedure ? window->procedure(handle, message, wParam, lParam)
                             : AnswerForProgram(*window, message, lParam);
}

void HandleSent() {
    MessageQueue& queue = OwnQueue(); // nodes of the map stay where they are
    while (!queue.sent.empty()) {
        queue.inProcedure.splice(queue.inProcedure.end(), queue.sent, queue.sent.begin());
        SentMessage* message = queue.inProcedure.back().get();
        const LRESULT result = message->work
                                   ? message->work(*message)
                                   : CallWindow(message->window, message->message, message->wParam, message->lParam);
        // The procedure may have destroyed its window, and with it the message's entry in the list.
        for (auto at = queue.inProcedure.begin(); at != queue.inProcedure.end(); ++at) {
            if (at->get() == message) {
                const std::shared_ptr<SentMessage> done = *at;
                queue.inProcedure.erase(at);
                done->result = result;
                Answer(*done);
                break;
            }
        }
    }
}

SentMessage* SendTo(const Window& window, bool isAwaited) {
    auto made = std::make_shared<SentMessage>();
    made->window = window.handle;
    if (isAwaited) {
        made->waiter = CurrentThread()->id;
        OwnQueue().awaited.push_back(made); // held by the sender as well, until it has read the result
    }
    TheDesktop().queues[window.threadId].sent.push_back(made);
    return made.get();
}

bool AwaitAnswer(SentMessage* sent, DWORD threadId, std::uint64_t ms, LRESULT* result) {
    WakeForMessage(threadId);
    const bool isLimited = ms != NoLimit;
    const std::uint64_t dueMs = Now() + ms;
    for (;;) {
        HandleSent();
        if (sent->answered || (isLimited && Now() >= dueMs)) {
            break;
        }
        Block(WaitKind::Answer, "a window's answer", isLimited ? dueMs - Now() : NoLimit);
    }
    MessageQueue& own = OwnQueue();
    const std::shared_ptr<SentMessage> held = own.awaited.back();
    own.awaited.pop_back();
    if (!held->answered) {
        TheDesktop().queues[threadId].sent.remove(held);
        held->waiter = 0;
        SetError(ERROR_TIMEOUT);
        return false;
    }
    if (held->isLost) {
        SetError(ERROR_INVALID_WINDOW_HANDLE);
        return false;
    }
    if (held->copyBack) {
        std::copy(held->data.begin(), held->data.end(), static_cast<std::uint8_t*>(held->copyBack));
    }
    *result = held->result;
    return true;
}

bool PostToWindow(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* window = WindowFor(handle);
    if (!window || !window->threadId) {
        return false;
    }
    TheDesktop().queues[window->threadId].posted.push_back({handle, message, wParam, lParam, TickCount(), {0, 0}});
    WakeForMessage(window->threadId);
    return true;
}

unsigned CloseWindowsOf(const Process* process) {
    unsigned count = 0;
    for (const Window* window : Windows()) {
        if (window->process == process && PostToWindow(window->handle, WM_CLOSE, 0, 0)) {
            ++count;
        }
    }
    return count;
}

void SendFromMachine(HWND handle, UINT message, WPARAM wParam, const std::vector<std::uint8_t>& data,
                     std::function<void()> returned) {
    const Window* window = WindowFor(handle);
    if (!window || !window->threadId) {
        if (returned) {
            returned();
        }
        return;
    }
    SentMessage* sent = SendTo(*window, /*isAwaited=*/false);
    sent->message = message;
    sent->wParam = wParam;
    sent->data = data;
    sent->lParam = data.empty() ? 0 : reinterpret_cast<LPARAM>(sent->data.data());
    sent->returned = std::move(returned);
    WakeForMessage(window->threadId);
}

} // namespace machine
