// The room's own state: window classes, windows, the message queues of threads. Used by the room's sources only.
#pragma once

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Scheduler.h"

#include <deque>
#include <list>
#include <map>
#include <memory>

namespace machine {

// A message on its way from another thread or from the machine. What a wait crosses lies here, not on a stack.
struct SentMessage {
    simwin::HWND window = nullptr;
    simwin::UINT message = 0;
    simwin::WPARAM wParam = 0;
    simwin::LPARAM lParam = 0;
    std::vector<std::uint8_t> data;
    std::function<void()> returned;
    simwin::DWORD waiter = 0; // thread that waits for the result; 0: nobody
    simwin::LRESULT result = 0;
    bool answered = false;
};

struct MessageQueue {
    std::deque<simwin::MSG> posted;
    std::list<std::shared_ptr<SentMessage>> sent, inProcedure; // to this thread: waiting, with the procedure
    std::vector<std::shared_ptr<SentMessage>> awaited;         // from this thread, which waits for the last
};

struct SessionInput {
    Foreground rule = Foreground::Free;
    simwin::POINT cursor{};
};

struct DesktopState {
    std::map<std::pair<const Process*, std::string>, simwin::WNDCLASSA> classes; // names in small letters
    std::map<std::uint64_t, std::unique_ptr<Window>> windows;                    // by handle, so oldest first
    std::map<simwin::DWORD, MessageQueue> queues;                                // by thread
    std::map<unsigned, SessionInput> inputs;                                     // by session
    std::vector<BoxAnswer> answers;
    std::vector<MessageBoxRecord> boxes;
    std::uint64_t nextWindow = 0x10010;
    simwin::WORD nextAtom = 0xC000;
    std::map<std::string, simwin::HICON> icons;
    std::uint64_t nextIcon = 0x20003;
};

DesktopState& TheDesktop();
Window* WindowFor(simwin::HWND window); // null if there is none
// The running thread's queue, made when it is first asked for.
MessageQueue& OwnQueue();
// Lets a thread that waits for a message look again.
void WakeForMessage(simwin::DWORD threadId);
// Calls the procedure of a window of the running thread.
simwin::LRESULT CallWindow(simwin::HWND window, simwin::UINT message, simwin::WPARAM wParam, simwin::LPARAM lParam);
// Handles all messages that were sent to the running thread.
void HandleSent();
void DestroyWindowNow(simwin::HWND window);

} // namespace machine
