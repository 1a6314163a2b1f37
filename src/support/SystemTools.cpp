#include "support/SystemTools.h"

#include "support/BoundedText.h"
#include "support/LogFile.h"
#include "support/ScopeGuard.h"

namespace {

constexpr DWORD SearchSystemDirectoryOnly = 0x800;
constexpr char SubstTarget[] = "\\??\\";

using SetDllDirectoryOperation = BOOL(WINAPI*)(LPCSTR);
using SetDefaultDllDirectoriesOperation = BOOL(WINAPI*)(DWORD);

DWORD FindProcess(const char* name) {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return 0;
    }
    auto close = OnScopeExit([&] { CloseHandle(snapshot); });
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry)) {
        if (lstrcmpiA(entry.szExeFile, name) == 0) {
            return entry.th32ProcessID;
        }
    }
    return 0;
}

} // namespace

DWORD GetProcessIdByName(const char* name) {
    const DWORD id = FindProcess(name);
    WriteLog(3, "GetProcessIdByName(%s) res=%u", name, id);
    return id;
}

HMODULE LoadSystemLibrary(const char* name) {
    char path[MAX_PATH];
    const UINT length = GetSystemDirectoryA(path, sizeof(path));
    if (length == 0 || length >= sizeof(path)) {
        return nullptr;
    }
    AppendText(path, "\\");
    AppendText(path, name);
    return LoadLibraryA(path);
}

int IsSubstDrive(char letter) {
    const char drive[] = {letter, ':', '\0'};
    char target[1024];
    if (QueryDosDeviceA(drive, target, sizeof(target)) == 0) {
        return 0;
    }
    for (size_t i = 0; i < sizeof(SubstTarget) - 1; ++i) {
        if (target[i] != SubstTarget[i]) {
            return 0;
        }
    }
    return 1;
}

void NarrowDllSearch() {
    const HMODULE kernel = LoadSystemLibrary("kernel32.dll");
    const auto setDllDirectory = FindOperation<SetDllDirectoryOperation>(kernel, "SetDllDirectoryA");
    if (setDllDirectory) {
        setDllDirectory("");
    }
    const auto setDirectories = FindOperation<SetDefaultDllDirectoriesOperation>(kernel, "SetDefaultDllDirectories");
    if (setDirectories) {
        setDirectories(SearchSystemDirectoryOnly);
    }
    if (kernel) {
        FreeLibrary(kernel);
    }
}
