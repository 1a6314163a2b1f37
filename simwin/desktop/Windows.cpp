// The state of windows: their order, places, visibility and the foreground. No messages here.
#include "simwin/desktop/DesktopState.h"

#include "simwin/kernel/Setup.h"

#include <algorithm>

namespace machine {

using namespace simwin;

static std::uint64_t Key(HWND window) {
    return reinterpret_cast<std::uint64_t>(window);
}

static bool IsTopmost(const Window& window) {
    return (window.extendedStyle & WS_EX_TOPMOST) != 0;
}

static bool IsIn(const RECT& rect, POINT point) {
    return point.x >= rect.left && point.x < rect.right && point.y >= rect.top && point.y < rect.bottom;
}

static bool IsHit(const Window& window, POINT point) {
    if (!window.visible || !IsIn(window.rect, point)) {
        return false;
    }
    return !window.region || window.region->Contains({point.x - window.rect.left, point.y - window.rect.top});
}

static std::vector<HWND>& OrderOf(unsigned session) {
    return TheDesktop().order[session];
}

// The place in a session's order at which a band begins: that of the topmost windows, or that of the others.
static std::vector<HWND>::iterator FrontOfBand(std::vector<HWND>& order, bool isTopmost) {
    if (isTopmost) {
        return order.begin();
    }
    return std::find_if(order.begin(), order.end(), [](HWND handle) { return !IsTopmost(*WindowFor(handle)); });
}

// Some window has the foreground as long as one can. Tool windows take it, but do not inherit it.
static void PassForegroundOn(unsigned session) {
    SessionInput& input = TheDesktop().inputs[session];
    input.foreground = nullptr;
    for (const HWND handle : OrderOf(session)) {
        if (const Window* window = WindowFor(handle);
            window->visible && window->TakesActivation() && !(window->extendedStyle & WS_EX_TOOLWINDOW)) {
            input.foreground = handle;
            return;
        }
    }
}

bool Window::TakesActivation() const {
    return !parent && !(extendedStyle & WS_EX_NOACTIVATE);
}

bool RoundShape::Contains(POINT point) const {
    if (!IsIn(rect, point)) {
        return false;
    }
    const LONG radius = std::min({diameter / 2, (rect.right - rect.left) / 2, (rect.bottom - rect.top) / 2});
    const LONG fromSide = std::min(point.x - rect.left, rect.right - 1 - point.x);
    const LONG fromEdge = std::min(point.y - rect.top, rect.bottom - 1 - point.y);
    if (fromSide >= radius || fromEdge >= radius) {
        return true;
    }
    // By the middle of the pixel, in halves.
    const LONG x = 2 * (radius - fromSide) - 1, y = 2 * (radius - fromEdge) - 1;
    return x * x + y * y <= 4 * radius * radius;
}

Window* WindowFor(HWND window) {
    const auto found = TheDesktop().windows.find(Key(window));
    return found == TheDesktop().windows.end() ? nullptr : found->second.get();
}

RECT ScreenRect() {
    return {0, 0, TheSetup().screenWidth, TheSetup().screenHeight};
}

std::vector<const Window*> Windows() {
    std::vector<const Window*> windows;
    for (const auto& [key, window] : TheDesktop().windows) {
        windows.push_back(window.get());
    }
    return windows;
}

std::vector<const Window*> WindowsOfSession(unsigned session) {
    std::vector<const Window*> windows;
    for (const HWND handle : OrderOf(session)) {
        windows.push_back(WindowFor(handle));
    }
    return windows;
}

const Window* FindWindowByHandle(HWND window) {
    return WindowFor(window);
}

const Window* WindowAt(unsigned session, POINT point) {
    for (const HWND handle : OrderOf(session)) {
        const Window* window = WindowFor(handle);
        if (!IsHit(*window, point)) {
            continue;
        }
        for (const auto& [key, child] : TheDesktop().windows) {
            if (child->parent == handle && IsHit(*child, point)) {
                return child.get();
            }
        }
        return window;
    }
    return nullptr;
}

const Window* ForegroundOf(unsigned session) {
    return WindowFor(TheDesktop().inputs[session].foreground);
}

void WatchWindows(WindowWatcher watcher) {
    TheDesktop().watchers.push_back(std::move(watcher));
}

void TellChange(const Window& window, WindowChange change) {
    for (const WindowWatcher& watcher : TheDesktop().watchers) {
        watcher(window, change);
    }
}

Window* AddWindow(Process* process, unsigned session, std::string_view className, std::string_view title) {
    DesktopState& desktop = TheDesktop();
    auto made = std::make_unique<Window>();
    Window* window = made.get();
    window->handle = reinterpret_cast<HWND>(desktop.nextWindow);
    desktop.nextWindow += 2;
    window->process = process;
    window->session = session;
    window->className = className;
    window->title = title;
    desktop.windows.emplace(Key(window->handle), std::move(made));
    std::vector<HWND>& order = OrderOf(session);
    order.insert(FrontOfBand(order, /*isTopmost=*/false), window->handle);
    return window;
}

void BringToFront(Window& window) {
    if (window.parent) {
        return;
    }
    std::vector<HWND>& order = OrderOf(window.session);
    std::erase(order, window.handle);
    order.insert(FrontOfBand(order, IsTopmost(window)), window.handle);
}

void SendToBack(Window& window) {
    std::vector<HWND>& order = OrderOf(window.session);
    window.extendedStyle &= ~WS_EX_TOPMOST;
    std::erase(order, window.handle);
    order.push_back(window.handle);
}

void MoveInOrder(Window& window, HWND after) {
    if (window.parent) {
        return;
    }
    if (after == HWND_BOTTOM) {
        SendToBack(window);
        return;
    }
    if (after == HWND_TOPMOST) {
        window.extendedStyle |= WS_EX_TOPMOST;
    } else if (after == HWND_NOTOPMOST) {
        window.extendedStyle &= ~WS_EX_TOPMOST;
    }
    const Window* before = after == HWND_TOPMOST || after == HWND_NOTOPMOST ? nullptr : WindowFor(after);
    if (!before || before == &window || before->session != window.session) {
        BringToFront(window);
        return;
    }
    std::vector<HWND>& order = OrderOf(window.session);
    std::erase(order, window.handle);
    window.extendedStyle = (window.extendedStyle & ~WS_EX_TOPMOST) | (before->extendedStyle & WS_EX_TOPMOST);
    order.insert(std::find(order.begin(), order.end(), after) + 1, window.handle);
}

void Activate(Window& window) {
    if (!window.TakesActivation()) {
        return;
    }
    BringToFront(window);
    TheDesktop().inputs[window.session].foreground = window.handle;
}

void SetVisible(Window& window, bool isVisible) {
    if (window.visible == isVisible) {
        return;
    }
    window.visible = isVisible;
    if (!isVisible && TheDesktop().inputs[window.session].foreground == window.handle) {
        PassForegroundOn(window.session);
    }
    TellChange(window, isVisible ? WindowChange::Shown : WindowChange::Hidden);
}

void SetPlace(Window& window, const RECT& rect) {
    const RECT& old = window.rect;
    if (old.left == rect.left && old.top == rect.top && old.right == rect.right && old.bottom == rect.bottom) {
        return;
    }
    window.rect = rect;
    TellChange(window, WindowChange::Moved);
}

void RemoveWindow(HWND handle) {
    Window* window = WindowFor(handle);
    if (!window) {
        return;
    }
    TellChange(*window, WindowChange::Gone);
    DesktopState& desktop = TheDesktop();
    DropTimersOf(handle);
    const unsigned session = window->session;
    std::erase(OrderOf(session), handle);
    std::erase_if(desktop.foreign, [&](const auto& entry) { return entry.second == handle; });
    desktop.windows.erase(Key(handle));
    if (desktop.inputs[session].foreground == handle) {
        PassForegroundOn(session);
    }
    AnswerAllFor(handle);
}

} // namespace machine
