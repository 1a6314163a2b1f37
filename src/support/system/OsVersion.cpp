#include "support/system/OsVersion.h"

#include <cstddef>

#include "support/registry/RegistryTools.h"
#include "support/system/FileVersion.h"
#include "support/system/SystemTools.h"
#include "support/texts/BoundedText.h"

OsVersion g_os;

constexpr DWORD FirstWow64Major = 5;
constexpr DWORD FirstMajorWithRelease = 10;
constexpr DWORD FirstBuildOfEleven = 22000;
constexpr size_t NameDigitIndex = 9; // of "Windows 10 …"
constexpr DWORD BcdXp = 0x0501;
constexpr DWORD BcdServer2003 = 0x0502;
constexpr DWORD BcdEight = 0x0602;
constexpr char VersionKey[] = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

using RtlGetVersionOperation = LONG(WINAPI*)(OSVERSIONINFOW*);
using IsWow64ProcessOperation = BOOL(WINAPI*)(HANDLE, PBOOL);

template<typename Info>
static void TakeVersion(const Info& info, OsVersion* out) {
    out->MajorVersion = info.dwMajorVersion;
    out->MinorVersion = info.dwMinorVersion;
    out->BuildNumber = info.dwBuildNumber;
    out->ServicePack = info.wServicePackMajor;
    out->ProductType = info.wProductType;
    out->SuiteMask = info.wSuiteMask;
}

// RtlGetVersion gives the real version; GetVersionExA gives a program without a manifest the one it was built for.
static void ReadApiVersion(OsVersion* out) {
    const SystemLibrary ntdll("ntdll.dll");
    const auto rtlGetVersion = ntdll.Find<RtlGetVersionOperation>("RtlGetVersion");
    if (rtlGetVersion) {
        OSVERSIONINFOEXW info = {};
        info.dwOSVersionInfoSize = sizeof(info);
        if (rtlGetVersion(reinterpret_cast<OSVERSIONINFOW*>(&info)) == 0) {
            TakeVersion(info, out);
        }
    } else {
        OSVERSIONINFOEXA info = {};
        info.dwOSVersionInfoSize = sizeof(info);
        if (GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info))) {
            TakeVersion(info, out);
        }
    }
}

static DWORD ReadIsWow64() {
    BOOL isWow64 = FALSE;
    const SystemLibrary kernel("kernel32.dll");
    const auto isWow64Process = kernel.Find<IsWow64ProcessOperation>("IsWow64Process");
    if (isWow64Process && !isWow64Process(GetCurrentProcess(), &isWow64)) {
        isWow64 = FALSE;
    }
    return isWow64 ? 1 : 0;
}

static void ReadFileVersion(OsVersion* out) {
    char directory[MAX_PATH];
    const UINT length = GetSystemDirectoryA(directory, sizeof(directory));
    if (length == 0 || length >= sizeof(directory)) {
        return;
    }
    char path[MAX_PATH + 16];
    FormatText(path, "%s\\ntdll.dll", directory);
    FileVersion version;
    if (GetFileVersionData(path, &version)) {
        out->FileMajor = version.Major;
        out->FileMinor = version.Minor;
        out->FileVersionBcd = PackVersion(version.Major, version.Minor);
    }
}

static void ReadNames(OsVersion* out) {
    (void)RegReadString(HKEY_LOCAL_MACHINE, VersionKey, "ProductName", out->ProductName, sizeof(out->ProductName),
                        static_cast<int>(out->IsWow64)); // without it the name stays empty
    // Windows 11 still stores the name of its predecessor.
    if (out->BuildNumber >= FirstBuildOfEleven && TextLength(out->ProductName) > NameDigitIndex &&
        out->ProductName[NameDigitIndex] == '0') {
        out->ProductName[NameDigitIndex] = '1';
    }
    if (out->MajorVersion < FirstMajorWithRelease) {
        return;
    }
    if (!RegReadDisplayString(HKEY_LOCAL_MACHINE, VersionKey, "DisplayVersion", out->DisplayVersion,
                              sizeof(out->DisplayVersion))) {
        (void)RegReadDisplayString(HKEY_LOCAL_MACHINE, VersionKey, "ReleaseID", out->DisplayVersion,
                                   sizeof(out->DisplayVersion));
    }
    (void)RegReadDisplayString(HKEY_LOCAL_MACHINE, VersionKey, "UBR", out->Ubr, sizeof(out->Ubr));
}

void GetOsVersion(OsVersion* out) {
    *out = {};
    ReadApiVersion(out);
    if (out->MajorVersion >= FirstWow64Major) {
        out->IsWow64 = ReadIsWow64();
        CopyText(out->Arch, out->IsWow64 ? "x64" : "Win32");
        CopyText(out->ArchText, out->IsWow64 ? "Win32 on x64" : "Win32");
    }
    out->ApiVersionBcd = PackVersion(out->MajorVersion, out->MinorVersion);
    ReadFileVersion(out);
    out->VersionBcd = out->ApiVersionBcd > out->FileVersionBcd ? out->ApiVersionBcd : out->FileVersionBcd;
    const DWORD bcd = out->VersionBcd;
    out->CanCycleUsbPort = bcd == BcdXp || bcd == BcdServer2003 || bcd >= BcdEight;
    ReadNames(out);
}

DWORD PackVersion(DWORD major, DWORD minor) {
    return (major / 10 % 10) << 12 | (major % 10) << 8 | (minor / 10 % 10) << 4 | (minor % 10);
}
