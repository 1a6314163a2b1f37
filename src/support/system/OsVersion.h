// Which Windows this is: one record per process, filled at the start of WinMain before any other thread and read
// afterwards without a lock.
#pragma once

#include "platform/win32.h"

struct OsVersion {
    DWORD MajorVersion; // RtlGetVersion, else GetVersionExA
    DWORD MinorVersion;
    DWORD BuildNumber;
    DWORD ServicePack; // major service pack number
    DWORD ProductType;
    DWORD SuiteMask;
    DWORD VersionBcd;     // the larger of the next two: 0x0500 is 5.0, 0x0603 is 6.3, 0x1000 is 10.0
    DWORD ApiVersionBcd;  // of MajorVersion and MinorVersion
    DWORD FileVersionBcd; // of the file version of ntdll.dll, 0 if it cannot be read
    DWORD FileMajor;
    DWORD FileMinor;
    DWORD IsWow64;     // a 32-bit process on 64-bit Windows
    char Arch[8];      // "x64" with IsWow64, else "Win32"
    char ArchText[16]; // "Win32 on x64" with IsWow64, else "Win32"
    char ProductName[64];
    char DisplayVersion[16];
    char Ubr[16];
    DWORD CanCycleUsbPort; // hubs of this version carry out a cycle request
};
extern OsVersion g_os;

// Fills the record.
void GetOsVersion(OsVersion* out);

// The digit-packed form: one hexadecimal digit for each decimal digit, two digits each. major, minor: 0 to 99.
DWORD PackVersion(DWORD major, DWORD minor);
