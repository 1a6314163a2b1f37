// The commands that the executable takes as a tool, in the order in which they are tested, and what they do.
//
// Called by WinMain on the first thread, after `g_pService` and the settings were made.

#pragma once

#include "platform/win32.h"

// What a command line asks for.
enum class CommandAction : BYTE {
    ShowUsage, // asked for, nothing but delimiters, or not known
    DebugRun,
    Register,
    Deregister,
    StartService,
    StopService,
};

struct Command {
    CommandAction action;
    bool isVerbose;  // a message box tells the result
    bool needsAdmin; // without administrator rights the same command line is started again with them
};

// Finds the command. line: turned to lower case and cut at the end of its first token, both in place.
// The token is what stands before the second run of "-" or "/"; what follows is not looked at. Everything that is no
// command needs administrator rights too, but for "?" and a line without any token.
Command FindCommand(char* line);

// Carries out what a command line asks for. line: as for FindCommand, not empty. Sets `g_DebugMode`.
// Returns: true when WinMain goes on with a debug run; false when the process ends with *exitCode.
// Blocks while message boxes are open and while the service starts or stops.
bool RunCommand(char* line, int* exitCode);

// A box that tells how to register the service.
void Usage();

// Whether the executable may be registered as a service. Refuses network drives, absent and substituted drives with a
// message, and a path without a drive letter in silence. Returns: 1 when it may, else 0.
DWORD CheckExeOnLocalDrive();
