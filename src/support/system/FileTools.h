// Queries of files and folders that keep nothing open. Any thread, no lock; each may block as long as the file system
// does. To open a device use CreateFileTimeout.h.
#pragma once

#include "platform/win32.h"

// 1 if the file or folder exists; one without read access counts as existing, a name with characters that no file name
// has does not and is not looked up. Quotes and environment variables are allowed.
int FileExists(const char* path);

// 1 if it can be opened for reading (folders and alternate streams too). Logs at level 3. The last error is that of the
// open after a failure.
int CanOpen(const char* path);

// 1 if the path, without its quotes, is a folder.
int IsFolder(const char* path);

// Last write time as 64 bits, 0 if the file cannot be opened. Opens with no access right, so a file in use is no
// obstacle. Logs at level 4.
ULONGLONG GetFileWriteTime(const char* path);

// Removes the mark that a file came from the internet from every file in the folder. Returns: 1 if at least one mark
// was deleted, else 0.
int RemoveZoneIdentifiers(const char* folder);
