// What the service's message loop relies on: queues of threads, WM_QUIT, messages from one thread to another.
#include "tests/contract/Contract.h"

namespace {

DWORD g_ThreadId;
UINT g_Seen[4];
int g_SeenCount;

// Has no queue until it asks for one, and then pumps until WM_QUIT. A message that was posted too early is lost.
DWORD WINAPI Pump_ThreadProc(LPVOID started) {
    SetEvent(static_cast<HANDLE>(started));
    Sleep(200);
    MSG message;
    PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    SetEvent(static_cast<HANDLE>(started));
    while (GetMessageA(&message, nullptr, 0, 0) > 0)
        if (g_SeenCount < 4)
            g_Seen[g_SeenCount++] = message.message;
    return static_cast<DWORD>(message.message);
}

TEST(ThreadMessages, AThreadGetsMessagesFromItsFirstLookOn) {
    HANDLE started = CreateEventA(nullptr, /*manualReset=*/FALSE, /*initialState=*/FALSE, nullptr);
    HANDLE thread = CreateThread(nullptr, 0, Pump_ThreadProc, started, 0, &g_ThreadId);
    WaitForSingleObject(started, 5000);
    EXPECT_EQ(contract::ErrorOf([] { return PostThreadMessageA(g_ThreadId, WM_USER, 0, 0); }),
              static_cast<DWORD>(ERROR_INVALID_THREAD_ID))
        << "there is no queue yet";

    WaitForSingleObject(started, 5000);
    EXPECT_TRUE(PostThreadMessageA(g_ThreadId, WM_USER + 1, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(g_ThreadId, WM_USER + 2, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(g_ThreadId, WM_QUIT, 0, 0));
    ASSERT_EQ(WaitForSingleObject(thread, 5000), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD exitCode = 0;
    GetExitCodeThread(thread, &exitCode);
    EXPECT_EQ(exitCode, static_cast<DWORD>(WM_QUIT)) << "WM_QUIT is given, and ends the loop";
    ASSERT_EQ(g_SeenCount, 2);
    EXPECT_EQ(g_Seen[0], WM_USER + 1);
    EXPECT_EQ(g_Seen[1], WM_USER + 2);
    CloseHandle(thread);
    CloseHandle(started);

    const DWORD afterEnd = contract::ErrorOf([] { return PostThreadMessageA(g_ThreadId, WM_QUIT, 0, 0); });
    EXPECT_NE(afterEnd, 0u);
    KNOWN_DIFFERENCE("a thread that has ended gives 87", afterEnd == static_cast<DWORD>(ERROR_INVALID_THREAD_ID));
}

TEST(ThreadMessages, AQuitThatWasPostedEarlyWaitsForTheLoop) {
    MSG message;
    EXPECT_FALSE(PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE));
    EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), WM_QUIT, 0, 0));
    EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), 0);
    EXPECT_EQ(message.message, WM_QUIT);
    EXPECT_EQ(message.hwnd, nullptr);
}

TEST(ThreadMessages, ALookLeavesOrTakesWhatFitsTheFilter) {
    MSG message;
    PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), WM_USER + 5, 7, 9));
    EXPECT_FALSE(PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE));
    EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(DispatchMessageA(&message), 0) << "a message without window goes to nobody";
    EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.wParam, 7u);
    EXPECT_EQ(message.lParam, 9);
    EXPECT_FALSE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
}

} // namespace
