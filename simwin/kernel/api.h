// Processes, threads, time, locks, events, waits, memory: what the product needs of the kernel.
#pragma once

#include "simwin/kernel/types.h"

#if defined(__clang__)
#define SIMWIN_CAPABILITY(name) __attribute__((capability(name)))
#define SIMWIN_ACQUIRES(lock) __attribute__((acquire_capability(*lock)))
#define SIMWIN_RELEASES(lock) __attribute__((release_capability(*lock)))
#define SIMWIN_TRIES(lock) __attribute__((try_acquire_capability(1, *lock)))
#else
#define SIMWIN_CAPABILITY(name)
#define SIMWIN_ACQUIRES(lock)
#define SIMWIN_RELEASES(lock)
#define SIMWIN_TRIES(lock)
#endif

// The entry of the product, the same name in each image.
extern "C" int WINAPI WinMain(simwin::HINSTANCE instance, simwin::HINSTANCE previous, simwin::LPSTR commandLine,
                              int show);

namespace simwin {

// --- Last error. Each thread has its own; an operation that succeeds leaves it alone unless its contract says so.
DWORD GetLastError();
void SetLastError(DWORD error);

// --- Time. The machine's virtual clock, exact to the millisecond, without a time zone. Never blocks except for Sleep.
DWORD GetTickCount();                                               // wraps after 49.7 days
void GetLocalTime(SYSTEMTIME* time);                                // local time is UTC
BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local); // the same time
BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* out);   // FALSE with 87 for a time of 2^63 or more
void Sleep(DWORD ms);                                               // 0 yields

// --- Critical sections. Entered again by their owner; the waiting thread that came first gets it next. Using one that
// was not initialised, leaving one that is not owned or deleting one with waiters breaks the machine's rules.
struct SIMWIN_CAPABILITY("critical section") CRITICAL_SECTION {
    PVOID DebugInfo; // the machine's own state
    LONG LockCount;
    LONG RecursionCount;
    HANDLE OwningThread;
    HANDLE LockSemaphore;
    ULONG_PTR SpinCount;
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;
void InitializeCriticalSection(CRITICAL_SECTION* lock);
void DeleteCriticalSection(CRITICAL_SECTION* lock);
void EnterCriticalSection(CRITICAL_SECTION* lock) SIMWIN_ACQUIRES(lock); // blocks
BOOL TryEnterCriticalSection(CRITICAL_SECTION* lock) SIMWIN_TRIES(lock);
void LeaveCriticalSection(CRITICAL_SECTION* lock) SIMWIN_RELEASES(lock);

// --- Interlocked operations; the value before (CompareExchange) or after (Increment, Decrement).
LONG InterlockedIncrement(volatile LONG* value);
LONG InterlockedDecrement(volatile LONG* value);
LONG InterlockedCompareExchange(volatile LONG* value, LONG to, LONG expected);

// --- Events and waits. Unnamed events only; a name is not modelled.
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
HANDLE CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name); // null: 8
BOOL SetEvent(HANDLE event);                                                                           // FALSE with 6
BOOL ResetEvent(HANDLE event);                                                                         // FALSE with 6
// Waits for an event, a thread or a process. Returns WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED with 6.
DWORD WaitForSingleObject(HANDLE handle, DWORD ms);

// --- Handles. FALSE with 6 for one that is not open.
BOOL CloseHandle(HANDLE handle);

// --- Threads. A thread ends with its procedure or with its process; ids are multiples of four, counted up.
using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID);
using PTHREAD_START_ROUTINE = LPTHREAD_START_ROUTINE;
inline constexpr DWORD CREATE_SUSPENDED = 4;
inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr int THREAD_PRIORITY_NORMAL = 0;
inline constexpr int THREAD_PRIORITY_HIGHEST = 2;
HANDLE CreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackBytes, LPTHREAD_START_ROUTINE entry, LPVOID parameter,
                    DWORD flags, LPDWORD threadId);      // null with 8
DWORD ResumeThread(HANDLE thread);                       // the suspend count before, or 0xFFFFFFFF with 6
BOOL SetThreadPriority(HANDLE thread, int priority);     // FALSE with 6
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode); // STILL_ACTIVE while it runs; FALSE with 6
HANDLE GetCurrentThread();                               // a pseudo handle, -2
DWORD GetCurrentThreadId();

// --- Processes.
HANDLE GetCurrentProcess(); // a pseudo handle, -1
DWORD GetCurrentProcessId();
LPSTR GetCommandLineA();
BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
void DebugBreak(); // ends the process with 0x80000003 and, unless expected, the run
void OutputDebugStringA(LPCSTR text);
BOOL Beep(DWORD frequency, DWORD ms); // blocks for ms

// --- Memory. The process heap; blocks have guards, HeapValidate looks at all of them.
inline constexpr DWORD HEAP_ZERO_MEMORY = 8;
inline constexpr UINT LMEM_FIXED = 0;
inline constexpr UINT LMEM_ZEROINIT = 0x40;
inline constexpr UINT LPTR = 0x40;
HANDLE GetProcessHeap();
LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes); // null when a described fault says so
BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID block);    // FALSE with 87 for an invalid block
SIZE_T HeapSize(HANDLE heap, DWORD flags, LPCVOID block); // -1 for an invalid block
BOOL HeapValidate(HANDLE heap, DWORD flags, LPCVOID block);
HLOCAL LocalAlloc(UINT flags, SIZE_T bytes); // null with 8
HLOCAL LocalFree(HLOCAL block);              // null; the block itself with 6 if it is invalid

} // namespace simwin
