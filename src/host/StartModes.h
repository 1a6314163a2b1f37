// What a process of this executable is: the table of modes and the choice of one at the start.
// The mode's number is `g_Mode`. The log shows the name once; the tags of its lines are defined with the log.
//
// Called by WinMain on the first thread, before any other thread exists.

#pragma once

#include "platform/win32.h"
#include "support/system/ProcessState.h"

// The mode's name for the log. mode: below ModeCount.
const char* StartModeName(LONG mode);

// The mode of a process, one of the Mode constants.
// userSid: text form of the process user's SID. commandLine: without the program's name, compared exactly as to case.
// isUserSession: the process runs in a session above 0.
// For a system account only the account decides; the command line is ignored.
LONG ChooseStartMode(const char* userSid, bool isUserSession, const char* commandLine);
