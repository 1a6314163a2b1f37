// The commands that the executable takes as a tool, in the order in which they are tested, and what they do.
//
// Called by WinMain on the first thread, after `g_pService` and the settings were made.

#pragma once

#include "platform/win32.h"

// What a command line requests.
enum class CommandAction : BYTE {
    ShowUsage, // requested, only delimiters, or unknown
    DebugRun,
    Register,
    Deregister,
    StartService,
    StopService,
};

struct Command {
    CommandAction action;
    bool isVerbose;  // a message box shows the result
    bool needsAdmin; // without administrator rights the same command line is run again with them
};

// Finds the command. line: turned to lower case and cut at the end of its first token, both in place.
// The token is what precedes the second run of "-" or "/"; the rest is ignored. Anything that is not a command needs
// administrator rights too, except "?" and a line without any token.
Command FindCommand(char* line);

// Carries out a command line. line: as for FindCommand, not empty. Sets `g_DebugMode`.
// Returns: true when WinMain continues with a debug run; false when the process ends with *exitCode.
// Blocks while message boxes are open and while the service starts or stops.
bool RunCommand(char* line, int* exitCode);

// A box that explains how to register the service.
void Usage();

// Whether the executable may be registered as a service. Refuses network drives, absent and substituted drives with a
// message, and a path without a drive letter silently. Returns: 1 when it may, else 0.
DWORD CheckExeOnLocalDrive();
