// Warns of what ordinary users may change and what then runs, or rules what runs, as the system.
//
// Called by the start of the service and by its registration, with the configuration read.

#pragma once

#include "platform/win32.h"

constexpr char ConfigurationKey[] = "Software\\Tarn Holve\\Quillmarch"; // below HKEY_LOCAL_MACHINE

// Looks at the executable, the INI file, the folders above them, the log's folder, the configuration's registry key,
// and the programs and directories of entries that run as `system` or `elevated`. Writes one line of level 1 for each
// thing that somebody may change. Paths that are not on a local drive are passed over: asking there could take minutes.
// Makes the Windows directory the current one if there are such entries. Blocks on the file system.
void LogWhatUsersMayChange();
