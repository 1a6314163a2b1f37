#include "host/PermissionCheck.h"

#include "actions/CommandSplit.h"
#include "config/CCfgReader.h"
#include "config/KeyIndex.h"
#include "support/log/LogFile.h"
#include "support/registry/AccessList.h"
#include "support/system/Handles.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

constexpr SECURITY_INFORMATION OwnerAndList = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
constexpr DWORD MaxDescriptor = 0x10000; // the largest list that Windows knows
constexpr DWORD MaxSeen = 64;
constexpr DWORD EntriesOfSection = 10;
constexpr size_t DriveRootLength = 3;

// The rights that allow replacing a thing by something else. Deletion, list and owner count everywhere.
constexpr DWORD ReplaceRights = DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;
constexpr DWORD FileRights = ReplaceRights | GENERIC_WRITE | 0x2 | 0x4;    // write, append
constexpr DWORD FolderRights = ReplaceRights | GENERIC_WRITE | 0x2 | 0x40; // add a file, delete an entry
constexpr DWORD UpperFolderRights = ReplaceRights | 0x40;                  // rename what leads to the file
constexpr DWORD KeyRights = ReplaceRights | GENERIC_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;

namespace {
// The paths already checked in this pass, so that a folder shared by several things is named once.
struct Pass {
    char seen[MaxSeen][MAX_PATH];
    DWORD count;
    BYTE descriptor[MaxDescriptor];
};
} // namespace

static bool IsSeen(Pass& pass, const char* path) {
    for (DWORD i = 0; i < pass.count; ++i) {
        if (IsSameNoCase(pass.seen[i], path)) {
            return true;
        }
    }
    if (pass.count < MaxSeen) {
        CopyText(pass.seen[pass.count++], path);
    }
    return false;
}

static void LogIfChangeable(const Pass& pass, DWORD size, DWORD rights, const char* kind, const char* name) {
    char who[SidTextSize];
    if (WhoMayChange(pass.descriptor, size, rights, who)) {
        WriteLog(1, "WARNING: %s may change the %s %s, and so what runs as the system", who, kind, name);
    }
}

static void LookAt(Pass& pass, const char* path, DWORD rights, const char* kind) {
    DWORD size = 0;
    if (!IsSeen(pass, path) && GetFileSecurityA(path, OwnerAndList, pass.descriptor, sizeof(pass.descriptor), &size)) {
        LogIfChangeable(pass, size, rights, kind, path);
    }
}

static bool IsOnLocalDrive(const char* path) {
    if (path[0] == '\0' || path[1] != ':' || path[2] != '\\') {
        return false;
    }
    const char root[] = {path[0], ':', '\\', '\0'};
    return GetDriveTypeA(root) != DRIVE_REMOTE;
}

// The folder, in which users must not create or replace a file, and those above it, which they must not replace.
static void LookAtFolders(Pass& pass, const char* folder) {
    if (!IsOnLocalDrive(folder)) {
        return;
    }
    char path[MAX_PATH];
    CopyText(path, folder);
    LookAt(pass, path, FolderRights, "folder");
    for (size_t end = TextLength(path); end > DriveRootLength; --end) {
        if (path[end] == '\\') {
            path[end] = '\0';
            LookAt(pass, path, UpperFolderRights, "folder");
        }
    }
    path[DriveRootLength] = '\0';
    LookAt(pass, path, UpperFolderRights, "folder");
}

// The folder of a file on a drive, with its backslash if it is the root.
static bool FolderOf(const char* file, char (&folder)[MAX_PATH]) {
    if (!IsOnLocalDrive(file) || !GetDirectoryOfPath(file, folder)) {
        return false;
    }
    if (TextLength(folder) < DriveRootLength) {
        AppendText(folder, "\\");
    }
    return true;
}

static void LookAtFile(Pass& pass, const char* file, const char* kind) {
    char folder[MAX_PATH];
    if (FolderOf(file, folder)) {
        LookAt(pass, file, FileRights, kind);
        LookAtFolders(pass, folder);
    }
}

static void LookAtKey(Pass& pass) {
    OwnedKey key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, ConfigurationKey, 0, READ_CONTROL, key.Receive()) != ERROR_SUCCESS) {
        return;
    }
    DWORD size = sizeof(pass.descriptor);
    if (RegGetKeySecurity(key.Get(), OwnerAndList, pass.descriptor, &size) == ERROR_SUCCESS) {
        LogIfChangeable(pass, size, KeyRights, "key", ConfigurationKey);
    }
}

// One entry of a section, if it runs with more rights than its user's.
static void LookAtEntry(Pass& pass, CfgSectionType type, LONG number, DWORD index) {
    const UserType user = g_pCfgReader->GetUserTypeFromCfg(type, number, index);
    if (user != UserType::system && user != UserType::elev) {
        return;
    }
    char line[520];
    char directory[MAX_PATH];
    if (g_pCfgReader->GetString(type, number, IndexedKey("open_", index), "", line, sizeof(line)) == 0) {
        return;
    }
    g_pCfgReader->GetString(type, number, IndexedKey("workdir_", index), szWindowsDir, directory, sizeof(directory));
    char program[MAX_PATH];
    OwnedArray<char> params(MaxProgramParams);
    if (SplitCommandLine(line, directory, program, *reinterpret_cast<char(*)[MaxProgramParams]>(params.Get()))) {
        (void)UnquoteText(program);
        LookAtFile(pass, program, "program");
    }
    LookAtFolders(pass, directory);
}

static void LookAtEntries(Pass& pass) {
    for (const CfgSectionType type : {OnArrival, OnRemoval}) {
        for (LONG number = 1; number <= MaxSectionNumber; ++number) {
            if (!g_pCfgReader->HasSection(type, number)) {
                continue;
            }
            for (DWORD index = 1; index <= EntriesOfSection; ++index) {
                LookAtEntry(pass, type, number, index);
            }
        }
    }
}

void LogWhatUsersMayChange() {
    const Owned<Pass> pass(new Pass);
    pass->count = 0;
    LookAtFile(*pass, szExePath, "program");
    LookAtFile(*pass, szIniFile, "configuration");
    char logFolder[MAX_PATH];
    if (g_log.WriteLogfile && FolderOf(g_log.LogFileName, logFolder)) {
        LookAt(*pass, logFolder, FolderRights, "folder");
    }
    LookAtKey(*pass);
    LookAtEntries(*pass);
}
