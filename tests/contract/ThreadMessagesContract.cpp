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
    EXPECT_ERROR(ERROR_INVALID_THREAD_ID, PostThreadMessageA(g_ThreadId, WM_USER, 0, 0)) << "there is no queue yet";

    WaitForSingleObject(started, 5000);
    EXPECT_TRUE(PostThreadMessageA(g_ThreadId, WM_USER + 1, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(g_ThreadId, WM_USER + 2, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(g_ThreadId, WM_QUIT, 0, 0));
    ASSERT_EQ(WaitForSingleObject(thread, 5000), DWORD{WAIT_OBJECT_0});
    DWORD exitCode = 0;
    GetExitCodeThread(thread, &exitCode);
    EXPECT_EQ(exitCode, DWORD{WM_QUIT}) << "WM_QUIT is given, and ends the loop";
    ASSERT_EQ(g_SeenCount, 2);
    EXPECT_EQ(g_Seen[0], WM_USER + 1);
    EXPECT_EQ(g_Seen[1], WM_USER + 2);
    CloseHandle(thread);
    CloseHandle(started);
}

TEST(ThreadMessages, AQuitThatWasPostedEarlyWaitsForTheLoop) {
    MSG message;
    EXPECT_FALSE(PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE));
    EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), WM_QUIT, 0, 0));
    EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), 0);
    EXPECT_EQ(message.message, WM_QUIT);
    EXPECT_EQ(message.hwnd, nullptr);
}

} // namespace
