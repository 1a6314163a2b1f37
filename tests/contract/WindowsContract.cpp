// What the balloon and the service's message loop rely on: who handles sent messages, in which order messages come,
// what may be requested of another thread's window; queues of threads and WM_QUIT.
#include "tests/contract/Contract.h"

constexpr char ClassName[] = "QuillmarchContractClass";
constexpr UINT Ask = WM_APP + 1, AskBack = WM_APP + 2, Note = WM_APP + 3;

static HWND g_first, g_second;
static std::string g_order;
static DWORD g_answerThread;

static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case Ask: // asks the asker back while it waits
        g_answerThread = GetCurrentThreadId();
        return SendMessageA(g_first, AskBack, 0, 0) + 1;
    case AskBack:
        return 41;
    case Note:
        g_order += static_cast<char>(wParam);
        return 0;
    case WM_TIMER:
        g_order += 't';
        return 0;
    case WM_DESTROY:
        PostQuitMessage(7);
        return 0;
    default:
        return DefWindowProcA(window, message, wParam, lParam);
    }
}

static HWND MakeWindow(const char* title) {
    return CreateWindowExA(WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE, ClassName, title, WS_POPUP, 10, 20, 100, 50,
                           GetDesktopWindow(), nullptr, nullptr, nullptr);
}

static DWORD WINAPI SecondWindow_ThreadProc(LPVOID ready) {
    g_second = MakeWindow("second");
    SetEvent(static_cast<HANDLE>(ready));
    MSG message;
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        DispatchMessageA(&message);
    }
    return static_cast<DWORD>(message.wParam);
}

static void Register() {
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = Procedure;
    windowClass.lpszClassName = ClassName;
    RegisterClassA(&windowClass);
}

namespace {
struct Windows : testing::Test {
    void SetUp() override {
        Register();
        g_order.clear();
        g_first = MakeWindow("first");
        HANDLE ready = CreateEventA(nullptr, /*manualReset=*/FALSE, /*initialState=*/FALSE, nullptr);
        m_thread = CreateThread(nullptr, 0, SecondWindow_ThreadProc, ready, 0, &m_threadId);
        ASSERT_EQ(WaitForSingleObject(ready, 5000), DWORD{WAIT_OBJECT_0});
        CloseHandle(ready);
    }
    void TearDown() override {
        PostMessageA(g_second, WM_CLOSE, 0, 0);
        EXPECT_EQ(WaitForSingleObject(m_thread, 5000), DWORD{WAIT_OBJECT_0});
        DWORD exitCode = 0;
        GetExitCodeThread(m_thread, &exitCode);
        EXPECT_EQ(exitCode, 7u) << "the end comes with its code";
        CloseHandle(m_thread);
        DestroyWindow(g_first);
        MSG message;
        while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
            ;
        }
    }

    HANDLE m_thread = nullptr;
    DWORD m_threadId = 0;
};
} // namespace

TEST_F(Windows, WhoWaitsForAnAnswerIsAskedMeanwhile) {
    EXPECT_EQ(SendMessageA(g_second, Ask, 0, 0), 42);
    EXPECT_EQ(g_answerThread, m_threadId);
    DWORD_PTR result = 0;
    EXPECT_NE(SendMessageTimeoutA(g_second, Ask, 0, 0, SMTO_ABORTIFHUNG, 2000, &result), 0);
    EXPECT_EQ(result, 42u);
}

TEST_F(Windows, PostedMessagesComeInTheirOrderTimersAndTheEndAfterThem) {
    ASSERT_NE(SetTimer(g_first, 5, 10, nullptr), 0u);
    Sleep(100);
    PostMessageA(g_first, Note, 'a', 0);
    PostMessageA(g_first, Note, 'b', 0);
    MSG message;
    for (int i = 0; i < 3 && GetMessageA(&message, nullptr, 0, 0) > 0; ++i) {
        DispatchMessageA(&message);
    }
    EXPECT_EQ(g_order, "abt") << "and a timer whose message waited came once";
    EXPECT_TRUE(KillTimer(g_first, 5));
    EXPECT_FALSE(KillTimer(g_first, 5));
}

TEST_F(Windows, AWindowOfAnotherThreadMovesAndShowsButKeepsItsTimersAndItsLife) {
    EXPECT_TRUE(SetWindowPos(g_second, HWND_TOPMOST, 30, 40, 200, 60, SWP_NOACTIVATE));
    RECT rect = {};
    EXPECT_TRUE(GetWindowRect(g_second, &rect));
    EXPECT_EQ(rect.left, 30);
    EXPECT_EQ(rect.bottom, 100);
    EXPECT_NE(static_cast<DWORD>(GetWindowLongA(g_second, GWL_EXSTYLE)) & WS_EX_TOPMOST, 0u);
    EXPECT_FALSE(ShowWindow(g_second, SW_SHOWNOACTIVATE)) << "it was hidden";
    EXPECT_TRUE(IsWindowVisible(g_second));
    EXPECT_TRUE(ShowWindow(g_second, SW_HIDE));
    EXPECT_ERROR(ERROR_ACCESS_DENIED, DestroyWindow(g_second));
    DWORD processId = 0;
    EXPECT_EQ(GetWindowThreadProcessId(g_second, &processId), m_threadId);
    EXPECT_EQ(processId, GetCurrentProcessId());
    char title[16] = {};
    EXPECT_EQ(SendMessageA(g_second, WM_GETTEXT, sizeof(title), reinterpret_cast<LPARAM>(title)), 6);
    EXPECT_STREQ(title, "second");
}

TEST_F(Windows, AWindowThatHasGoneIsNoWindow) {
    HWND gone = MakeWindow("gone");
    EXPECT_TRUE(DestroyWindow(gone));
    EXPECT_FALSE(IsWindow(gone));
    EXPECT_ERROR(ERROR_INVALID_WINDOW_HANDLE, PostMessageA(gone, Note, 0, 0));
    const auto setTimer = [&] { return SetTimer(gone, 1, 10, nullptr) != 0; };
    KNOWN_DIFFERENCE("a timer for a window that has gone fails with 6",
                     contract::ErrorOf(setTimer) == ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(FindWindowA(ClassName, "gone"), nullptr);
    EXPECT_EQ(FindWindowA(ClassName, "FIRST"), g_first);
}

static DWORD g_threadId;
static UINT g_seen[4];
static int g_seenCount;

// Has no queue until it asks for one, and then pumps until WM_QUIT. A message that was posted too early is lost.
static DWORD WINAPI Pump_ThreadProc(LPVOID started) {
    SetEvent(static_cast<HANDLE>(started));
    Sleep(200);
    MSG message;
    PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    SetEvent(static_cast<HANDLE>(started));
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        if (g_seenCount < 4) {
            g_seen[g_seenCount++] = message.message;
        }
    }
    return static_cast<DWORD>(message.message);
}

TEST(ThreadMessages, AThreadGetsMessagesFromItsFirstLookOn) {
    HANDLE started = CreateEventA(nullptr, /*manualReset=*/FALSE, /*initialState=*/FALSE, nullptr);
    HANDLE thread = CreateThread(nullptr, 0, Pump_ThreadProc, started, 0, &g_threadId);
    WaitForSingleObject(started, 5000);
    EXPECT_ERROR(ERROR_INVALID_THREAD_ID, PostThreadMessageA(g_threadId, WM_USER, 0, 0)) << "there is no queue yet";

    WaitForSingleObject(started, 5000);
    EXPECT_TRUE(PostThreadMessageA(g_threadId, WM_USER + 1, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(g_threadId, WM_USER + 2, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(g_threadId, WM_QUIT, 0, 0));
    ASSERT_EQ(WaitForSingleObject(thread, 5000), DWORD{WAIT_OBJECT_0});
    DWORD exitCode = 0;
    GetExitCodeThread(thread, &exitCode);
    EXPECT_EQ(exitCode, DWORD{WM_QUIT}) << "WM_QUIT is given, and ends the loop";
    ASSERT_EQ(g_seenCount, 2);
    EXPECT_EQ(g_seen[0], WM_USER + 1);
    EXPECT_EQ(g_seen[1], WM_USER + 2);
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
