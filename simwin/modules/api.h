// Modules and resources, the version of Windows: the operations of Windows that the product needs.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Modules. Only the system's libraries and the program itself; 126 no such library.
DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size); // cut with 122; the program and libraries
HMODULE LoadLibraryA(LPCSTR name);
BOOL FreeLibrary(HMODULE module);
// Optional operations alone can be looked up, here RtlGetVersion, IsWow64Process, SetDllDirectoryA,
// SetDefaultDllDirectories and those of version.dll; what this version of Windows lacks gives null with 127.
FARPROC GetProcAddress(HMODULE module, LPCSTR name);

struct OSVERSIONINFOA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    CHAR szCSDVersion[128];
};
struct OSVERSIONINFOEXA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    CHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
static_assert(sizeof(OSVERSIONINFOA) == 148 && sizeof(OSVERSIONINFOEXA) == 156);
static_assert(sizeof(OSVERSIONINFOW) == 276 && sizeof(OSVERSIONINFOEXW) == 284);
// Tells no more than 6.2.9200 to a program whose manifest names no later Windows. FALSE with 122 for another size.
BOOL GetVersionExA(OSVERSIONINFOA* version);

// --- Resources of the program, read from its compiled form. null with 1813 no such type, 1814 no such name.
HRSRC FindResourceA(HMODULE module, LPCSTR name, LPCSTR type);
HGLOBAL LoadResource(HMODULE module, HRSRC resource);
LPVOID LockResource(HGLOBAL data);
DWORD SizeofResource(HMODULE module, HRSRC resource);

struct VS_FIXEDFILEINFO {
    DWORD dwSignature;
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
};
// version.dll, looked up at run time: names "GetFileVersionInfoA" and "VerQueryValueA".
BOOL GetFileVersionInfoA(LPCSTR file, DWORD handle, DWORD size, LPVOID data); // 2, 1812, 1813
BOOL VerQueryValueA(LPCVOID data, LPCSTR block, LPVOID* value, PUINT size);   // 1813

} // namespace simwin
