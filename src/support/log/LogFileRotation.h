// Keeps the log of the previous run as its backup. Used by the log alone, at the start of a process that writes a fresh
// one.
#pragma once

// Deletes the backup of this log and renames the log to it. A log whose name yields no backup name stays. Everybody may
// open the log and its backup, and an oplock that is never answered would block the service's start forever, so a
// thread of its own does both, and takes no further step once it was given up.
// name: full path. Thread: the first one, before the log is opened; no other rotation may be in progress.
// Blocks up to a second. Returns: false if the rotation was given up, the log is then appended to;
// also where the folder of the log is a link or lies below one, since what would be deleted there might be any file.
bool RotateLogFile(const char* name);
