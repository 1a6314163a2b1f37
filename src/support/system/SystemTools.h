// Small queries of the system: processes by name, libraries of the system directory, drives. Any thread, no lock.
#pragma once

#include "platform/win32.h"
#include "support/system/Handles.h"

// Id of the first process of that image name, ignoring case; 0 if there is none. Logs at level 3.
DWORD GetProcessIdByName(const char* name);

// Loads a library by its full path in the system directory, so that no file next to the program can take its place.
// Returns: the library, freed by the caller; null with the last error.
HMODULE LoadSystemLibrary(const char* name);

// 1 if the drive is a folder under a drive letter: its target begins with "\??\".
int IsSubstDrive(char letter);

// Narrows the search for libraries to the system directory, as far as this Windows can. The first step of WinMain.
void NarrowDllSearch();

// An operation that this Windows may lack, as a pointer of the operation's type; null if the library is null or lacks
// it.
template<typename Operation>
Operation FindOperation(HMODULE library, const char* name) {
    if (!library) {
        return nullptr;
    }
    return reinterpret_cast<Operation>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

// A library of the system for as long as it is used. Use it for every library that the program does not import, such as
// wtsapi32.dll and netapi32.dll: a file of the same name next to the program or on the path is never loaded.
//     const SystemLibrary sessions("wtsapi32.dll");
//     const auto query = sessions.Find<decltype(&WTSQuerySessionInformationA)>("WTSQuerySessionInformationA");
//     if (query && query(...)) ...
class SystemLibrary {
public:
    explicit SystemLibrary(const char* name) : m_module(LoadSystemLibrary(name)) {}

    // Null, with the last error, if the library or the operation is missing. Not to be called after the destructor.
    template<typename Operation>
    Operation Find(const char* name) const {
        return FindOperation<Operation>(m_module.Get(), name);
    }

private:
    OwnedLibrary m_module;
};
