#include "support/log/LogFileRotation.h"

#include "platform/win32.h"
#include "support/log/LogFileOpening.h"
#include "support/system/Handles.h"
#include "support/system/ThreadTools.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

constexpr DWORD LastBackupSuffix = 99;
constexpr DWORD RotationWaitMs = 1000;

// The thread may outlive the wait for it, and so must the data it reads.
static char g_name[260];
static char g_backup[260];
static LONG g_isGivenUp; // set by the waiting side, read by the thread
static LONG g_isBusy;    // cleared by the thread as its last step

static bool IsSet(const LONG& flag) {
    return __atomic_load_n(&flag, __ATOMIC_ACQUIRE) != 0;
}

static void Set(LONG& flag, LONG value) {
    __atomic_store_n(&flag, value, __ATOMIC_RELEASE);
}

// Queried without opening the file in a way that an oplock could block.
static bool IsThere(const char* name) {
    return GetFileAttributesA(name) != INVALID_FILE_ATTRIBUTES;
}

// A backup in use can often still be renamed, and is then deleted under its new name.
static void RenameAndDeleteBackup() {
    for (DWORD n = 1; n <= LastBackupSuffix && !IsSet(g_isGivenUp); ++n) {
        char renamed[sizeof(g_backup) + 4];
        FormatText(renamed, "%s_%u", g_backup, n);
        if (MoveFileA(g_backup, renamed)) {
            (void)DeleteFileA(renamed); // what cannot be deleted now stays under a name that is not in the way
            return;
        }
    }
}

static void LogFile_Backup() {
    if (!DeleteFileA(g_backup)) {
        RenameAndDeleteBackup();
    }
    if (!IsSet(g_isGivenUp)) {
        (void)MoveFileA(g_name, g_backup); // a log that cannot be renamed is appended to
    }
}

static DWORD WINAPI LogFile_Backup_ThreadProc(LPVOID) {
    LogFile_Backup();
    Set(g_isBusy, 0);
    return 0;
}

bool RotateLogFile(const char* name) {
    if (IsSet(g_isBusy)) {
        return false; // the previous one still hangs, and its texts must not change
    }
    CopyText(g_name, name);
    CopyText(g_backup, name);
    // A name without a backup name: the log is appended to, so that no record is lost and no other file is touched.
    if (ReplaceInArray(g_backup, ".log", "_bak.log") <= 0 || (!IsThere(g_name) && !IsThere(g_backup))) {
        return true;
    }
    // Below a folder that is a link both names may be any two files of the machine. Of a link that is a file only the
    // link itself would go.
    char folder[MAX_PATH];
    GetDirectoryOfPath(g_name, folder);
    if (LeadsThroughALink(folder)) {
        return false;
    }
    Set(g_isGivenUp, 0);
    Set(g_isBusy, 1);
    const OwnedThread thread(StartThread(LogFile_Backup_ThreadProc, nullptr));
    if (!thread) {
        Set(g_isBusy, 0);
        return false;
    }
    const bool hasEnded = WaitForSingleObject(thread.Get(), RotationWaitMs) == WAIT_OBJECT_0;
    Set(g_isGivenUp, 1);
    return hasEnded;
}
