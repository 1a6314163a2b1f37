// Starts the program of one entry of an action section, on the desktop of the user that the entry names: directly, or
// through a copy of this executable that takes the foreground first (ExecuteMode.h), since a service's program would
// open behind the user's windows.
// Thread: a callback timer's. No lock.
#pragma once

#include "actions/CommandSplit.h"
#include "platform/win32.h"
#include "support/system/UserType.h"

constexpr WORD ShowNotConfigured = 65535;

// One entry, as configured and then as split.
struct OpenParams {
    char szOpen[520];                // command line as configured
    char szExe[MAX_PATH];            // program to start
    char szParams[MaxProgramParams]; // its parameters
    char szWorkDir[260];             // its directory
    WORD ShowWindow;                 // ShowNotConfigured, or as for ShowWindow
    DWORD Delay;                     // milliseconds, as the next two
    DWORD AfterDelay;
    DWORD MaxWait;
    UserType userType;
    LONG Force; // 0: the entry is skipped
    char szMd5[64];
    LONG OneInstance;
};

// A copy in execute mode ignores a command line, including its own path, of this length or more.
constexpr size_t ExecuteLineLimit = 512;
constexpr size_t MaxExecuteLine = MaxProgramParams + 3 * MAX_PATH + 64;

// The parameters with which a copy in execute mode starts the program. wait: the copy must outlive the program.
void BuildExecuteLine(const OpenParams& params, bool wait, WORD windowNumber, char (&line)[MaxExecuteLine]);

// params: with szExe, szParams and szWorkDir filled. wait: the caller will wait for the process. phProcess: null, or
// receives its handle, which the caller closes; in execute mode it is that of the copy, which waits for at most 11
// seconds. Returns: 1 if a process was created, else 0.
int AutoRunExec(const OpenParams& params, bool wait, HANDLE* phProcess);
