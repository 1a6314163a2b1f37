#include "actions/ExecuteMode.h"

#include "actions/CommandSplit.h"
#include "actions/ForegroundWindow.h"
#include "actions/ProcessCreation.h"
#include "actions/UserTokens.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/FileTools.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/texts/BoundedText.h"
#include "support/texts/CommandLine.h"
#include "support/texts/StringTools.h"

constexpr char ExecToken[] = "-exec=";
constexpr char DirToken[] = "-dir=";
constexpr char WaitToken[] = "-wait=";
constexpr char WindowToken[] = "-windownumber=";
constexpr char ParamsToken[] = "-params=";

constexpr LONG MaxTokens = 32; // the parameters come sixth and are taken from the whole line
constexpr size_t WindowNumberChars = 5;
constexpr DWORD ProgramWaitMs = 11000;
constexpr DWORD StepMs = 30;
constexpr int ForegroundTries = 33;
constexpr DWORD BeforeLookMs = 100;
constexpr int HandOverTries = 100;

template<size_t N>
static bool BeginsWith(const char* text, const char (&token)[N]) {
    return CountSameStart(token, text) == N - 1;
}

// The value of a token without its quotes, with environment variables.
template<size_t N>
static void TakeValue(const char* value, char (&out)[N]) {
    const DWORD needed = ExpandEnvironmentStringsA(value, out, N);
    if (needed == 0 || needed > N) {
        CopyText(out, value);
    }
    (void)UnquoteText(out);
}

void ReadExecuteRequest(LONG tokenCount, char* const* tokens, const char* rawCommandLine, ExecuteRequest* request,
                        char (&directory)[MAX_PATH]) {
    *request = {};
    request->params = "";
    for (LONG i = 1; i < tokenCount; ++i) {
        const char* token = tokens[i];
        WriteLog(2, "Exec: token = '%s'", token);
        if (BeginsWith(token, ParamsToken)) {
            // Everything from here on belongs to the program, whatever it looks like.
            const auto place = static_cast<size_t>(token - tokens[0]) + sizeof(ParamsToken) - 1;
            request->params = place <= TextLength(rawCommandLine) ? rawCommandLine + place : "";
            return;
        }
        if (BeginsWith(token, ExecToken)) {
            TakeValue(token + sizeof(ExecToken) - 1, request->program);
        } else if (token[0] != '\0' && BeginsWith(token + 1, ExecToken)) {
            TakeValue(token + sizeof(ExecToken), request->program);
        } else if (BeginsWith(token, DirToken)) {
            TakeValue(token + sizeof(DirToken) - 1, directory);
        } else if (BeginsWith(token, WaitToken)) {
            request->wait = token[sizeof(WaitToken) - 1] == '1';
        }
    }
}

void BuildRequestLine(const ExecuteRequest& request, char (&line)[MaxProcessLine]) {
    if (BeginsWithProgram(request.params, request.program)) {
        CopyText(line, request.params);
        (void)StrTrimA(line, " \t");
    } else {
        BuildProcessLine(request.program, request.params, line);
    }
}

static ExecuteResult WaitForProgram(HANDLE process) {
    WriteLog(3, " waiting %u ms for process to end...", ProgramWaitMs);
    const DWORD startTicks = GetTickCount();
    const DWORD result = WaitForSingleObject(process, ProgramWaitMs);
    WriteLog(3, " waitres=%u after %u ms", result, GetTickCount() - startTicks);
    return result == WAIT_TIMEOUT ? ExecuteResult::Running : ExecuteResult::Ended;
}

static ExecuteResult StartProgram(const ExecuteRequest& request, const char* directory, WORD showCommand) {
    char desktop[] = "default";
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.lpDesktop = desktop;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = showCommand;
    char line[MaxProcessLine];
    BuildRequestLine(request, line);
    PROCESS_INFORMATION made = {};
    if (!CreateProcessA(request.program, line, nullptr, nullptr, /*inheritHandles=*/FALSE, /*flags=*/0,
                        /*environment=*/nullptr, directory[0] != '\0' ? directory : nullptr, &startup, &made)) {
        WriteLog(2, " CreateProcess failed: %s", LastErrorName());
        return ExecuteResult::NotStarted;
    }
    const OwnedProcess process(made.hProcess);
    OwnedThread thread(made.hThread);
    WriteLog(3, " CreateProcess OK  pid=%u", made.dwProcessId);
    thread.Reset();
    return request.wait ? WaitForProgram(process.Get()) : ExecuteResult::Running;
}

ExecuteResult AutoRunByCommandLine(LONG tokenCount, char* const* tokens, const char* rawCommandLine,
                                   char (&directory)[MAX_PATH], WORD showCommand) {
    ExecuteRequest request;
    ReadExecuteRequest(tokenCount, tokens, rawCommandLine, &request, directory);
    WriteLog(2, "AutoRunByCommandLine exe='%s' params='%s' dir='%s' ws=%i wait=%i", request.program, request.params,
             directory, static_cast<LONG>(showCommand), static_cast<LONG>(request.wait));
    if (request.program[0] == '\0' || !FileExists(request.program)) {
        return ExecuteResult::Ended;
    }
    if (IsExeOrCom(request.program)) {
        return StartProgram(request, directory, showCommand);
    }
    const HINSTANCE result =
        ShellExecuteA(nullptr, "open", request.program, request.params, directory, static_cast<int>(showCommand));
    WriteLog(2, "ShellExecute(%s, %s, %s, %u)  res=%i", request.program, request.params, directory,
             static_cast<DWORD>(showCommand), static_cast<LONG>(reinterpret_cast<LONG_PTR>(result)));
    return ExecuteResult::NotStarted;
}

static void ReadWindowTitle(LONG tokenCount, char* const* tokens, char (&title)[WindowNumberChars + 1]) {
    title[0] = '\0';
    for (LONG i = 1; i < tokenCount && !BeginsWith(tokens[i], ParamsToken); ++i) {
        if (BeginsWith(tokens[i], WindowToken)) {
            CopyText(title, tokens[i] + sizeof(WindowToken) - 1); // the token ends at the first blank
            return;
        }
    }
}

// Returns: the window, which has the foreground if Windows allows it; null without one.
static HWND TakeForeground(const char* title) {
    const HWND window = StartForeWindow(title);
    if (!window) {
        return nullptr;
    }
    if (!IsProcessElevated(GetCurrentProcessId())) {
        for (int tries = 0; tries < ForegroundTries && GetForegroundWindow() != window; ++tries) {
            Sleep(StepMs);
        }
    }
    if (GetForegroundWindow() == window) {
        WriteLog(3, "sim keystroke");
        keybd_event(VK_ESCAPE, 0, 0, 0);
        keybd_event(VK_ESCAPE, 0, KEYEVENTF_KEYUP, 0);
    } else {
        ForceMyDummyWindowToForeground(window);
    }
    return window;
}

// Gives the program time to come to the front: when this window closes, the next one in line gets the foreground.
static void WaitForHandOver(HWND before) {
    Sleep(BeforeLookMs);
    for (int tries = 0; before && tries < HandOverTries && GetForegroundWindow() == before; ++tries) {
        Sleep(StepMs);
    }
}

void RunExecuteMode(WORD showCommand) {
    const char* const commandLine = GetCommandLineA();
    WriteLog(2, "Quillmarch in execute mode  cmdln=%s", commandLine);
    LONG tokenCount = 0;
    char* tokens[MaxTokens] = {};
    TokenizeCommandLine(&tokenCount, tokens);
    const bool hasForeground = g_os.MajorVersion >= 6;
    HWND window = nullptr;
    HWND before = nullptr;
    if (hasForeground) {
        char title[WindowNumberChars + 1];
        ReadWindowTitle(tokenCount, tokens, title);
        window = TakeForeground(title);
        before = GetForegroundWindow();
        LogWindow("BeforeForeWin", before);
    }
    char directory[MAX_PATH] = {};
    (void)GetCurrentDirectoryA(sizeof(directory), directory);
    const ExecuteResult result = AutoRunByCommandLine(tokenCount, tokens, commandLine, directory, showCommand);
    if (result == ExecuteResult::Running && hasForeground) {
        WaitForHandOver(before);
        if (window) {
            (void)SendMessageA(window, WM_CLOSE, 0, 0);
        }
    }
    WriteLog(2, "Quillmarch in execute mode return 0");
}
