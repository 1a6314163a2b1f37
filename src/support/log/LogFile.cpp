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

LogSettings g_Log;

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

static CRITICAL_SECTION s_logLock;
static DWORD s_lockReady;

static HANDLE s_file QM_GUARDED_BY(s_logLock); // INVALID_HANDLE_VALUE while the file is closed
static DWORD s_previousTick QM_GUARDED_BY(s_logLock);
static bool s_isHeld QM_GUARDED_BY(s_logLock);         // all attempts for a record found the file in use, unshared
static DWORD s_heldSinceTick QM_GUARDED_BY(s_logLock); // when the last of those attempts failed
static char s_message[MessageSize] QM_GUARDED_BY(s_logLock);
static char s_line[MessageSize] QM_GUARDED_BY(s_logLock);

static HANDLE s_writeEvent;      // manual reset, set after each record written to the file
static LogFileRequest s_request; // the closer opens the file: an open that never returns hangs that thread alone
static DWORD s_requestReady;     // the request can be used; set before the closer starts
static HANDLE s_closerThread;    // set before the log has readers of it, cleared by LogFile_Exit
static DWORD s_exitRequested;    // single word, set once by LogFile_Exit
static LONG s_writers;           // calls inside LogFile_Write; the lock is deleted only when there is none

static SECURITY_ATTRIBUTES s_security;
static SECURITY_ATTRIBUTES* s_pSecurity; // null until a valid descriptor was built; set before other threads write
static DWORD s_ownsDescriptor;

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
    LockGuard lock(s_logLock);
    if (SameText(g_Log.LogFileName, name)) {
        return;
    }
    CopyText(g_Log.LogFileName, name);
    CloseGlobal<FileKind>(s_file);
}

// The steps of LogFile_ReadSettings.
static void ReadSettings() {
    char level[8];
    if (ReadLogKey("LogLevel", "3", level) && level[0] >= '0' && level[0] <= '9') {
        g_Log.LogLevel = level[0] - '0';
    }
    if (g_Log.LogLevel == 0) {
        return;
    }
    char write[8];
    if (ReadLogKey("WriteLogfile", "", write)) {
        char name[260];
        CopyText(name, g_Log.LogFileName);
        ReadLogFileName(name);
        SetLogFileName(name);
        // After the name is set: from now on other threads write.
        if (write[0] == '1') {
            g_Log.WriteLogfile = 1;
        }
    }
    char debugOutput[8];
    ReadLogKey("WriteDebugOutput", "0", debugOutput);
    g_Log.WriteDebugOutput = debugOutput[0] != '0';
}

// --- The file

// Lets the log create its files with access for everybody. On failure they get the default security.
static void BuildSecurity() {
    if (s_pSecurity) {
        return;
    }
    OwnedSecurityDescriptor descriptor = EveryoneFullAccess();
    if (!descriptor) {
        return;
    }
    s_security.nLength = sizeof(s_security);
    s_security.lpSecurityDescriptor = descriptor.Release();
    s_security.bInheritHandle = FALSE;
    s_ownsDescriptor = 1;
    s_pSecurity = &s_security;
}

static bool LogFileIsThere() {
    return GetFileAttributesA(g_Log.LogFileName) != INVALID_FILE_ATTRIBUTES;
}

// A drive that no longer exists, such as an unplugged stick, is replaced by "C".
static void ReplaceMissingDrive() {
    const char* name = g_Log.LogFileName;
    const char letter = name[0];
    const bool isLetter = (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
    if (!isLetter || name[1] != ':' || name[2] != '\\') {
        return;
    }
    const char drive[] = {letter, ':', '\0'};
    char target[1024];
    if (QueryDosDeviceA(drive, target, sizeof(target)) == 0) {
        LockGuard lock(s_logLock);
        g_Log.LogFileName[0] = 'C';
    }
}

// Creates the empty file; one that another process has created by now may hold its records and stays. Returns: 0 if it
// cannot be created, so that the log needs no closer thread.
static int CreateLogFile() {
    for (int attempt = 1; attempt <= CreateAttempts; ++attempt) {
        const OwnedFile file(CreateFileA(g_Log.LogFileName, GENERIC_WRITE, FILE_SHARE_READ, s_pSecurity, CREATE_NEW,
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
static int AttemptsForRecord() QM_REQUIRES(s_logLock) {
    if (s_isHeld && GetTickCount() - s_heldSinceTick < HeldMs) {
        return 1;
    }
    return OpenAttempts;
}

// A file that is not the log's own would be written with the rights of the service. It is left alone from now on, until
// the settings switch the log on again.
static void StopForLink() QM_REQUIRES(s_logLock) {
    g_Log.WriteLogfile = 0;
    OutputDebugStringA("[QUILLMARCH]  the log file is a link -> no more records are written to it\n");
}

// One attempt. Returns: ERROR_SUCCESS or the reason.
static DWORD TryOpenForAppend(const char* name) QM_REQUIRES(s_logLock) {
    const LogFileAnswer answer = s_requestReady && s_closerThread
                                     ? s_request.Ask(name, s_pSecurity, s_writeEvent, OpenWaitMs)
                                     : OpenLogFileNow(name, s_pSecurity);
    s_file = answer.File;
    if (answer.Identity == LogFileIdentity::Link) {
        StopForLink();
    }
    return answer.Error;
}

// Opens the file for appending unless it is open. Returns: ERROR_SUCCESS, or the error of the last attempt.
static DWORD OpenForAppend(const char* name) QM_REQUIRES(s_logLock) {
    if (s_file != INVALID_HANDLE_VALUE) {
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
            s_isHeld = false;
            return error;
        }
    }
    if (attempts > 1) {
        s_isHeld = true;
        s_heldSinceTick = GetTickCount();
    }
    return error;
}

// Returns: ERROR_SUCCESS, or the error of the open: the record is then lost, and nothing is reported.
static DWORD LogFile_WriteLine(const char* name, const char* text, size_t length) QM_REQUIRES(s_logLock) {
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
    (void)WriteFile(s_file, text, static_cast<DWORD>(length), &written, &end); // the log never fails its caller
    SetEvent(s_writeEvent);
    return ERROR_SUCCESS;
}

// --- Records

// Builds time, delta, origin, level and message in s_line; a message that is too long is cut so that the line end
// stays. One format for all that precedes the message: each is a call to Windows, and a log of level 3 has
// thousands of lines.
static size_t FormatRecord(LONG level, DWORD delta) QM_REQUIRES(s_logLock) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    const DWORD tenth = now.wMilliseconds / 100u;
    if (g_Mode == ModeService || g_Mode == ModeDebug) {
        FormatText(s_line, "%02u:%02u:%02u.%u (%4u) {%4.4i} <%i> ", now.wHour, now.wMinute, now.wSecond, tenth, delta,
                   static_cast<LONG>(GetCurrentThreadId()), level);
    } else {
        const char* tag = g_Mode >= 0 && g_Mode < ModeCount ? ModeTags[g_Mode] : ModeTags[ModeNul];
        FormatText(s_line, "%02u:%02u:%02u.%u (%4u) [%s%2.2u] <%i> ", now.wHour, now.wMinute, now.wSecond, tenth, delta,
                   tag, GetCurrentProcessId() & 0xFF, level);
    }
    const size_t length = AppendText(s_line, MaxRecord + 1 - 2, s_message);
    return length + CopyText(s_line + length, sizeof(s_line) - length, "\r\n");
}

// Returns: ERROR_SUCCESS, or why the file could not be opened.
static DWORD WriteRecord(LONG level, const char* format, va_list arguments) QM_REQUIRES(s_logLock) {
    DWORD openError = ERROR_SUCCESS;
    const DWORD tick = GetTickCount();
    const DWORD sinceLast = tick - s_previousTick;
    const DWORD delta = sinceLast < MaxDelta ? sinceLast : MaxDelta;
    FormatTextV(s_message, sizeof(s_message), format, arguments);
    if (g_Log.WriteDebugOutput) {
        FormatText(s_line, "(%4u)[QUILLMARCH]  ", delta);
        const size_t length = AppendText(s_line, MaxRecord + 1 - 1, s_message);
        CopyText(s_line + length, sizeof(s_line) - length, "\n");
        OutputDebugStringA(s_line);
    }
    if (g_Log.WriteLogfile) {
        const size_t length = FormatRecord(level, delta);
        openError = LogFile_WriteLine(g_Log.LogFileName, s_line, length);
    }
    s_previousTick = tick;
    return openError;
}

// --- The closer thread

static void CloseIfIdle() {
    if (!TryEnterCriticalSection(&s_logLock)) {
        return; // a writer is active, and its event will wake the thread again
    }
    CloseGlobal<FileKind>(s_file);
    s_request.DropLateAnswer();
    LeaveCriticalSection(&s_logLock);
}

static void CloseAtEnd() {
    LockGuard lock(s_logLock);
    s_request.DropLateAnswer();
    const OwnedFile file(std::exchange(s_file, INVALID_HANDLE_VALUE));
    if (file) {
        Sleep(RetryMs);
    }
}

static void CloseLogHandle() {
    while (!s_exitRequested) {
        s_request.AnswerIfAsked();
        if (WaitForSingleObject(s_writeEvent, IdleBeforeCloseMs) == WAIT_OBJECT_0) {
            // Reset only if the wait succeeded. After a time-out this could discard an event set in between, and the
            // file would stay open. The work is checked after the reset.
            ResetEvent(s_writeEvent);
            continue;
        }
        CloseIfIdle();
        if (WaitForSingleObject(s_writeEvent, INFINITE) == WAIT_FAILED) {
            Sleep(IdleBeforeCloseMs); // without an event only the clock is left
        }
    }
    g_Log.WriteLogfile = 0;
    WriteLog(4, "CloseLogHandle_ThreadProc after loop");
    CloseAtEnd();
}

static DWORD WINAPI CloseLogHandle_ThreadProc(LPVOID) {
    CloseLogHandle();
    return 0;
}

static void StartCloser() {
    if (!s_closerThread) {
        s_closerThread = StartThread(CloseLogHandle_ThreadProc, nullptr);
    }
}

void LogFile_Init(int rotate) {
    if (!s_lockReady) {
        InitializeCriticalSection(&s_logLock);
        LockGuard lock(s_logLock);
        s_file = INVALID_HANDLE_VALUE;
        s_isHeld = false;
        s_lockReady = 1;
    }
    if (!s_writeEvent) {
        s_writeEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    s_requestReady = s_request.Init() && s_writeEvent;
    LogFileOpening_Init();
    SetLogFileName("");
    ReadSettings();
    if (!g_Log.WriteLogfile) {
        return;
    }
    const bool isRotated = !rotate || RotateLogFile(g_Log.LogFileName);
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
    if (!s_lockReady) {
        g_Log.LogLevel = 0;
        return;
    }
    WriteLog(1, "last log output");
    g_Log.WriteLogfile = 0;
    EnterCriticalSection(&s_logLock);
    LeaveCriticalSection(&s_logLock);

    s_exitRequested = 1;
    SetEvent(s_writeEvent);
    bool closerHasEnded = true;
    if (s_closerThread) {
        closerHasEnded = WaitForSingleObject(s_closerThread, ExitWaitMs) == WAIT_OBJECT_0;
        CloseGlobal<ThreadKind>(s_closerThread);
    }
    CloseGlobal<EventKind>(s_writeEvent);

    g_Log.LogLevel = 0;
    {
        LockGuard lock(s_logLock);
        CloseGlobal<FileKind>(s_file);
    }
    s_pSecurity = nullptr;
    if (s_ownsDescriptor) {
        CloseGlobal<LocalKind<PSECURITY_DESCRIPTOR>>(s_security.lpSecurityDescriptor);
        s_ownsDescriptor = 0;
    }
    for (DWORD waited = 0; s_writers != 0 && waited < ExitWaitMs; waited += RetryMs) {
        Sleep(RetryMs);
    }
    if (closerHasEnded && s_writers == 0) {
        s_requestReady = 0;
        s_request.Exit();
        s_lockReady = 0;
        DeleteCriticalSection(&s_logLock);
        s_exitRequested = 0;
    }
}

void LogFile_ReadSettings() {
    const DWORD wroteBefore = g_Log.WriteLogfile;
    if (!s_lockReady) {
        return;
    }
    ReadSettings();
    if (g_Log.WriteLogfile && !wroteBefore) {
        StartCloser(); // switched on while the program runs: the file must not stay open from now on
    }
}

void LogFile_Write(LONG level, const char* format, ...) {
    // Read first and restored last, so that a caller can log first and read the last error afterwards.
    DWORD lastError = GetLastError();
    __atomic_add_fetch(&s_writers, 1, __ATOMIC_SEQ_CST);
    // Checked again after the count: since the caller's test the log may have ended and deleted its lock.
    if (LogFile_Wants(level)) {
        LockGuard lock(s_logLock);
        va_list arguments;
        va_start(arguments, format);
        const DWORD openError = WriteRecord(level, format, arguments);
        va_end(arguments);
        if (openError != ERROR_SUCCESS) {
            lastError = openError;
        }
    }
    __atomic_sub_fetch(&s_writers, 1, __ATOMIC_SEQ_CST);
    SetLastError(lastError);
}

void FatalStopLine(const char* file, DWORD line, const char* function) {
    const DWORD waitMs = 100; // long enough for the record to reach the disk before a trap ends the process
    WriteLog(1, "INT3 in %s line %u, function %s", file, line, function);
    Sleep(waitMs);
}
