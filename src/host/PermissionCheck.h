// Warns of things that ordinary users may change and that then run, or control what runs, as the system.
//
// Called by the start of the service and by its registration, with the configuration read.

#pragma once

#include "platform/win32.h"

constexpr char ConfigurationKey[] = "Software\\Tarn Holve\\Quillmarch"; // below HKEY_LOCAL_MACHINE

// Checks the executable, the INI file, the folders above them, the log's folder, the configuration's registry key, and
// the programs and directories of entries that run as `system` or `elevated`. Logs one line of level 1 for each thing
// that users may change. Paths that are not on a local drive are skipped: access there could take minutes. Sets the
// current directory to the Windows directory if there are such entries. Blocks on the file system.
void LogWhatUsersMayChange();
