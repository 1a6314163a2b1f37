// Whether the program's location is suitable: the service manager starts services before users' drives exist, so a
// service on a network drive or on a substituted drive would not start.
//
// Called by the command that registers the service, on the first thread.

#pragma once

#include "platform/win32.h"

enum class ExeDrive : BYTE {
    Local,
    NotLocal,      // a network drive, no drive, or a substituted one
    NoDriveLetter, // the path does not begin with a letter
};

// path: full path of the executable. Touches the drive, not the file.
ExeDrive FindExeDrive(const char* path);
