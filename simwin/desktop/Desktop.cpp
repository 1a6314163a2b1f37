#include "simwin/desktop/Desktop.h"

#include "simwin/desktop/DesktopState.h"
#include "simwin/devices/Notifications.h"
#include "simwin/kernel/Machine.h"
#include "simwin/kernel/Text.h"

namespace machine {

using namespace simwin;

namespace {

DesktopState* g_desktop;

constexpr WPARAM TreeChanged = 7; // DBT_DEVNODES_CHANGED

std::uint64_t Key(HWND window) {
    return reinterpret_cast<std::uint64_t>(window);
}

void Answer(SentMessage& message) {
    message.answered = true;
    if (message.waiter)
        for (Thread* thread : AllThreads())
            if (thread->id == message.waiter && thread->waitKind == WaitKind::Machine)
                Wake(thread, 0);
    if (const std::function<void()> returned = std::move(message.returned))
        returned();
}

// What is still on its way to a window that goes is never handled; its sender learns of that.
void AnswerAllFor(HWND window) {
    for (auto& [threadId, queue] : g_desktop->queues)
        for (auto* list : {&queue.sent, &queue.inProcedure})
            for (auto at = list->begin(); at != list->end();) {
                const std::shared_ptr<SentMessage> message = *at;
                if (message->window != window) {
                    ++at;
                    continue;
                }
                at = list->erase(at);
                Answer(*message);
            }
}

void DropWindowsOf(Process& process) {
    if (!g_desktop)
        return; // the machine is being taken down
    std::vector<HWND> own;
    for (const auto& [key, window] : g_desktop->windows)
        if (window->process == &process)
            own.push_back(window->handle);
    for (const HWND window : own) {
        g_desktop->windows.erase(Key(window));
        AnswerAllFor(window);
    }
    std::erase_if(g_desktop->classes, [&](const auto& entry) { return entry.first.first == &process; });
}

std::string UnhandledMessages() {
    for (const auto& [threadId, queue] : g_desktop->queues)
        if (!queue.sent.empty() || !queue.inProcedure.empty())
            return "a message that was sent to thread " + std::to_string(threadId) + " is not answered";
    return {};
}

void DeliverToWindow(const NotificationRecipient& recipient, DWORD event, const std::vector<std::uint8_t>& data,
                     NotificationReturned returned) {
    SendFromMachine(static_cast<HWND>(recipient.handle), WM_DEVICECHANGE, event, data, std::move(returned));
}

void BroadcastTreeChange() {
    for (const Window* window : Windows())
        if (window->threadId)
            SendFromMachine(window->handle, WM_DEVICECHANGE, TreeChanged, {});
}

void Create() {
    g_desktop = new DesktopState;
    OnProcessEnd(DropWindowsOf);
    AddEndCheck(UnhandledMessages);
}

void Destroy() {
    delete g_desktop;
    g_desktop = nullptr;
}

Room g_room(50, Create, Destroy);

// Behind the devices, whose notifications come here.
Room g_road(
    95,
    [] {
        SetWindowRoad(DeliverToWindow);
        SetWindowCheck(
            [](Process*, HANDLE window) { return FindWindowByHandle(static_cast<HWND>(window)) != nullptr; });
        SetTreeChangeBroadcast(BroadcastTreeChange);
    },
    [] {});

} // namespace

DesktopState& TheDesktop() {
    return *g_desktop;
}

Window* WindowFor(HWND window) {
    const auto found = g_desktop->windows.find(Key(window));
    return found == g_desktop->windows.end() ? nullptr : found->second.get();
}

MessageQueue& OwnQueue() {
    return g_desktop->queues[CurrentThread()->id];
}

void WakeForMessage(DWORD threadId) {
    for (Thread* thread : AllThreads())
        if (thread->id == threadId && thread->waitKind == WaitKind::Message)
            Wake(thread, 0);
}

LRESULT CallWindow(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const Window* window = WindowFor(handle);
    return window && window->procedure ? window->procedure(handle, message, wParam, lParam) : 0;
}

void HandleSent() {
    MessageQueue& queue = OwnQueue(); // nodes of the map stay where they are
    while (!queue.sent.empty()) {
        queue.inProcedure.splice(queue.inProcedure.end(), queue.sent, queue.sent.begin());
        SentMessage* message = queue.inProcedure.back().get();
        const LRESULT result = CallWindow(message->window, message->message, message->wParam, message->lParam);
        // The procedure may have destroyed its window, and with it the message's place in the list.
        for (auto at = queue.inProcedure.begin(); at != queue.inProcedure.end(); ++at)
            if (at->get() == message) {
                const std::shared_ptr<SentMessage> done = *at;
                queue.inProcedure.erase(at);
                done->result = result;
                Answer(*done);
                break;
            }
    }
}

void DestroyWindowNow(HWND window) {
    CallWindow(window, WM_DESTROY, 0, 0);
    CallWindow(window, WM_NCDESTROY, 0, 0);
    g_desktop->windows.erase(Key(window));
    AnswerAllFor(window);
}

std::vector<const Window*> Windows() {
    std::vector<const Window*> windows;
    for (const auto& [key, window] : g_desktop->windows)
        windows.push_back(window.get());
    return windows;
}

const Window* FindWindowByHandle(HWND window) {
    return WindowFor(window);
}

HWND AddScriptedWindow(Process* process, std::string_view className, std::string_view title) {
    auto window = std::make_unique<Window>();
    window->handle = reinterpret_cast<HWND>(g_desktop->nextWindow);
    g_desktop->nextWindow += 2;
    window->process = process;
    window->className = className;
    window->title = title;
    window->visible = true;
    const HWND handle = window->handle;
    g_desktop->windows.emplace(Key(handle), std::move(window));
    return handle;
}

void ShellStarted(Process* shell) {
    (void)AddScriptedWindow(shell, "Progman", "Program Manager");
    (void)AddScriptedWindow(shell, "Shell_TrayWnd", "");
}

HWND ShowProgramWindow(Process* program, std::string_view title, unsigned show) {
    const HWND handle = AddScriptedWindow(program, "ProgramWindow", title);
    WindowFor(handle)->visible = show != SW_HIDE;
    return handle;
}

void SetForegroundRule(unsigned session, Foreground rule) {
    g_desktop->inputs[session].rule = rule;
}

void SetCursor(unsigned session, POINT place) {
    g_desktop->inputs[session].cursor = place;
}

bool PostToWindow(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const Window* window = WindowFor(handle);
    if (!window || !window->threadId)
        return false;
    g_desktop->queues[window->threadId].posted.push_back({handle, message, wParam, lParam, TickCount(), {0, 0}});
    WakeForMessage(window->threadId);
    return true;
}

unsigned CloseWindowsOf(const Process* process) {
    unsigned count = 0;
    for (const Window* window : Windows())
        if (window->process == process && PostToWindow(window->handle, WM_CLOSE, 0, 0))
            ++count;
    return count;
}

void SendFromMachine(HWND handle, UINT message, WPARAM wParam, const std::vector<std::uint8_t>& data,
                     std::function<void()> returned) {
    const Window* window = WindowFor(handle);
    if (!window || !window->threadId) {
        if (returned)
            returned();
        return;
    }
    auto sent = std::make_shared<SentMessage>();
    sent->window = handle;
    sent->message = message;
    sent->wParam = wParam;
    sent->data = data;
    sent->lParam = data.empty() ? 0 : reinterpret_cast<LPARAM>(sent->data.data());
    sent->returned = std::move(returned);
    g_desktop->queues[window->threadId].sent.push_back(std::move(sent));
    WakeForMessage(window->threadId);
}

void AddBoxAnswer(const BoxAnswer& answer) {
    g_desktop->answers.push_back(answer);
}

int ButtonFromName(std::string_view name) {
    static constexpr const char* Names[] = {"ok", "cancel", "abort", "retry", "ignore", "yes", "no"};
    for (std::size_t i = 0; i < sizeof(Names) / sizeof(Names[0]); ++i)
        if (EqualNoCase(name, Names[i]))
            return static_cast<int>(i) + 1;
    return 0;
}

const std::vector<MessageBoxRecord>& MessageBoxes() {
    return g_desktop->boxes;
}

} // namespace machine
