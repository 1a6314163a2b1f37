// The desktop as other rooms and the rehearsal see it: windows of all sessions, messages to them, input, the task bar,
// windows of programs that are only described, message boxes. Called on the machine's side; none of this blocks.
#pragma once

#include "simwin/desktop/DisplayList.h"
#include "simwin/desktop/api.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// What first asked a window to close: its own timer, a mouse button, or WM_CLOSE from another process.
enum class Farewell : std::uint8_t { None, Time, Click, Close };

struct Window {
    simwin::HWND handle = nullptr;
    Process* process = nullptr; // null: a described window without a process
    simwin::DWORD threadId = 0; // 0: a scripted program's window, which answers by itself
    unsigned session = 0;
    simwin::HWND parent = nullptr;       // null: top level
    simwin::WNDPROC procedure = nullptr; // null for a scripted program's
    std::string className, title;
    simwin::DWORD style = 0, extendedStyle = 0; // without WS_VISIBLE, see below
    simwin::RECT rect{};
    bool visible = false;
    std::optional<RoundShape> region; // counts from the window's corner
    DisplayList drawn;                // the last message that reached it
    bool hasAttributes = false;       // layered with SetLayeredWindowAttributes: it shows what is drawn on it
    simwin::BYTE alpha = 255;
    Farewell farewell = Farewell::None;
    std::optional<simwin::UINT> timerMs; // of the timer set last, as requested
    bool TakesActivation() const;
};

// The windows from the oldest to the newest; those of a session from front to back, without children.
std::vector<const Window*> Windows();
std::vector<const Window*> WindowsOfSession(unsigned session);
const Window* FindWindowByHandle(simwin::HWND window);
const Window* WindowAt(unsigned session, simwin::POINT point); // the frontmost visible one; null: none
const Window* ForegroundOf(unsigned session);                  // null: none

// What changes: visible or not, place and size, what is drawn on it or how transparent it is. Gone: it is destroyed,
// alone or with its process; its last change.
enum class WindowChange : std::uint8_t { Shown, Hidden, Moved, Drawn, Gone };
using WindowWatcher = std::function<void(const Window& window, WindowChange change)>;
void WatchWindows(WindowWatcher watcher);

// A window of a program that has no threads; it is destroyed with its process.
simwin::HWND AddScriptedWindow(Process* process, std::string_view className, std::string_view title);

// The shell of a session runs from now on: its windows Progman and, unless there is no task bar, Shell_TrayWnd with
// TrayNotifyWnd exist in the session of its process until it ends. Called once for each start of a shell.
void ShellStarted(Process* shell);

// The task bar of every shell, now and later. It spans its edge of the screen; hidden, two pixels of it stay visible.
struct TaskBar {
    enum class Edge : std::uint8_t { Top, Bottom, Left, Right } edge = Edge::Bottom;
    int size = 40;
    bool isHidden = false, isRightToLeft = false;
    bool isGone = false;
    std::optional<simwin::RECT> rect; // a place other than an edge
};
void SetTaskBar(const TaskBar& bar);
const TaskBar& TheTaskBar();

// What the user has set for the look of everything.
struct Appearance {
    enum class Theme : std::uint8_t { On, Off, Broken } theme = Theme::On; // from 5.1 on
    bool tooltipFade = true;
    simwin::COLORREF infoText = 0x000000, infoBack = 0xE1FFFF;
};
void SetAppearance(const Appearance& appearance);
const Appearance& TheAppearance();
bool HasTheme(); // there is one that responds, even if it is broken

// A described window of another program: created, or changed where the description says so if the session has one of
// this name. A tool tip has class and style of its own and is topmost; another window covers the screen unless it says
// otherwise.
struct ForeignWindow {
    std::string name;
    unsigned session = 1;
    bool isToolTip = false;
    std::optional<std::string> className;
    std::optional<simwin::DWORD> style;
    std::optional<simwin::LONG> x, y, width, height;
    std::optional<bool> isTopmost;
};
inline constexpr const char* ToolTipClass = "tooltips_class32";
void ShowForeignWindow(const ForeignWindow& window);
void RemoveForeignWindow(unsigned session, std::string_view name);
const Window* FindForeignWindow(std::string_view name); // of any session, the newest; null: none

// A described program shows its window; `show` is the show state that it was started with: 0 stays hidden, 4 and 7 do
// not take the foreground.
simwin::HWND ShowProgramWindow(Process* program, std::string_view title, unsigned show);

// How a session responds to a request for the foreground: free (no input for a while) or held (a user is typing). And
// where its cursor is. Free and the middle of the screen unless set.
enum class Foreground : std::uint8_t { Free, Held };
void SetForegroundRule(unsigned session, Foreground rule);
void SetCursor(unsigned session, simwin::POINT place);

// A user moves the mouse, or clicks where it is. Returns: the window that got it, null for none.
enum class MouseButton : std::uint8_t { Left, Right, Middle };
const Window* MoveMouse(unsigned session, simwin::POINT place);
const Window* ClickMouse(unsigned session, MouseButton button);

// Keys and clicks, each with the window that got it.
struct InputRecord {
    std::uint64_t atMs;
    std::string what;   // "key 0x1B", "click left"
    std::string window; // title; "" without a window
    unsigned session;
    bool isByPerson; // not by a program
};
const std::vector<InputRecord>& Inputs();
void WatchInput(std::function<void(const InputRecord&)> watcher);

// Posts a message to the window's thread. False if there is no such window.
bool PostToWindow(simwin::HWND window, simwin::UINT message, simwin::WPARAM wParam, simwin::LPARAM lParam);

// Closes the windows of a process as a user would: WM_CLOSE to each. Returns: how many.
unsigned CloseWindowsOf(const Process* process);

// Sends a message that the window's thread handles as soon as it asks for messages. data: what lParam points to, empty
// for 0; it lives until the procedure has returned. returned: called once, also if the window is destroyed first.
void SendFromMachine(simwin::HWND window, simwin::UINT message, simwin::WPARAM wParam,
                     const std::vector<std::uint8_t>& data, std::function<void()> returned = {});

// How message boxes are answered: the first answer whose text occurs in the box's. Without one: the first button, at
// once.
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

RoomPtr MakeDesktop();

} // namespace machine
