// A snapshot of the DOS name space: the names that contain a text, each with the NT device that it leads to. The port
// snapshot takes one to find COM names that no port explains. The two changes of the name space are here too.
// Thread: any, without a lock. An object belongs to the thread that made it; the size that the list of all names needed
// last time is shared, and each snapshot works on its own copy of it.
#pragma once

#include "platform/win32.h"

// Room for the targets of one name, in characters.
constexpr DWORD DosTargetSize = 520;

struct DosDeviceEntry {
    char* Target; // first target of the name, into Targets
    char* Name;   // into Buffer
};

class CDosDeviceNames {
public:
    // filter: only names that contain it, ignoring case; null for all. A name whose target cannot be read has no entry.
    // If the list cannot be read, the object stays empty and the fatal line is written.
    explicit CDosDeviceNames(const char* filter);
    ~CDosDeviceNames();
    CDosDeviceNames(const CDosDeviceNames&) = delete;
    CDosDeviceNames& operator=(const CDosDeviceNames&) = delete;

    char* Buffer = nullptr;  // all names, one after another, ended by an empty one
    char* Targets = nullptr; // all targets in one block, since each allocation checks the whole heap
    DosDeviceEntry* Entries = nullptr;
    LONG Count = 0;
};

// The first target of a DOS name, cut to the array. An empty name does not exist.
// Returns: 1 if the name exists. On failure 0 with the last error of the name space, `target` is empty then.
int QueryDosName(const char* name, char (&target)[DosTargetSize]);

// Deletes the name's current target, without a broadcast. A name other than COM and digits stays, with a line: it
// belongs to something else. Returns: 1, or 0 with the last error.
int DeleteDosName(const char* name);

// Makes the name lead to the NT device, without a broadcast. A name other than COM and digits is refused as above.
// Returns: 1, or 0 with the last error.
int CreateDosName(const char* name, const char* kernelName);
