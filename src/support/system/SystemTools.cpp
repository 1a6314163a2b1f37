#include "support/system/SystemTools.h"

#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/texts/BoundedText.h"

constexpr DWORD SearchSystemDirectoryOnly = 0x800;
constexpr char SubstTarget[] = "\\??\\";

using SetDllDirectoryOperation = BOOL(WINAPI*)(LPCSTR);
using SetDefaultDllDirectoriesOperation = BOOL(WINAPI*)(DWORD);

static DWORD FindProcess(const char* name) {
    const OwnedFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        return 0;
    }
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        if (lstrcmpiA(entry.szExeFile, name) == 0) {
            return entry.th32ProcessID;
        }
    }
    return 0;
}

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
    const SystemLibrary kernel("kernel32.dll");
    const auto setDllDirectory = kernel.Find<SetDllDirectoryOperation>("SetDllDirectoryA");
    if (setDllDirectory) {
        setDllDirectory("");
    }
    const auto setDirectories = kernel.Find<SetDefaultDllDirectoriesOperation>("SetDefaultDllDirectories");
    if (setDirectories) {
        setDirectories(SearchSystemDirectoryOnly);
    }
}
