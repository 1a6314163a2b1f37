// Questions about files and folders, answered without holding anything open. Any thread, no lock; each may block as
// long as the file system does. Opening a device belongs to CreateFileTimeout.h.
#pragma once

#include "platform/win32.h"

// 1 if the file or folder is there; a file that may not be looked at counts as there, a name with characters that no
// file name has does not, without a look at the disk. Quotes and environment variables are allowed.
int FileExists(const char* path);

// 1 if it can be opened for reading (folders and alternate streams too). Logs at level 3. The last error is that of the
// open after a failure.
int CanOpen(const char* path);

// 1 if the path, without its quotes, is a folder.
int IsFolder(const char* path);

// Last write time as 64 bits, 0 if the file cannot be opened. Opens with no access right, so a file that others hold is
// no obstacle. Logs at level 4.
ULONGLONG GetFileWriteTime(const char* path);

// Takes the mark that a file came from the internet off every file in the folder. Returns: 1 if at least one mark was
// deleted, else 0.
int RemoveZoneIdentifiers(const char* folder);
