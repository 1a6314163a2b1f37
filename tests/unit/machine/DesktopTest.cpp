// Windows of the simulated machine, judged by what a program meets there.
#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/services/Services.h"
#include "simwin/win32.h"

#include <gtest/gtest.h>

namespace {

using namespace simwin;

HWND MakeWindow() {
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcA;
    windowClass.lpszClassName = "AnyClass";
    RegisterClassA(&windowClass);
    return CreateWindowExA(0, "anyclass", "Title", WS_POPUP, 1, 2, 30, 40, nullptr, nullptr, nullptr, nullptr);
}

TEST(Desktop, AWindowThatGoesAnswersWhatWasOnItsWay) {
    const HWND window = MakeWindow();
    EXPECT_EQ(FindWindowA("ANYCLASS", "title"), window);
    EXPECT_EQ(FindWindowA("AnyClass", "other"), nullptr);
    bool isReturned = false;
    machine::SendFromMachine(window, WM_DEVICECHANGE, 7, {}, [&] { isReturned = true; });
    EXPECT_FALSE(isReturned) << "it waits for the pump";
    EXPECT_EQ(machine::CloseWindowsOf(machine::CurrentProcess()), 1u);
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageA(&message);
    EXPECT_EQ(FindWindowA("AnyClass", nullptr), nullptr);
    EXPECT_TRUE(isReturned);
    isReturned = false;
    machine::SendFromMachine(window, WM_DEVICECHANGE, 7, {}, [&] { isReturned = true; });
    EXPECT_TRUE(isReturned);
}

TEST(Desktop, AWindowOfABusyThreadDoesNotAnswerInTime) {
    static HWND window;
    static HANDLE made = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const auto busy = [](LPVOID) -> DWORD {
        window = MakeWindow();
        SetEvent(made);
        Sleep(500);
        MSG message;
        return static_cast<DWORD>(GetMessageA(&message, nullptr, 0, 0));
    };
    CreateThread(nullptr, 0, busy, nullptr, 0, nullptr);
    WaitForSingleObject(made, INFINITE);
    DWORD_PTR result = 0;
    EXPECT_EQ(SendMessageTimeoutA(window, WM_NULL, 0, 0, SMTO_ABORTIFHUNG, 100, &result), 0);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(machine::Now(), 100u);
    EXPECT_EQ(SendMessageTimeoutA(window, WM_NULL, 0, 0, SMTO_ABORTIFHUNG, 1000, &result), 1);
    EXPECT_EQ(machine::Now(), 500u) << "answered as soon as the thread asks for messages";
}

} // namespace
