// The room's own state: window classes, windows, the message queues of threads, timers, input. Used by the sources of
// the desktop and of drawing only.
#pragma once

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Scheduler.h"

#include <deque>
#include <list>
#include <map>
#include <memory>

namespace machine {

// A message on its way from another thread or from the machine. What outlives a wait is here, not on a stack.
struct SentMessage {
    simwin::HWND window = nullptr;
    simwin::UINT message = 0;
    simwin::WPARAM wParam = 0;
    simwin::LPARAM lParam = 0;
    // In place of a message: something that the window's own thread must do.
    simwin::LRESULT (*work)(const SentMessage& message) = nullptr;
    simwin::WINDOWPOS place{};
    int command = 0;
    simwin::HRGN region = nullptr;

    std::vector<std::uint8_t> data;
    void* copyBack = nullptr; // takes what the procedure left in `data`, when the sender wakes
    std::function<void()> returned;
    simwin::DWORD waiter = 0; // thread that waits for the result; 0: none
    simwin::LRESULT result = 0;
    bool answered = false;
    bool isLost = false; // the window was destroyed before it was handled
};

struct MessageQueue {
    std::deque<simwin::MSG> posted;
    std::optional<int> quit;                                   // comes after all posted messages
    std::list<std::shared_ptr<SentMessage>> sent, inProcedure; // to this thread: waiting, with the procedure
    std::vector<std::shared_ptr<SentMessage>> awaited;         // from this thread, which waits for the last
};

struct WindowTimer {
    simwin::DWORD threadId = 0;
    simwin::UINT periodMs = 0;
    simwin::TIMERPROC procedure = nullptr;
    std::uint64_t dueMs = 0;
    DueId due = 0;
    bool waits = false; // its message waits to be taken
};

struct SessionInput {
    Foreground rule = Foreground::Free;
    std::optional<simwin::POINT> cursor;
    simwin::HWND foreground = nullptr;
    const Process* lastInput = nullptr; // who got the last key or click
    const Process* lastClick = nullptr;
};

struct DesktopState {
    std::map<std::pair<const Process*, std::string>, simwin::WNDCLASSA> classes; // names in small letters
    std::map<std::uint64_t, std::unique_ptr<Window>> windows;                    // by handle, so oldest first
    std::map<unsigned, std::vector<simwin::HWND>> order;                         // by session, from front to back
    std::map<simwin::DWORD, MessageQueue> queues;                                // by thread
    std::map<std::pair<std::uint64_t, simwin::UINT_PTR>, WindowTimer> timers;    // by window and id
    std::map<unsigned, SessionInput> inputs;                                     // by session
    std::vector<std::pair<simwin::DWORD, simwin::DWORD>> attachedInputs;
    std::map<std::string, simwin::HWND> foreign; // described windows by session and name
    std::vector<InputRecord> inputRecords;
    std::function<void(const InputRecord&)> inputWatcher;
    std::vector<WindowWatcher> watchers;
    TaskBar bar;
    Appearance appearance;
    std::vector<BoxAnswer> answers;
    std::vector<MessageBoxRecord> boxes;
    std::uint64_t nextWindow = 0x10010;
    simwin::WORD nextAtom = 0xC000;
};

const simwin::HWND DesktopWindow = reinterpret_cast<simwin::HWND>(0x10000ull);

DesktopState& TheDesktop();
Window* WindowFor(simwin::HWND window); // null if there is none
simwin::RECT ScreenRect();

// --- Windows: their changes, without messages. Each notifies the watchers.
Window* AddWindow(Process* process, unsigned session, std::string_view className, std::string_view title);
void SetVisible(Window& window, bool isVisible);
void Activate(Window& window);     // the foreground, and the front of its band
void BringToFront(Window& window); // of its band: those that are topmost, the others
void SendToBack(Window& window);
void MoveInOrder(Window& window, simwin::HWND after);
void SetPlace(Window& window, const simwin::RECT& rect);
void TellChange(const Window& window, WindowChange change);
void RemoveWindow(simwin::HWND window);
bool MayTakeForeground(const SessionInput& input, const Process* process);

// --- With messages: what the window's own thread does. They call its procedure.
void ApplyWindowPos(const simwin::WINDOWPOS& place);
simwin::LRESULT ApplyShow(simwin::HWND window, int command);
void DestroyWindowNow(simwin::HWND window);

// --- Messages.
// The running thread's queue, created at the first use.
MessageQueue& OwnQueue();
// Makes a thread that waits for a message or for an answer check again.
void WakeForMessage(simwin::DWORD threadId);
// Calls the procedure of a window of the running thread, or answers for a scripted program's.
simwin::LRESULT CallWindow(simwin::HWND window, simwin::UINT message, simwin::WPARAM wParam, simwin::LPARAM lParam);
simwin::LRESULT AnswerForProgram(Window& window, simwin::UINT message, simwin::LPARAM lParam);
// Handles all messages that were sent to the running thread.
void HandleSent();
// Puts an order into the queue of another thread's window, which must have one. isAwaited: the running thread will call
// AwaitAnswer for it.
SentMessage* SendTo(const Window& window, bool isAwaited);
// Waits for the answer to what was sent last, handling incoming sent messages in the meantime. False after `ms`, or if
// the window is destroyed.
bool AwaitAnswer(SentMessage* sent, simwin::DWORD threadId, std::uint64_t ms, simwin::LRESULT* result);
void AnswerAllFor(simwin::HWND window);
std::string UnhandledMessages();

// --- Timers.
void DropTimersOf(simwin::HWND window);
// The first whose message waits for this thread; takes it with `remove`.
bool TakeTimerMessage(simwin::DWORD threadId, bool remove, simwin::MSG* message);

} // namespace machine
