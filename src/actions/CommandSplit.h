// Splits a configured command line into a program and its parameters. A path with blanks needs no quotes, a document
// stands for the program that opens it, and text from a device never chooses the program.
// Thread: a callback timer's; several may split at once. Each split sets the current directory of the process to the
// Windows directory. No lock. Blocks on the file system and the shell.
#pragma once

#include <cstddef>

#include "actions/PortVariables.h"
#include "platform/win32.h"
#include "support/system/UserType.h"

constexpr size_t MaxProgramParams = 2048; // with the final zero

// 1 if the extension of the path, quoted or not, is exe or com.
int IsExeOrCom(const char* path);

// Finds the program with which Windows opens the file (an executable opens itself). file: quoted if short enough.
// Returns: above 32 on success; 8 for a text of more than 1024 characters, else the shell's error. `found` is empty on
// failure.
INT_PTR FindExecutableQuoted(const char* file, const char* dir, char (&found)[MAX_PATH]);

// baseDir: where a relative program is searched for; null means empty. exe: the program to start. params: as written
// after the program; for a document its quoted path, a blank and what followed it.
// Returns: 1; 0 with both outputs empty if there is no such program, or no room for the parameters.
int SplitCommandLine(const char* commandLine, const char* baseDir, char (&exe)[MAX_PATH],
                     char (&params)[MaxProgramParams]);

// The same for a line with the placeholders of a port. A program named without them is kept whatever the port's values
// are. If the program is a script, the values are inserted again without characters that cmd.exe evaluates. userType:
// for `system` and `elev`, values in the program part lose what could lead to another folder.
// Returns: 1; 0 with both outputs empty if SplitCommandLine fails or the stricter values name another program.
int SplitPortCommandLine(const CComPort& port, const char* configured, UserType userType, const char* baseDir,
                         char (&exe)[MAX_PATH], char (&params)[MaxProgramParams]);
