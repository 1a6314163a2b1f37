// The desktops of the sessions: who gets the foreground, the mouse and the keys, and which windows a process meets.
#include "simwin/desktop/Desktop.h"

#include "platform/win32.h"
#include "tests/harness/Harness.h"

#include <string>

constexpr DWORD GameStyle = 0x94000000;

static machine::Process* StartIn(unsigned session) {
    machine::ProcessStart start;
    start.imagePath = start.commandLine = "C:\\Windows\\explorer.exe";
    start.user = "LAB\\anna";
    start.session = session;
    start.rights = machine::Rights::User;
    return machine::StartScripted(start);
}

static std::string ForegroundTitle(unsigned session) {
    const machine::Window* window = machine::ForegroundOf(session);
    return window ? window->title : "nobody";
}

static void Show(unsigned session, const char* name, RECT rect, bool isTopmost = false) {
    machine::ForeignWindow window;
    window.name = name;
    window.className = "Game";
    window.style = GameStyle;
    window.x = rect.left;
    window.y = rect.top;
    window.width = rect.right - rect.left;
    window.height = rect.bottom - rect.top;
    window.isTopmost = isTopmost;
    window.session = session;
    machine::ShowForeignWindow(window);
}

TEST(Desktop, EachSessionHasItsOwnWindowsForegroundAndMouse) {
    machine::ShellStarted(StartIn(1));
    machine::ShellStarted(StartIn(2));
    EXPECT_EQ(ForegroundTitle(1), "Program Manager");
    Show(1, "one", {0, 0, 200, 200});
    Show(2, "two", {0, 0, 200, 200});
    EXPECT_EQ(ForegroundTitle(1), "one");
    EXPECT_EQ(machine::WindowAt(2, {10, 10})->title, "two");
    machine::SetCursor(1, {10, 10});
    EXPECT_EQ(machine::ClickMouse(1, machine::MouseButton::Left)->title, "one");
    EXPECT_EQ(machine::Inputs().back().what, "click left");
    machine::RemoveForeignWindow(1, "one");
    EXPECT_EQ(ForegroundTitle(1), "Program Manager") << "a task bar does not inherit it";
    EXPECT_EQ(ForegroundTitle(2), "two");
}

TEST(Desktop, TopmostWindowsStayInFrontAndChildrenAreMetBeforeTheirParents) {
    machine::ShellStarted(StartIn(1));
    Show(1, "tip", {0, 0, 100, 100}, /*isTopmost=*/true);
    Show(1, "game", {0, 0, 1920, 1080});
    EXPECT_EQ(machine::WindowAt(1, {10, 10})->title, "tip");
    EXPECT_EQ(machine::WindowAt(1, {500, 500})->title, "game");
    EXPECT_EQ(machine::WindowAt(1, {1900, 1060})->className, "TrayNotifyWnd");
    EXPECT_EQ(machine::WindowAt(1, {5, 1060})->className, "Shell_TrayWnd");
}

TEST(Desktop, SomebodyWhoTypesKeepsTheForeground) {
    machine::ShellStarted(StartIn(1));
    machine::SetForegroundRule(1, machine::Foreground::Held);
    machine::Process* program = StartIn(1);
    machine::ShowProgramWindow(program, "late", SW_SHOWNORMAL);
    EXPECT_EQ(ForegroundTitle(1), "Program Manager");
    machine::Process* child = StartIn(1);
    child->parentId = machine::ForegroundOf(1)->process->id;
    machine::ShowProgramWindow(child, "started from the desktop", SW_SHOWNORMAL);
    EXPECT_EQ(ForegroundTitle(1), "started from the desktop");
    machine::SetForegroundRule(1, machine::Foreground::Free);
    machine::ShowProgramWindow(program, "quiet", SW_SHOWNOACTIVATE);
    EXPECT_EQ(ForegroundTitle(1), "started from the desktop");
    machine::ShowProgramWindow(program, "loud", SW_SHOWNORMAL);
    EXPECT_EQ(ForegroundTitle(1), "loud");
}

TEST(Desktop, AProcessInSessionZeroMeetsTheWindowsOfAll) {
    machine::ShellStarted(StartIn(2));
    Show(1, "first", {0, 0, 50, 50});
    Show(2, "second", {0, 0, 50, 50});
    EXPECT_NE(FindWindowA("Game", "FIRST"), nullptr);
    EXPECT_NE(FindWindowA(nullptr, "second"), nullptr);
}
