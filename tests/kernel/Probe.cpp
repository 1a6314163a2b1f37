// A small image of the tests' own: a program for the simulated machine that does on request what no program should.
#include "platform/win32.h"

#include <cstring>

static CRITICAL_SECTION g_first, g_second;
static HANDLE g_event;
static int g_counter = 41; // each process must see its own
static char g_order[64];
static int g_orderLength;

static DWORD WINAPI TakeSecondThenFirst(LPVOID) {
    EnterCriticalSection(&g_second);
    Sleep(10);
    EnterCriticalSection(&g_first);
    return 0;
}

static DWORD WINAPI HoldForEver(LPVOID) {
    EnterCriticalSection(&g_first);
    WaitForSingleObject(g_event, INFINITE);
    return 0;
}

static DWORD WINAPI Racer(LPVOID letter) {
    for (int i = 0; i < 24; ++i) {
        g_order[g_orderLength++] = static_cast<char>(reinterpret_cast<ULONG_PTR>(letter));
        GetTickCount();
    }
    return 0;
}

static int Race() {
    HANDLE a = CreateThread(nullptr, 0, Racer, reinterpret_cast<LPVOID>(ULONG_PTR{'a'}), 0, nullptr);
    HANDLE b = CreateThread(nullptr, 0, Racer, reinterpret_cast<LPVOID>(ULONG_PTR{'b'}), 0, nullptr);
    WaitForSingleObject(a, INFINITE);
    WaitForSingleObject(b, INFINITE);
    OutputDebugStringA(g_order);
    CloseHandle(a);
    CloseHandle(b);
    return 0;
}

static int Deadlock() {
    CloseHandle(CreateThread(nullptr, 0, HoldForEver, nullptr, 0, nullptr));
    Sleep(10);
    EnterCriticalSection(&g_first);
    return 0;
}

static int CrossedLocks() {
    CloseHandle(CreateThread(nullptr, 0, TakeSecondThenFirst, nullptr, 0, nullptr));
    EnterCriticalSection(&g_first);
    EnterCriticalSection(&g_second);
    LeaveCriticalSection(&g_second);
    LeaveCriticalSection(&g_first);
    Sleep(100);
    return 0;
}

static int Livelock() {
    for (;;) {
        GetTickCount();
    }
}

static int Overrun() {
    auto* block = static_cast<volatile char*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, 16));
    block[16] = 1;
    return HeapFree(GetProcessHeap(), 0, const_cast<char*>(block));
}

static int Globals() {
    ++g_counter;
    Sleep(50); // so that two of these live beside each other
    return g_counter;
}

static int LastErrors() {
    SetLastError(1234);
    CloseHandle(CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            SetLastError(77);
            return 0;
        },
        nullptr, 0, nullptr));
    Sleep(10);
    return static_cast<int>(GetLastError());
}

static int LeakHandle() {
    CreateEventA(nullptr, TRUE, FALSE, nullptr);
    return 0;
}

// Threads that wait, sleep and hold a lock when the process ends must end with it.
static int EndWithThreads() {
    CloseHandle(CreateThread(nullptr, 0, HoldForEver, nullptr, 0, nullptr));
    CloseHandle(CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            Sleep(3600000);
            return 0;
        },
        nullptr, 0, nullptr));
    Sleep(10);
    return 7;
}

namespace {
struct Deed {
    const char* name;
    int (*run)();
};
} // namespace

constexpr Deed Deeds[] = {
    {"race", Race},
    {"deadlock", Deadlock},
    {"crossed", CrossedLocks},
    {"livelock", Livelock},
    {"trap", [] { return DebugBreak(), 0; }},
    {"overrun", Overrun},
    {"globals", Globals},
    {"lasterrors", LastErrors},
    {"leak", LeakHandle},
    {"threads", EndWithThreads},
    {"unmodelled", [] { return CreateEventA(nullptr, TRUE, FALSE, "a name") != nullptr ? 0 : 1; }},
    {"crash", [] { return *static_cast<volatile int*>(nullptr); }},
};

extern "C" int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR commandLine, int) {
    InitializeCriticalSection(&g_first);
    InitializeCriticalSection(&g_second);
    g_event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    int result = -1;
    for (const Deed& deed : Deeds) {
        if (std::strcmp(commandLine, deed.name) == 0) {
            result = deed.run();
        }
    }
    CloseHandle(g_event);
    return result;
}
