// The desktop as other rooms and the rehearsal see it: windows of simulated programs, messages to them, message boxes
// and how they are answered. One desktop for the whole machine. Called on the machine's side; none of this blocks.
#pragma once

#include "simwin/desktop/api.h"
#include "simwin/kernel/Process.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct Window {
    simwin::HWND handle = nullptr;
    Process* process = nullptr;
    simwin::DWORD threadId = 0;          // 0: a scripted program's window, which answers by itself
    simwin::WNDPROC procedure = nullptr; // null likewise
    std::string className, title;
    simwin::DWORD style = 0, extendedStyle = 0;
    simwin::RECT rect{};
    bool visible = false;
};

// The windows from the oldest to the newest.
std::vector<const Window*> Windows();
const Window* FindWindowByHandle(simwin::HWND window);

// A window of a program that has no threads; it goes with its process.
simwin::HWND AddScriptedWindow(Process* process, std::string_view className, std::string_view title);

// The shell of a session runs from now on: its windows Progman and, unless there is no task bar, Shell_TrayWnd with
// TrayNotifyWnd are there, in the session of its process, until it ends. Called once for each start of a shell.
void ShellStarted(Process* shell);

// A described program shows its window; `show` is the show state that it was started with: 0 stays hidden, 4 and 7 do
// not take the foreground.
simwin::HWND ShowProgramWindow(Process* program, std::string_view title, unsigned show);

// How a session answers who wants the foreground: free (nobody has touched the machine for a while) or held (somebody
// is typing). And where its cursor is. Free and the middle of the screen unless set.
enum class Foreground : std::uint8_t { Free, Held };
void SetForegroundRule(unsigned session, Foreground rule);
void SetCursor(unsigned session, simwin::POINT place);

// Posts a message to the window's thread. False if there is no such window.
bool PostToWindow(simwin::HWND window, simwin::UINT message, simwin::WPARAM wParam, simwin::LPARAM lParam);

// Closes the windows of a process as a person would: WM_CLOSE to each. Returns: how many.
unsigned CloseWindowsOf(const Process* process);

// Sends a message that the window's thread handles as soon as it asks for messages. data: what lParam points to, empty
// for 0; it lives until the procedure has returned. returned: called once, also when the window goes before.
void SendFromMachine(simwin::HWND window, simwin::UINT message, simwin::WPARAM wParam,
                     const std::vector<std::uint8_t>& data, std::function<void()> returned = {});

// How message boxes are answered: the first whose text occurs in the box's. Without one: the first button, at once.
struct BoxAnswer {
    std::string text;
    int button = simwin::IDOK;
    std::uint64_t afterMs = 0;
};
void AddBoxAnswer(const BoxAnswer& answer);
// "ok", "cancel", "yes", "no", "retry", "abort", "ignore"; 0 for another.
int ButtonFromName(std::string_view name);

struct MessageBoxRecord {
    std::uint64_t atMs;
    std::string title, text;
    simwin::UINT flags;
    simwin::DWORD processId;
    int button;
};
const std::vector<MessageBoxRecord>& MessageBoxes();

} // namespace machine
