#include "simwin/host/System.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

// Of the C library: the command line, split as a program's start does it, in UTF-16.
extern "C" int __wgetmainargs(int* count, wchar_t*** arguments, wchar_t*** environment, int wildcards, int* mode);

namespace host {

static void (*g_report)(const char* what, const void* address);
static UINT g_exitCode;
static void (*g_tick)();
static HANDLE g_timer;

static std::string Utf8(const wchar_t* text) {
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(length > 0 ? length : 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), length, nullptr, nullptr);
    utf8.pop_back();
    return utf8;
}

static void TakeArguments(int* count, char*** arguments) {
    static std::vector<std::string> texts;
    static std::vector<char*> pointers;
    wchar_t **wide = nullptr, **environment = nullptr;
    int wideCount = 0, mode = 0;
    if (__wgetmainargs(&wideCount, &wide, &environment, 0, &mode) != 0) {
        return;
    }
    for (int i = 0; i < wideCount; ++i) {
        texts.push_back(Utf8(wide[i]));
    }
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    *count = wideCount;
    *arguments = pointers.data();
}

void BeginProgram(int* count, char*** arguments) {
    TakeArguments(count, arguments);
    // Reports have the same bytes on every system.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
    for (const DWORD which : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) { // colours, and a line that is written over
        const HANDLE output = GetStdHandle(which);
        DWORD mode = 0;
        if (GetConsoleMode(output, &mode)) {
            SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
        }
    }
    // A crash is reported by the program itself, not in a window that somebody must close.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

static const char* CrashText(DWORD code) {
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
        return "Segmentation fault";
    case EXCEPTION_STACK_OVERFLOW:
        return "stack overflow";
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION:
        return "Illegal instruction";
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
        return "Floating point exception";
    default:
        return nullptr; // exceptions of C++, and messages to debuggers
    }
}

static LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD* record = exception->ExceptionRecord;
    const char* text = CrashText(record->ExceptionCode);
    if (!text) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    g_report(text, reinterpret_cast<const void*>(record->NumberParameters > 1 ? record->ExceptionInformation[1] : 0));
    TerminateProcess(GetCurrentProcess(), g_exitCode);
    return EXCEPTION_CONTINUE_SEARCH;
}

static void OnAbort(int) {
    g_report("Aborted", nullptr);
    TerminateProcess(GetCurrentProcess(), g_exitCode);
}

void CatchCrashes(void (*report)(const char* what, const void* address), int exitCode) {
    static bool isInstalled;
    g_report = report;
    g_exitCode = static_cast<UINT>(exitCode);
    if (!isInstalled) {
        isInstalled = true;
        AddVectoredExceptionHandler(1, OnException);
        std::signal(SIGABRT, OnAbort);
    }
}

void WriteError(const char* text) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(std::strlen(text)), &written, nullptr);
}

static bool IsConsole(DWORD which, CONSOLE_SCREEN_BUFFER_INFO* info) {
    return GetConsoleScreenBufferInfo(GetStdHandle(which), info) != 0;
}

Terminal TerminalOfOutput() {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    Terminal terminal;
    terminal.isThere = IsConsole(STD_OUTPUT_HANDLE, &info);
    if (terminal.isThere) {
        terminal.columns = static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
    }
    return terminal;
}

bool IsErrorTerminal() {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    return IsConsole(STD_ERROR_HANDLE, &info);
}

static void CALLBACK OnTimer(void*, BOOLEAN) {
    g_tick();
}

void StartTicks(void (*tick)()) {
    constexpr DWORD SecondMs = 1000;
    g_tick = tick;
    CreateTimerQueueTimer(&g_timer, nullptr, OnTimer, nullptr, SecondMs, SecondMs, WT_EXECUTEINTIMERTHREAD);
}

void StopTicks() {
    if (g_timer) {
        (void)DeleteTimerQueueTimer(nullptr, g_timer, INVALID_HANDLE_VALUE); // waits for a tick that runs
    }
    g_timer = nullptr;
}

} // namespace host
