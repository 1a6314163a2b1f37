// A configured command line becomes a program and its parameters. Nobody has to quote a path with blanks, a document
// stands for the program that opens it, and what a device calls itself never chooses the program.
// Thread: a callback timer's; several may split at once. Each split makes the Windows directory the current one of the
// process and leaves it so. No lock. Blocks on the file system and the shell.
#pragma once

#include <cstddef>

#include "actions/PortVariables.h"
#include "platform/win32.h"
#include "support/system/UserType.h"

constexpr size_t MaxProgramParams = 2048; // with the final zero

// 1 if the extension of the path, quoted or not, is exe or com.
int IsExeOrCom(const char* path);

// What Windows opens the file with, a program being its own, into `found`. file: quoted if it is short enough to be.
// Returns: above 32 for success; 8 for a text of more than 1024 characters, else the error of the shell. `found` is
// empty without success.
INT_PTR FindExecutableQuoted(const char* file, const char* dir, char (&found)[MAX_PATH]);

// baseDir: where a relative program is looked for; null counts as empty. exe: the program to start. params: as written
// after the program; of a document its quoted path, a blank and what followed it.
// Returns: 1; 0 with both outputs empty if there is no such program, or no room for the parameters.
int SplitCommandLine(const char* commandLine, const char* baseDir, char (&exe)[MAX_PATH],
                     char (&params)[MaxProgramParams]);

// The same for a line with the placeholders of a port. A line that names its program without them keeps it whatever the
// port's values are. If the program turns out to be a script, the values are put in anew without what cmd.exe
// evaluates. userType: for `system` and `elev` values in the program part lose what would lead to another folder.
// Returns: 1; 0 with both outputs empty if SplitCommandLine fails or the stricter values name another program.
int SplitPortCommandLine(const CComPort& port, const char* configured, UserType userType, const char* baseDir,
                         char (&exe)[MAX_PATH], char (&params)[MaxProgramParams]);
