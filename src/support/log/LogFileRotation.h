// Keeps the log of the run before as its backup. Used by the log alone, at the start of a process that writes a fresh
// one.
#pragma once

// Deletes the backup of this log and renames the log to it. A log whose name gives no backup's name stays. Everybody
// may open the log and its backup, and one who never answers whether a file may be deleted or renamed (an oplock) would
// stop the service's start for ever, so a thread of its own does both, and takes no further step once it was given up.
// name: full path. Thread: the first one, before the log is opened; no other rotation may be waited for.
// Blocks up to a second. Returns: false if the rotation was given up, the log is then appended to.
bool RotateLogFile(const char* name);
