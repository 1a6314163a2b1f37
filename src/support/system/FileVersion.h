// The version resource of a file, read through version.dll as long as the call lasts. Any thread, no lock.
#pragma once

#include "platform/win32.h"

struct FileVersion {
    BYTE Major; // each part cut to 8 bits
    BYTE Minor;
    BYTE Build;
    BYTE Private;
    DWORD Packed;          // major << 24 | minor << 16 | build << 8 | private
    char Text[24];         // "%u.%u.%u"; with ".%u" of the private part for the program's own file from 10 on
    char CompanyName[128]; // empty if there is none or it is too long
};

// Fills the record. Returns: 1; 0 with "ERROR%u" of the last error in Text.
int GetFileVersionData(const char* path, FileVersion* out);
