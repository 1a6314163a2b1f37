#include "support/log/LogFile.h"

#include <cstdarg>
#include <cstddef>

#include "keys/ConfigurationKeys.h"
#include "support/log/LogFileOpening.h"
#include "support/log/LogFileRotation.h"
#include "support/registry/AccessList.h"
#include "support/system/Handles.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ThreadTools.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

LogSettings g_log;

constexpr DWORD MaxDelta = 9999;
constexpr size_t MessageSize = 4096;
constexpr size_t MaxRecord = 1023; // with CR LF: the longest text that the platform's formatting gives
constexpr DWORD IdleBeforeCloseMs = 50;
constexpr DWORD ExitWaitMs = 1000;
constexpr int OpenAttempts = 20;
constexpr DWORD HeldMs = 5000; // after a record that was lost because the file was in use, each further one costs only
                               // one attempt
constexpr DWORD OpenWaitMs = 190; // for an open that does not return, as long as all attempts for a file in use take
constexpr int CreateAttempts = 100;
constexpr DWORD RetryMs = 10;
constexpr DWORD CreateFailedLine = 216;

// Origin tags in the order of the modes.
constexpr const char* ModeTags[] = {"nu", "sr", "db", "ns", "sa", "ba", "in", "ex"};
static_assert(sizeof(ModeTags) / sizeof(ModeTags[0]) == ModeCount);

static CRITICAL_SECTION g_logLock;
static DWORD g_lockReady;

static HANDLE g_file QM_GUARDED_BY(g_logLock); // INVALID_HANDLE_VALUE while the file is closed
static DWORD g_previousTick QM_GUARDED_BY(g_logLock);
static bool g_isHeld QM_GUARDED_BY(g_logLock);         // all attempts for a record found the file in use, unshared
static DWORD g_heldSinceTick QM_GUARDED_BY(g_logLock); // when the last of those attempts failed
static char g_message[MessageSize] QM_GUARDED_BY(g_logLock);
static char g_line[MessageSize] QM_GUARDED_BY(g_logLock);

static HANDLE g_writeEvent;      // manual reset, set after each record written to the file
static LogFileRequest g_request; // the closer opens the file: an open that never returns hangs that thread alone
static DWORD g_requestReady;     // the request can be used; set before the closer starts
static HANDLE g_closerThread;    // set before the log has readers of it, cleared by LogFile_Exit
static DWORD g_exitRequested;    // single word, set once by LogFile_Exit
static LONG g_writers;           // calls inside LogFile_Write; the lock is deleted only when there is none

static SECURITY_ATTRIBUTES g_security;
static SECURITY_ATTRIBUTES* g_pSecurity; // null until a valid descriptor was built; set before other threads write
static DWORD g_ownsDescriptor;

// --- Settings

// Reads one key of the INI file. Returns: 1 if it has a value.
template<size_t N>
static int ReadLogKey(KeyName key, const char* defaultValue, char (&value)[N]) {
    value[0] = '\0';
    GetPrivateProfileStringA("Settings", key.Text(), defaultValue, value, static_cast<DWORD>(N), szIniFile);
    return value[0] != '\0';
}

// Whether the folder of this file exists.
static int HasFolder(const char* file) {
    char folder[260];
    CopyText(folder, file);
    size_t end = TextLength(folder);
    while (end > 0 && folder[end - 1] != '\\') {
        --end;
    }
    if (end == 0) {
        return 0;
    }
    // The root of a drive keeps its backslash: without it the path would mean the drive's current folder.
    const size_t driveRoot = 3;
    folder[end > driveRoot ? end - 1 : end] = '\0';
    const DWORD attributes = GetFileAttributesA(folder);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The name from the settings, based on the current one.
static void ReadLogFileName(char (&name)[260]) {
    char value[260];
    if (ReadLogKey("Logfile", "", value)) {
        PathUnquoteSpacesA(value);
        MakeFullPath(value, szExeDir, name);
        if (!HasFolder(name)) {
            name[0] = '\0';
        }
    }
    if (name[0] == '\0') {
        const char drive[] = {szWindowsDir[0], ':', '\0'};
        FormatText(name, "%s\\_Quillmarch.log", drive);
    }
}

// Adopts a new name. Closes a file that is open under the old one, or the next records would still go there.
static void SetLogFileName(const char* name) {
    LockGuard lock(g_logLock);
    if (SameText(g_log.LogFileName, name)) {
        return;
    }
    CopyText(g_log.LogFileName, name);
    CloseGlobal<FileKind>(g_file);
}

// The steps of LogFile_ReadSettings.
static void ReadSettings() {
    char level[8];
    if (ReadLogKey("LogLevel", "3", level) && level[0] >= '0' && level[0] <= '9') {
        g_log.LogLevel = level[0] - '0';
    }
    if (g_log.LogLevel == 0) {
        return;
    }
    char write[8];
    if (ReadLogKey("WriteLogfile", "", write)) {
        char name[260];
        CopyText(name, g_log.LogFileName);
        ReadLogFileName(name);
        SetLogFileName(name);
        // After the name is set: from now on other threads write.
        if (write[0] == '1') {
            g_log.WriteLogfile = 1;
        }
    }
    char debugOutput[8];
    ReadLogKey("WriteDebugOutput", "0", debugOutput);
    g_log.WriteDebugOutput = debugOutput[0] != '0';
}

// --- The file

// Lets the log create its files with access for everybody. On failure they get the default security.
static void BuildSecurity() {
    if (g_pSecurity) {
        return;
    }
    OwnedSecurityDescriptor descriptor = EveryoneFullAccess();
    if (!descriptor) {
        return;
    }
    g_security.nLength = sizeof(g_security);
    g_security.lpSecurityDescriptor = descriptor.Release();
    g_security.bInheritHandle = FALSE;
    g_ownsDescriptor = 1;
    g_pSecurity = &g_security;
}

static bool LogFileIsThere() {
    return GetFileAttributesA(g_log.LogFileName) != INVALID_FILE_ATTRIBUTES;
}

// A drive that no longer exists, such as an unplugged stick, is replaced by "C".
static void ReplaceMissingDrive() {
    const char* name = g_log.LogFileName;
    const char letter = name[0];
    const bool isLetter = (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
    if (!isLetter || name[1] != ':' || name[2] != '\\') {
        return;
    }
    const char drive[] = {letter, ':', '\0'};
    char target[1024];
    if (QueryDosDeviceA(drive, target, sizeof(target)) == 0) {
        LockGuard lock(g_logLock);
        g_log.LogFileName[0] = 'C';
    }
}

// Creates the empty file; one that another process has created by now may hold its records and stays. Returns: 0 if it
// cannot be created, so that the log needs no closer thread.
static int CreateLogFile() {
    for (int attempt = 1; attempt <= CreateAttempts; ++attempt) {
        const OwnedFile file(CreateFileA(g_log.LogFileName, GENERIC_WRITE, FILE_SHARE_READ, g_pSecurity, CREATE_NEW,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file) {
            return 1;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_EXISTS) {
            return 1;
        }
        WriteLog(3, "creating log err=%u", error);
        if (error == ERROR_ACCESS_DENIED || error == ERROR_PATH_NOT_FOUND) {
            return 0;
        }
        if (attempt < CreateAttempts) {
            Sleep(RetryMs);
        }
    }
    FATAL_SOFT_AT("LogFile", CreateFailedLine, "LogFile_Init");
    return 1;
}

// How often the open is tried for one record. Everybody may open the log, and a program that holds it unshared would
// otherwise make each record of the service wait for all attempts.
static int AttemptsForRecord() QM_REQUIRES(g_logLock) {
    if (g_isHeld && GetTickCount() - g_heldSinceTick < HeldMs) {
        return 1;
    }
    return OpenAttempts;
}

// A file that is not the log's own would be written with the rights of the service. It is left alone from now on, until
// the settings switch the log on again.
static void StopForLink() QM_REQUIRES(g_logLock) {
    g_log.WriteLogfile = 0;
    OutputDebugStringA("[QUILLMARCH]  the log file is a link -> no more records are written to it\n");
}

// One attempt. Returns: ERROR_SUCCESS or the reason.
static DWORD TryOpenForAppend(const char* name) QM_REQUIRES(g_logLock) {
    const LogFileAnswer answer = g_requestReady && g_closerThread
                                     ? g_request.Ask(name, g_pSecurity, g_writeEvent, OpenWaitMs)
                                     : OpenLogFileNow(name, g_pSecurity);
    g_file = answer.File;
    if (answer.Identity == LogFileIdentity::Link) {
        StopForLink();
    }
    return answer.Error;
}

// Opens the file for appending unless it is open. Returns: ERROR_SUCCESS, or the error of the last attempt.
static DWORD OpenForAppend(const char* name) QM_REQUIRES(g_logLock) {
    if (g_file != INVALID_HANDLE_VALUE) {
        return ERROR_SUCCESS;
    }
    const int attempts = AttemptsForRecord();
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (attempt > 0) {
            Sleep(RetryMs);
        }
        error = TryOpenForAppend(name);
        if (error != ERROR_SHARING_VIOLATION) {
            g_isHeld = false;
            return error;
        }
    }
    if (attempts > 1) {
        g_isHeld = true;
        g_heldSinceTick = GetTickCount();
    }
    return error;
}

// Returns: ERROR_SUCCESS, or the error of the open: the record is then lost, and nothing is reported.
static DWORD LogFile_WriteLine(const char* name, const char* text, size_t length) QM_REQUIRES(g_logLock) {
    const DWORD openError = OpenForAppend(name);
    if (openError != ERROR_SUCCESS) {
        return openError;
    }
    // Finds the end and writes in one step: after a move of the pointer another process could write first, and the two
    // records would overwrite each other.
    OVERLAPPED end = {};
    end.Offset = 0xFFFFFFFF;
    end.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    (void)WriteFile(g_file, text, static_cast<DWORD>(length), &written, &end); // the log never fails its caller
    SetEvent(g_writeEvent);
    return ERROR_SUCCESS;
}

// --- Records

// Builds time, delta, origin, level and message in g_line; a message that is too long is cut so that the line end
// stays. One format for all that precedes the message: each is a call to Windows, and a log of level 3 has
// thousands of lines.
static size_t FormatRecord(LONG level, DWORD delta) QM_REQUIRES(g_logLock) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    const DWORD tenth = now.wMilliseconds / 100u;
    if (g_Mode == ModeService || g_Mode == ModeDebug) {
        FormatText(g_line, "%02u:%02u:%02u.%u (%4u) {%4.4i} <%i> ", now.wHour, now.wMinute, now.wSecond, tenth, delta,
                   static_cast<LONG>(GetCurrentThreadId()), level);
    } else {
        const char* tag = g_Mode >= 0 && g_Mode < ModeCount ? ModeTags[g_Mode] : ModeTags[ModeNul];
        FormatText(g_line, "%02u:%02u:%02u.%u (%4u) [%s%2.2u] <%i> ", now.wHour, now.wMinute, now.wSecond, tenth, delta,
                   tag, GetCurrentProcessId() & 0xFF, level);
    }
    const size_t length = AppendText(g_line, MaxRecord + 1 - 2, g_message);
    return length + CopyText(g_line + length, sizeof(g_line) - length, "\r\n");
}

// Returns: ERROR_SUCCESS, or why the file could not be opened.
static DWORD WriteRecord(LONG level, const char* format, va_list arguments) QM_REQUIRES(g_logLock) {
    DWORD openError = ERROR_SUCCESS;
    const DWORD tick = GetTickCount();
    const DWORD sinceLast = tick - g_previousTick;
    const DWORD delta = sinceLast < MaxDelta ? sinceLast : MaxDelta;
    FormatTextV(g_message, sizeof(g_message), format, arguments);
    if (g_log.WriteDebugOutput) {
        FormatText(g_line, "(%4u)[QUILLMARCH]  ", delta);
        const size_t length = AppendText(g_line, MaxRecord + 1 - 1, g_message);
        CopyText(g_line + length, sizeof(g_line) - length, "\n");
        OutputDebugStringA(g_line);
    }
    if (g_log.WriteLogfile) {
        const size_t length = FormatRecord(level, delta);
        openError = LogFile_WriteLine(g_log.LogFileName, g_line, length);
    }
    g_previousTick = tick;
    return openError;
}

// --- The closer thread

static void CloseIfIdle() {
    if (!TryEnterCriticalSection(&g_logLock)) {
        return; // a writer is active, and its event will wake the thread again
    }
    CloseGlobal<FileKind>(g_file);
    g_request.DropLateAnswer();
    LeaveCriticalSection(&g_logLock);
}

static void CloseAtEnd() {
    LockGuard lock(g_logLock);
    g_request.DropLateAnswer();
    const OwnedFile file(std::exchange(g_file, INVALID_HANDLE_VALUE));
    if (file) {
        Sleep(RetryMs);
    }
}

static void CloseLogHandle() {
    while (!g_exitRequested) {
        g_request.AnswerIfAsked();
        if (WaitForSingleObject(g_writeEvent, IdleBeforeCloseMs) == WAIT_OBJECT_0) {
            // Reset only if the wait succeeded. After a time-out this could discard an event set in between, and the
            // file would stay open. The work is checked after the reset.
            ResetEvent(g_writeEvent);
            continue;
        }
        CloseIfIdle();
        if (WaitForSingleObject(g_writeEvent, INFINITE) == WAIT_FAILED) {
            Sleep(IdleBeforeCloseMs); // without an event only the clock is left
        }
    }
    g_log.WriteLogfile = 0;
    WriteLog(4, "CloseLogHandle_ThreadProc after loop");
    CloseAtEnd();
}

static DWORD WINAPI CloseLogHandle_ThreadProc(LPVOID) {
    CloseLogHandle();
    return 0;
}

static void StartCloser() {
    if (!g_closerThread) {
        g_closerThread = StartThread(CloseLogHandle_ThreadProc, nullptr);
    }
}

void LogFile_Init(int rotate) {
    if (!g_lockReady) {
        InitializeCriticalSection(&g_logLock);
        LockGuard lock(g_logLock);
        g_file = INVALID_HANDLE_VALUE;
        g_isHeld = false;
        g_lockReady = 1;
    }
    if (!g_writeEvent) {
        g_writeEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    g_requestReady = g_request.Init() && g_writeEvent;
    LogFileOpening_Init();
    SetLogFileName("");
    ReadSettings();
    if (!g_log.WriteLogfile) {
        return;
    }
    const bool isRotated = !rotate || RotateLogFile(g_log.LogFileName);
    if (!LogFileIsThere()) {
        BuildSecurity();
        ReplaceMissingDrive();
        // The other drive may already have a log, which must not be emptied.
        if (!LogFileIsThere() && !CreateLogFile()) {
            return;
        }
    }
    StartCloser();
    if (!isRotated) {
        WriteLog(1, "the log before could not be kept -> appending to it"); // not before the closer can open it
    }
}

void LogFile_Exit() {
    if (!g_lockReady) {
        g_log.LogLevel = 0;
        return;
    }
    WriteLog(1, "last log output");
    g_log.WriteLogfile = 0;
    EnterCriticalSection(&g_logLock);
    LeaveCriticalSection(&g_logLock);

    g_exitRequested = 1;
    SetEvent(g_writeEvent);
    bool closerHasEnded = true;
    if (g_closerThread) {
        closerHasEnded = WaitForSingleObject(g_closerThread, ExitWaitMs) == WAIT_OBJECT_0;
        CloseGlobal<ThreadKind>(g_closerThread);
    }
    CloseGlobal<EventKind>(g_writeEvent);

    g_log.LogLevel = 0;
    {
        LockGuard lock(g_logLock);
        CloseGlobal<FileKind>(g_file);
    }
    g_pSecurity = nullptr;
    if (g_ownsDescriptor) {
        CloseGlobal<LocalKind<PSECURITY_DESCRIPTOR>>(g_security.lpSecurityDescriptor);
        g_ownsDescriptor = 0;
    }
    for (DWORD waited = 0; g_writers != 0 && waited < ExitWaitMs; waited += RetryMs) {
        Sleep(RetryMs);
    }
    if (closerHasEnded && g_writers == 0) {
        g_requestReady = 0;
        g_request.Exit();
        g_lockReady = 0;
        DeleteCriticalSection(&g_logLock);
        g_exitRequested = 0;
    }
}

void LogFile_ReadSettings() {
    const DWORD wroteBefore = g_log.WriteLogfile;
    if (!g_lockReady) {
        return;
    }
    ReadSettings();
    if (g_log.WriteLogfile && !wroteBefore) {
        StartCloser(); // switched on while the program runs: the file must not stay open from now on
    }
}

void LogFile_Write(LONG level, const char* format, ...) {
    // Read first and restored last, so that a caller can log first and read the last error afterwards.
    DWORD lastError = GetLastError();
    __atomic_add_fetch(&g_writers, 1, __ATOMIC_SEQ_CST);
    // Checked again after the count: since the caller's test the log may have ended and deleted its lock.
    if (LogFile_Wants(level)) {
        LockGuard lock(g_logLock);
        va_list arguments;
        va_start(arguments, format);
        const DWORD openError = WriteRecord(level, format, arguments);
        va_end(arguments);
        if (openError != ERROR_SUCCESS) {
            lastError = openError;
        }
    }
    __atomic_sub_fetch(&g_writers, 1, __ATOMIC_SEQ_CST);
    SetLastError(lastError);
}

void FatalStopLine(const char* file, DWORD line, const char* function) {
    const DWORD waitMs = 100; // long enough for the record to reach the disk before a trap ends the process
    WriteLog(1, "INT3 in %s line %u, function %s", file, line, function);
    Sleep(waitMs);
}
