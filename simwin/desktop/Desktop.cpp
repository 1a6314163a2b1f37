#include "simwin/desktop/Desktop.h"

#include "simwin/desktop/DesktopState.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

namespace machine {

using namespace simwin;

static DesktopState* g_desktop;

static void DropWindowsOf(Process& process) {
    if (!g_desktop) {
        return; // the machine is being taken down
    }
    std::vector<HWND> own;
    for (const auto& [key, window] : g_desktop->windows) {
        if (window->process == &process) {
            own.push_back(window->handle);
        }
    }
    for (const HWND window : own) {
        RemoveWindow(window);
    }
    std::erase_if(g_desktop->classes, [&](const auto& entry) { return entry.first.first == &process; });
    for (auto& [session, input] : g_desktop->inputs) {
        if (input.lastInput == &process) {
            input.lastInput = nullptr;
        }
        if (input.lastClick == &process) {
            input.lastClick = nullptr;
        }
    }
}

RoomPtr MakeDesktop() {
    RoomPtr room = MakeRoom(g_desktop);
    OnProcessEnd(DropWindowsOf);
    AddEndCheck(UnhandledMessages);
    return room;
}

DesktopState& TheDesktop() {
    return *g_desktop;
}

void SetAppearance(const Appearance& appearance) {
    g_desktop->appearance = appearance;
}

const Appearance& TheAppearance() {
    return g_desktop->appearance;
}

bool HasTheme() {
    constexpr unsigned FirstWithThemes = 0x0501;
    return TheSetup().version.Packed() >= FirstWithThemes && g_desktop->appearance.theme != Appearance::Theme::Off;
}

void AddBoxAnswer(const BoxAnswer& answer) {
    g_desktop->answers.push_back(answer);
}

int ButtonFromName(std::string_view name) {
    static constexpr const char* Names[] = {"ok", "cancel", "abort", "retry", "ignore", "yes", "no"};
    for (std::size_t i = 0; i < sizeof(Names) / sizeof(Names[0]); ++i) {
        if (EqualNoCase(name, Names[i])) {
            return static_cast<int>(i) + 1;
        }
    }
    return 0;
}

const std::vector<MessageBoxRecord>& MessageBoxes() {
    return g_desktop->boxes;
}

} // namespace machine
