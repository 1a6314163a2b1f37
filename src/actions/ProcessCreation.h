// The one way to a new process: programs, copies of this executable and balloons, as the user that the caller names.
// Thread: any. No lock. Blocks for as long as Windows takes to make a process.
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

// Whether the parameters are a whole command line already: they begin with the program, as BuildProcessLine writes it,
// as a word of its own.
bool BeginsWithProgram(const char* params, const char* program);

// Starts the program. program: full path. params: may be empty. dir: its directory; one that is empty or no folder
// gives it that of this process. showCommand: as for ShowWindow. phProcess: null, or receives the process handle, the
// caller's to close; null after a failure.
// In a service run `normal`, `restr` and `elev` need a logged-on user; what Windows refuses of the last two leaves the
// user's own token. Makes the Windows directory the current one. Returns: the process id; 0 after a failure.
DWORD CreateProcessEx(const char* program, const char* params, const char* dir, WORD showCommand, DWORD flags,
                      UserType type, HANDLE* phProcess);
