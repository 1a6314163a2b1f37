// The log: the one diagnostic channel of every process of the program. Records go to one shared text file and, if
// asked, to the debugger's output. WriteLog may be called from any thread at any time, also before LogFile_Init and
// from inside the allocator: it allocates nothing, and a call that writes nothing costs the test of two flags and
// evaluates none of its arguments. One lock of its own makes records whole; it is the innermost lock of the program,
// no call under it takes another one.
#pragma once

#include "platform/win32.h"

// The settings in force. Written by LogFile_ReadSettings and LogFile_Exit; read everywhere without a lock, since each
// field is a single word and one record more or less during a change does no harm. LogFileName changes under the log
// lock only.
struct LogSettings {
    LONG LogLevel;          // 0 to 9, the highest level that is written; 0 until set
    DWORD WriteLogfile;     // records go to the file
    DWORD WriteDebugOutput; // records go to OutputDebugStringA
    char LogFileName[260];  // full path, empty until the settings ask for a file
};
extern LogSettings g_log;

// Starts the log of this process: reads the settings, rotates the file if asked, creates it if it does not exist,
// starts the thread that closes it when nothing is logged. rotate: the process starts a fresh file. Thread: the
// first one, before any other is started. May block up to a second when the file cannot be created.
void LogFile_Init(int rotate);

// Ends the log. After that WriteLog does nothing. May block for up to 1000 ms until the closer thread has ended.
void LogFile_Exit();

// Reads the log's keys from the INI file, again whenever that file has changed. LogLevel and WriteDebugOutput follow
// the file, WriteLogfile is only ever switched on, and the name changes only if the file gives one.
void LogFile_ReadSettings();

// Writes one record. level: 1 to 6. format, arguments: as for wvsprintfA. The thread's last error is kept, unless the
// file could not be opened: then it is that of the failed open. Call it through WriteLog.
void LogFile_Write(LONG level, const char* format, ...) QM_PRINTF(2, 3);

// Whether a record of this level would be written anywhere.
inline bool LogFile_Wants(LONG level) {
    return (g_log.WriteLogfile || g_log.WriteDebugOutput) && g_log.LogLevel >= level;
}

// WriteLog(level, format, ...): a macro, so that the arguments of a record that is not written are not evaluated. They
// must have no side effects.
#define WriteLog(level, ...)                                                                                           \
    do {                                                                                                               \
        if (LogFile_Wants(level)) {                                                                                    \
            LogFile_Write((level), __VA_ARGS__);                                                                       \
        }                                                                                                              \
    } while (0)

// A failed check of an internal invariant: logs "INT3 in %s line %u, function %s" at level 1 and waits 100 ms.
// file: the source's unit as ".\Unit".
void FatalStopLine(const char* file, DWORD line, const char* function);

// The soft form logs and lets the caller continue on its error path; the hard form then traps, which ends the process
// unless a debugger is attached. unit: a literal without path and extension, "CService". The _AT forms name a line.
#define FATAL_SOFT_AT(unit, line, function) FatalStopLine(".\\" unit, (line), (function))
#define FATAL_SOFT(unit, function) FATAL_SOFT_AT(unit, __LINE__, function)
#define FATAL_HARD_AT(unit, line, function)                                                                            \
    do {                                                                                                               \
        FATAL_SOFT_AT(unit, line, function);                                                                           \
        DebugBreak();                                                                                                  \
    } while (0)
#define FATAL_HARD(unit, function) FATAL_HARD_AT(unit, __LINE__, function)
