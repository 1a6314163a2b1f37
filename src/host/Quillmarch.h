// The program's entry and the path that all roles share: file paths, operating system record, log, mode, the
// process-wide objects and their end. What a role does by itself is in the other files of this folder.
//
// Called by Windows on the first thread of the process. No lock is held; the program's locks are created here.

#pragma once

#include "platform/win32.h"

// Exit codes of the process. A command gives 0 only when it reached its goal.
inline constexpr int ExitDone = 0;
inline constexpr int ExitRefused = 1;
inline constexpr int ExitNoCommandLine = -1;

// lpCmdLine: the command line without the program's name; it is turned to lower case in place by the commands.
// Returns: one of the exit codes above.
extern "C" int WINAPI WinMain(HINSTANCE hInstance, HINSTANCE hPrevInstance, LPSTR lpCmdLine, int nCmdShow);
