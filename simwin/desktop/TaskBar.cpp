// The windows of the shell, and those of programs that are only described: they have no thread and answer by
// themselves.
#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Text.h"

#include <algorithm>

namespace machine {

using namespace simwin;

constexpr DWORD ShellStyle = WS_POPUP | WS_VISIBLE | WS_CLIPSIBLINGS | WS_CLIPCHILDREN;
constexpr const char* TrayClass = "Shell_TrayWnd";
constexpr const char* AreaClass = "TrayNotifyWnd";
constexpr LONG HiddenPixels = 2;
constexpr LONG AreaLength = 200; // of the notification area along the bar, at its end
constexpr LONG CloseMark = 16;   // of a shell's balloon: distance from its right and upper edge

static RECT BarRect(const TaskBar& bar) {
    if (bar.rect) {
        return *bar.rect;
    }
    const RECT screen = ScreenRect();
    const LONG size = bar.size;
    const LONG moved = bar.isHidden ? size - HiddenPixels : 0;
    switch (bar.edge) {
    case TaskBar::Edge::Top:
        return {0, -moved, screen.right, size - moved};
    case TaskBar::Edge::Left:
        return {-moved, 0, size - moved, screen.bottom};
    case TaskBar::Edge::Right:
        return {screen.right - size + moved, 0, screen.right + moved, screen.bottom};
    case TaskBar::Edge::Bottom:
        break;
    }
    return {0, screen.bottom - size + moved, screen.right, screen.bottom + moved};
}

static RECT AreaRect(const RECT& bar, bool isRightToLeft) {
    RECT area = bar;
    if (bar.right - bar.left < bar.bottom - bar.top) {
        area.top = std::max(bar.top, bar.bottom - AreaLength);
    } else if (isRightToLeft) {
        area.right = std::min(bar.right, bar.left + AreaLength);
    } else {
        area.left = std::max(bar.left, bar.right - AreaLength);
    }
    return area;
}

static Window* FindOf(const Process* shell, std::string_view className) {
    for (const auto& [key, window] : TheDesktop().windows) {
        if (window->process == shell && EqualNoCase(window->className, className)) {
            return window.get();
        }
    }
    return nullptr;
}

static void PlaceBar(Window& tray) {
    const TaskBar& bar = TheTaskBar();
    const RECT rect = BarRect(bar);
    tray.extendedStyle &= ~WS_EX_LAYOUTRTL;
    if (bar.isRightToLeft) {
        tray.extendedStyle |= WS_EX_LAYOUTRTL;
    }
    SetPlace(tray, rect);
    if (Window* area = FindOf(tray.process, AreaClass)) {
        SetPlace(*area, AreaRect(rect, bar.isRightToLeft));
    }
}

static void AddBar(Process* shell) {
    Window* tray = AddWindow(shell, shell->session, TrayClass, "");
    tray->style = ShellStyle;
    tray->extendedStyle = WS_EX_TOPMOST | WS_EX_TOOLWINDOW;
    BringToFront(*tray);
    Window* area = AddWindow(shell, shell->session, AreaClass, "");
    area->style = WS_CHILD | WS_CLIPSIBLINGS;
    area->parent = tray->handle;
    std::erase(TheDesktop().order[shell->session], area->handle);
    PlaceBar(*tray);
    SetVisible(*tray, true);
    SetVisible(*area, true);
}

static std::string ForeignKey(unsigned session, std::string_view name) {
    return std::to_string(session) + " " + std::string(name);
}

// The shell of a session; null without one.
static Process* ShellOf(unsigned session) {
    for (const auto& [key, window] : TheDesktop().windows) {
        if (window->session == session && window->className == "Progman") {
            return window->process;
        }
    }
    return nullptr;
}

// The default unless described otherwise.
static Window* AddForeignWindow(const ForeignWindow& described) {
    constexpr RECT ToolTipRect = {0, 0, 200, 60};
    constexpr DWORD ToolTipStyle = 0x94800000, WindowStyle = 0x14CF0000;
    const bool isToolTip = described.isToolTip;
    Window* window = AddWindow(ShellOf(described.session), described.session,
                               isToolTip ? ToolTipClass : "ProgramWindow", described.name);
    window->style = isToolTip ? ToolTipStyle : WindowStyle;
    window->extendedStyle = isToolTip ? WS_EX_TOPMOST | WS_EX_NOACTIVATE | WS_EX_TOOLWINDOW : 0;
    window->rect = isToolTip ? ToolTipRect : ScreenRect();
    return window;
}

HWND AddScriptedWindow(Process* process, std::string_view className, std::string_view title) {
    Window* window = AddWindow(process, process ? process->session : 0, className, title);
    window->style = WS_CAPTION | WS_SYSMENU | WS_CLIPSIBLINGS;
    SetVisible(*window, true);
    return window->handle;
}

void ShellStarted(Process* shell) {
    Window* desk = AddWindow(shell, shell->session, "Progman", "Program Manager");
    desk->style = ShellStyle;
    desk->rect = ScreenRect();
    SendToBack(*desk);
    SetVisible(*desk, true);
    SessionInput& input = TheDesktop().inputs[shell->session];
    if (!WindowFor(input.foreground)) {
        input.foreground = desk->handle;
    }
    if (!TheTaskBar().isGone) {
        AddBar(shell);
    }
}

void SetTaskBar(const TaskBar& bar) {
    TheDesktop().bar = bar;
    std::vector<Process*> shells;
    for (const auto& [key, window] : TheDesktop().windows) {
        if (window->className == "Progman") {
            shells.push_back(window->process);
        }
    }
    for (Process* shell : shells) {
        Window* tray = FindOf(shell, TrayClass);
        if (bar.isGone && tray) {
            if (const Window* area = FindOf(shell, AreaClass)) {
                RemoveWindow(area->handle);
            }
            RemoveWindow(tray->handle);
        } else if (!bar.isGone && !tray) {
            AddBar(shell);
        } else if (tray) {
            PlaceBar(*tray);
        }
    }
}

const TaskBar& TheTaskBar() {
    return TheDesktop().bar;
}

HWND ShowProgramWindow(Process* program, std::string_view title, unsigned show) {
    const SessionInput& input = TheDesktop().inputs[program->session];
    const bool activates = show != SW_SHOWNOACTIVATE && show != SW_SHOWMINNOACTIVE && show != SW_SHOWNA;
    Window* window = AddWindow(program, program->session, "ProgramWindow", title);
    window->style = WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_CLIPSIBLINGS;
    window->rect = {100, 100, 740, 580};
    if (show == SW_HIDE) {
        return window->handle;
    }
    const bool mayActivate = MayTakeForeground(input, program);
    SetVisible(*window, true);
    if (activates && mayActivate) {
        Activate(*window);
    }
    return window->handle;
}

void ShowForeignWindow(const ForeignWindow& described) {
    HWND& handle = TheDesktop().foreign[ForeignKey(described.session, described.name)];
    Window* window = WindowFor(handle);
    const bool isNew = window == nullptr;
    if (isNew) {
        window = AddForeignWindow(described);
        handle = window->handle;
    }
    window->className = described.className.value_or(window->className);
    window->style = described.style.value_or(window->style) & ~WS_VISIBLE;
    if (described.isTopmost) {
        MoveInOrder(*window, *described.isTopmost ? HWND_TOPMOST : HWND_NOTOPMOST);
    } else if (isNew || !window->visible) {
        BringToFront(*window);
    }
    const RECT& old = window->rect;
    const LONG left = described.x.value_or(old.left), top = described.y.value_or(old.top);
    SetPlace(*window, {left, top, left + described.width.value_or(old.right - old.left),
                       top + described.height.value_or(old.bottom - old.top)});
    SetVisible(*window, true);
    if (isNew) {
        Activate(*window);
    }
}

void RemoveForeignWindow(unsigned session, std::string_view name) {
    const auto found = TheDesktop().foreign.find(ForeignKey(session, name));
    if (found != TheDesktop().foreign.end()) {
        RemoveWindow(HWND{found->second});
    }
}

const Window* FindForeignWindow(std::string_view name) {
    const Window* newest = nullptr;
    for (const auto& [key, handle] : TheDesktop().foreign) {
        if (const Window* window = WindowFor(handle); window && key.substr(key.find(' ') + 1) == name) {
            if (!newest || window->handle > newest->handle) {
                newest = window;
            }
        }
    }
    return newest;
}

LRESULT AnswerForProgram(Window& window, UINT message, LPARAM lParam) {
    if (!EqualNoCase(window.className, ToolTipClass)) {
        return 0;
    }
    const LONG x = static_cast<std::int16_t>(lParam & 0xFFFF), y = static_cast<std::int16_t>(lParam >> 16 & 0xFFFF);
    const LONG markX = window.rect.right - window.rect.left - CloseMark;
    const bool isOnMark = std::abs(x - markX) <= CloseMark / 2 && std::abs(y - CloseMark) <= CloseMark / 2;
    if (message == TTM_POP || (message == WM_LBUTTONUP && isOnMark)) {
        SetVisible(window, false);
    }
    return 0;
}

} // namespace machine
