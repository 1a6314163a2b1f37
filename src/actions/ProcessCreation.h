// The one way to a new process: programs, copies of this executable and balloons, as the user that the caller names.
// Thread: any. No lock. Blocks for as long as Windows takes to create a process.
#pragma once

#include "actions/CommandSplit.h"
#include "platform/win32.h"
#include "support/system/UserType.h"

// Room for every command line: a quoted program, a blank and the parameters.
constexpr size_t MaxProcessLine = MAX_PATH + 4 + MaxProgramParams;

// The creation flags of all processes of this program.
constexpr DWORD NormalPriority = 0x20;
static_assert(NormalPriority == NORMAL_PRIORITY_CLASS);

// The command line of a program: its path, quoted if it has blanks, a blank and the parameters, without blanks and tabs
// at both ends.
void BuildProcessLine(const char* program, const char* params, char (&line)[MaxProcessLine]);

// The characters that the program and the blank after it take of the command line.
size_t ProcessLineStart(const char* program);

// Whether the parameters already are a whole command line: they begin with the program, as BuildProcessLine writes it,
// as a separate word.
bool BeginsWithProgram(const char* params, const char* program);

// Starts the program. program: full path. params: may be empty. dir: its directory; if empty or not a folder, that of
// this process. showCommand: as for ShowWindow. phProcess: null, or receives the process handle, which the caller
// closes; null after a failure.
// In a service run `normal`, `restr` and `elev` need a logged-on user; if Windows refuses one of the last two, the
// user's own token is used. Sets the current directory to the Windows directory. Returns: the process id; 0 after a
// failure.
DWORD CreateProcessEx(const char* program, const char* params, const char* dir, WORD showCommand, DWORD flags,
                      UserType type, HANDLE* phProcess);
