// Windows, boxes and programs of the simulated machine, judged by what a program meets there.
#include "simwin/desktop/Desktop.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/services/Services.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/shell/Shell.h"
#include "simwin/win32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace simwin;

std::vector<std::string> g_Told;

LRESULT CALLBACK TellingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_DEVICECHANGE && lParam)
        g_Told.push_back(reinterpret_cast<const char*>(lParam));
    if (message == WM_DESTROY)
        g_Told.push_back("destroyed");
    return DefWindowProcA(window, message, wParam, lParam);
}

HWND MakeWindow() {
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = TellingProc;
    windowClass.lpszClassName = "TellingClass";
    RegisterClassA(&windowClass);
    return CreateWindowExA(0, "tellingclass", "Title", WS_POPUP, 1, 2, 30, 40, nullptr, nullptr, nullptr, nullptr);
}

// Pumps what is there, without waiting.
void Pump() {
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageA(&message);
}

TEST(Desktop, ASentMessageWaitsForThePumpAndItsDataLivesUntilThen) {
    const HWND window = MakeWindow();
    ASSERT_NE(window, nullptr);
    bool isReturned = false;
    {
        const std::string text = "an arrival";
        std::vector<std::uint8_t> data(text.begin(), text.end());
        data.push_back(0);
        machine::SendFromMachine(window, WM_DEVICECHANGE, 0x8000, data, [&] { isReturned = true; });
    }
    EXPECT_TRUE(g_Told.empty());
    EXPECT_FALSE(isReturned);
    Pump();
    ASSERT_EQ(g_Told.size(), 1u);
    EXPECT_EQ(g_Told[0], "an arrival");
    EXPECT_TRUE(isReturned);
}

TEST(Desktop, AWindowThatGoesAnswersWhatWasOnItsWay) {
    const HWND window = MakeWindow();
    EXPECT_EQ(FindWindowA("TELLINGCLASS", "title"), window);
    EXPECT_EQ(FindWindowA("TellingClass", "other"), nullptr);
    EXPECT_EQ(machine::CloseWindowsOf(machine::CurrentProcess()), 1u);
    Pump();
    ASSERT_EQ(g_Told.size(), 1u);
    EXPECT_EQ(g_Told[0], "destroyed");
    EXPECT_EQ(FindWindowA("TellingClass", nullptr), nullptr);
    bool isReturned = false;
    machine::SendFromMachine(window, WM_DEVICECHANGE, 7, {}, [&] { isReturned = true; });
    EXPECT_TRUE(isReturned);
}

TEST(Desktop, AWindowOfABusyThreadDoesNotAnswerInTime) {
    static HWND window;
    static HANDLE made = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            window = MakeWindow();
            SetEvent(made);
            Sleep(500);
            MSG message;
            return static_cast<DWORD>(GetMessageA(&message, nullptr, 0, 0));
        },
        nullptr, 0, nullptr);
    WaitForSingleObject(made, INFINITE);
    DWORD_PTR result = 0;
    EXPECT_EQ(SendMessageTimeoutA(window, WM_NULL, 0, 0, SMTO_ABORTIFHUNG, 100, &result), 0);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(machine::Now(), 100u);
    EXPECT_EQ(SendMessageTimeoutA(window, WM_NULL, 0, 0, SMTO_ABORTIFHUNG, 1000, &result), 1);
    EXPECT_EQ(machine::Now(), 500u) << "answered as soon as the thread asks for messages";
}

TEST(Desktop, ABoxIsAnsweredAsDescribed) {
    machine::AddBoxAnswer({"second", IDOK, 2000});
    EXPECT_EQ(MessageBoxA(nullptr, "the first", "Title", MB_ICONSTOP), IDOK);
    EXPECT_EQ(machine::Now(), 0u);
    EXPECT_EQ(MessageBoxA(nullptr, "the second", "Title", MB_ICONSTOP), IDOK);
    EXPECT_EQ(machine::Now(), 2000u);
    EXPECT_EQ(machine::MessageBoxes().size(), 2u);
}

// What the shell makes of a file.
int Open(const char* verb, const char* file) {
    return static_cast<int>(
        reinterpret_cast<std::uint64_t>(ShellExecuteA(nullptr, verb, file, nullptr, "C:\\Tools", SW_SHOWNORMAL)));
}

TEST(Shell, OpensProgramsAndDocumentsAndSaysWhyItDoesNot) {
    machine::TheFiles().Write("C:\\Tools\\edit.exe", "");
    machine::TheFiles().Write("C:\\Tools\\a.txt", "");
    machine::SetAssociation(".txt", "C:\\Tools\\edit.exe");
    machine::DescribeProgram("C:\\Tools\\edit.exe", {.runsMs = 3000, .exitCode = 7, .holds = "", .window = "Editor"});
    EXPECT_EQ(Open("open", "C:\\Tools\\b.txt"), SE_ERR_FNF);
    EXPECT_EQ(Open("open", "C:\\None\\b.txt"), SE_ERR_PNF);
    machine::TheFiles().Write("C:\\Tools\\a.none", "");
    EXPECT_EQ(Open("open", "C:\\Tools\\a.none"), SE_ERR_NOASSOC);
    EXPECT_GT(Open("open", "a.txt"), 32);
    const machine::Process* editor = machine::AllProcesses().back();
    EXPECT_EQ(editor->commandLine, "\"C:\\Tools\\edit.exe\" \"C:\\Tools\\a.txt\"");
    EXPECT_NE(FindWindowA(nullptr, "Editor"), nullptr);
    machine::SleepMs(3000);
    EXPECT_TRUE(editor->ended);
    EXPECT_EQ(editor->exitCode, 7u);
    EXPECT_EQ(FindWindowA(nullptr, "Editor"), nullptr);
    char found[MAX_PATH];
    EXPECT_GT(reinterpret_cast<std::uint64_t>(FindExecutableA("\"C:\\Tools\\a.txt\"", "C:\\", found)), 32u);
    EXPECT_STREQ(found, "C:\\Tools\\edit.exe");
}

TEST(Shell, MoreRightsNeedTheUsersConsent) {
    machine::TheFiles().Write("C:\\Tools\\edit.exe", "");
    machine::CurrentProcess()->administrator = false;
    machine::CurrentProcess()->rights = machine::Rights::User;
    machine::SetConsent(false);
    EXPECT_EQ(Open("runas", "C:\\Tools\\edit.exe"), SE_ERR_ACCESSDENIED);
    EXPECT_EQ(GetLastError(), ERROR_CANCELLED);
    machine::SetConsent(true);
    EXPECT_GT(Open("runas", "C:\\Tools\\edit.exe"), 32);
    EXPECT_EQ(machine::AllProcesses().back()->rights, machine::Rights::Elevated);
    EXPECT_GT(Open("open", "C:\\Tools\\edit.exe"), 32);
    EXPECT_EQ(machine::AllProcesses().back()->rights, machine::Rights::User);
}

TEST(Sessions, ALogoffEndsTheProgramsOfItsSession) {
    machine::LogOn(3, "LAB\\anna");
    machine::ProcessStart start;
    start.imagePath = "C:\\Tools\\edit.exe";
    start.user = "LAB\\anna";
    start.rights = machine::Rights::User;
    start.session = 3;
    const machine::Process* own = machine::StartScripted(start);
    start.session = 4;
    const machine::Process* other = machine::StartScripted(start);
    LPSTR state = nullptr;
    DWORD bytes = 0;
    EXPECT_TRUE(WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, 3, WTSConnectState, &state, &bytes));
    EXPECT_EQ(*state, WTSActive);
    WTSFreeMemory(state);
    machine::LogOff(3);
    EXPECT_TRUE(own->ended);
    EXPECT_FALSE(other->ended);
    EXPECT_FALSE(WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, 3, WTSConnectState, &state, &bytes));
    EXPECT_EQ(GetLastError(), ERROR_CTX_WINSTATION_NOT_FOUND);
}

} // namespace
