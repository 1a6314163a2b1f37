#include "actions/UserTokens.h"

#include "actions/ServiceTools.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ServiceRun.h"
#include "support/system/SystemTools.h"

constexpr DWORD Windows51 = 0x0501;
constexpr char ShellImage[] = "explorer.exe";
constexpr int RevertTries = 3;

// Privileges that a restricted token must not have. Each of them is as good as being an administrator.
constexpr const char* DeletedPrivileges[] = {
    "SeLoadDriverPrivilege",   "SeTakeOwnershipPrivilege", "SeSecurityPrivilege",          "SeBackupPrivilege",
    "SeImpersonatePrivilege",  "SeDebugPrivilege",         "SeCreateGlobalPrivilege",      "SeCreatePagefilePrivilege",
    "SeManageVolumePrivilege", "SeRestorePrivilege",       "SeSystemEnvironmentPrivilege", "SeSystemProfilePrivilege",
};
constexpr DWORD DeletedPrivilegeCount = sizeof(DeletedPrivileges) / sizeof(DeletedPrivileges[0]);
static_assert(DeletedPrivilegeCount == 12);

constexpr const char* ServicePrivileges[] = {
    "SeIncreaseQuotaPrivilege",
    "SeAssignPrimaryTokenPrivilege",
    "SeTcbPrivilege",
};

// Well-known identifiers.
constexpr DWORD BuiltinDomain = 32;
constexpr DWORD AdministratorsAlias = 544;
constexpr DWORD MediumIntegrity = 0x2000;
constexpr BYTE NtAuthority = 5;
constexpr BYTE LabelAuthority = 16;

namespace {
// A SID from Windows, released at the end of the scope. Null if it could not be made.
class OwnedSid {
public:
    OwnedSid(BYTE authority, BYTE count, DWORD first, DWORD second) {
        SID_IDENTIFIER_AUTHORITY identifier = {{0, 0, 0, 0, 0, authority}};
        if (!AllocateAndInitializeSid(&identifier, count, first, second, 0, 0, 0, 0, 0, 0, &m_sid)) {
            m_sid = nullptr;
        }
    }
    ~OwnedSid() {
        if (m_sid) {
            const LastErrorKeeper keep;
            FreeSid(m_sid);
        }
    }
    OwnedSid(const OwnedSid&) = delete;
    OwnedSid& operator=(const OwnedSid&) = delete;
    PSID Get() const { return m_sid; }

private:
    PSID m_sid = nullptr;
};
} // namespace

// The shell's process in that session. The first one of the machine may be another user's.
static DWORD FindShellOfSession(LONG session) {
    if (session < 0) {
        return 0;
    }
    const OwnedFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot.IsOpen()) {
        return 0;
    }
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        DWORD itsSession = 0;
        if (lstrcmpiA(entry.szExeFile, ShellImage) == 0 && ProcessIdToSessionId(entry.th32ProcessID, &itsSession) &&
            itsSession == static_cast<DWORD>(session)) {
            return entry.th32ProcessID;
        }
    }
    return 0;
}

static DWORD FindShellInSight() {
    DWORD processId = 0;
    const HWND taskBar = FindWindowA("Shell_TrayWnd", nullptr);
    if (taskBar) {
        (void)GetWindowThreadProcessId(taskBar, &processId);
    }
    return processId;
}

HANDLE GetExplorersUserToken(LONG session) {
    DWORD processId = FindShellOfSession(session);
    if (processId == 0) {
        processId = FindShellInSight();
    }
    if (processId == 0) {
        processId = GetProcessIdByName(ShellImage);
    }
    if (processId == 0) {
        WriteLog(2, " GetProcessIdByName('%s') failed", ShellImage);
        return nullptr;
    }
    HANDLE token = nullptr;
    const OwnedProcess process(OpenProcess(PROCESS_ALL_ACCESS, /*inherit=*/FALSE, processId));
    // The last right is needed for the restricted form, whose handle inherits the rights of this one.
    if (!process.IsOpen() ||
        !OpenProcessToken(process.Get(), TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ADJUST_DEFAULT, &token)) {
        token = nullptr;
    }
    WriteLog(3, "GetExplorersUserToken hToken=0x%p", token);
    return token;
}

HANDLE GetSessionUserToken(LONG session) {
    DWORD error = GetLastError();
    if (IsServiceProcess() && g_os.VersionBcd >= Windows51) {
        HANDLE token = nullptr;
        if (session != NoSession && !QuerySessionToken(session, &token)) {
            error = GetLastError();
            WriteLog(2, "WTSQueryUserToken(%i) failed  err=%s", session, LastErrorName());
        }
        if (token) {
            return token;
        }
        if (error == ERROR_NOT_LOGGED_ON || error == ERROR_NO_TOKEN) {
            return INVALID_HANDLE_VALUE;
        }
    }
    WriteLog(2, "err=%u -> calling GetExplorersUserToken() ", error);
    return GetExplorersUserToken(session);
}

HANDLE GetCurrentUserToken() {
    const LONG session = GetBestUserSessionId();
    if (session != NoSession) {
        const HANDLE token = GetSessionUserToken(session);
        if (token != INVALID_HANDLE_VALUE) {
            return token;
        }
    }
    WriteLog(2, "no token, try Explorer's token");
    return GetExplorersUserToken(NoSession);
}

BOOL GetLinkedToken(HANDLE token, HANDLE* linked) {
    TOKEN_LINKED_TOKEN answer = {};
    DWORD size = 0;
    const BOOL isThere = GetTokenInformation(token, TokenLinkedToken, &answer, sizeof(answer), &size);
    *linked = isThere ? answer.LinkedToken : nullptr;
    return isThere && answer.LinkedToken;
}

// Returns: whether the token's integrity level is medium now.
static bool SetMediumIntegrity(HANDLE token) {
    const OwnedSid level(LabelAuthority, /*count=*/1, MediumIntegrity, /*second=*/0);
    if (!level.Get()) {
        return false;
    }
    TOKEN_MANDATORY_LABEL label = {};
    label.Label.Sid = level.Get();
    label.Label.Attributes = SE_GROUP_INTEGRITY;
    return SetTokenInformation(token, TokenIntegrityLevel, &label,
                               static_cast<DWORD>(sizeof(label)) + GetLengthSid(level.Get())) != FALSE;
}

HANDLE MakeRestrictedToken(HANDLE token) {
    const OwnedSid administrators(NtAuthority, /*count=*/2, BuiltinDomain, AdministratorsAlias);
    if (!administrators.Get()) {
        return nullptr;
    }
    LUID_AND_ATTRIBUTES privileges[DeletedPrivilegeCount] = {};
    DWORD privilegeCount = 0;
    for (const char* name : DeletedPrivileges) { // a privilege unknown to this Windows is in no token
        if (LookupPrivilegeValueA(nullptr, name, &privileges[privilegeCount].Luid)) {
            ++privilegeCount;
        }
    }
    SID_AND_ATTRIBUTES disabled = {};
    disabled.Sid = administrators.Get();
    OwnedToken restricted;
    if (!CreateRestrictedToken(token, SANDBOX_INERT, /*disableCount=*/1, &disabled, privilegeCount, privileges,
                               /*restrictCount=*/0, nullptr, restricted.Receive())) {
        return nullptr;
    }
    if (g_os.MajorVersion >= 6 && !SetMediumIntegrity(restricted.Get())) {
        return nullptr;
    }
    return restricted.Release();
}

// A thread that keeps impersonating the user would do the service's work with that user's rights.
static int EndImpersonation() {
    for (int tries = 0; tries < RevertTries; ++tries) {
        if (RevertToSelf()) {
            return 1;
        }
    }
    WriteLog(1, "RevertToSelf err=%s", LastErrorName());
    return 1;
}

static void LogImpersonatedUser() {
    if (!LogFile_Wants(3)) {
        return;
    }
    char name[MaxNameChars + 1] = {};
    DWORD nameChars = sizeof(name);
    if (!GetUserNameA(name, &nameChars)) {
        name[0] = '\0';
    }
    WriteLog(3, "ImpCU UserName=%s", name);
}

int ImpersonateCurrentUser(bool isOn, bool isElevated) {
    if (!isOn) {
        return EndImpersonation();
    }
    OwnedToken token(GetCurrentUserToken());
    if (!token.IsOpen()) {
        return 0;
    }
    if (isElevated && g_os.MajorVersion >= 6) {
        HANDLE linked = nullptr;
        const BOOL result = GetLinkedToken(token.Get(), &linked);
        WriteLog(2, " ElevatedToken=0x%p err=%i res=0x%p", linked, static_cast<LONG>(GetLastError()),
                 reinterpret_cast<void*>(static_cast<ULONG_PTR>(result)));
        if (result) {
            token.Reset(linked);
        }
    }
    OwnedToken duplicate;
    if (!DuplicateToken(token.Get(), SecurityImpersonation, duplicate.Receive())) {
        WriteLog(2, "ImpCU DuplicateToken failed");
        return 0;
    }
    if (!ImpersonateLoggedOnUser(duplicate.Get())) {
        WriteLog(2, "ImpCU ImpersonateLoggedOnUser failed");
        return 0;
    }
    LogImpersonatedUser();
    return 1;
}

int IsProcessElevated(DWORD processId) {
    const OwnedProcess process(OpenProcess(PROCESS_QUERY_INFORMATION, /*inherit=*/FALSE, processId));
    OwnedToken token;
    if (!process.IsOpen() || !OpenProcessToken(process.Get(), TOKEN_QUERY, token.Receive())) {
        return 0;
    }
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    DWORD size = 0;
    return GetTokenInformation(token.Get(), TokenElevationType, &type, sizeof(type), &size) &&
           type == TokenElevationTypeFull;
}

int SetPrivilege(HANDLE token, const char* name, bool isEnabled) {
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = isEnabled ? SE_PRIVILEGE_ENABLED : 0;
    if (!LookupPrivilegeValueA(nullptr, name, &privileges.Privileges[0].Luid)) {
        return 0;
    }
    SetLastError(ERROR_SUCCESS);
    if (!AdjustTokenPrivileges(token, /*disableAll=*/FALSE, &privileges, sizeof(privileges), nullptr, nullptr)) {
        WriteLog(3, "AdjustTokenPrivileges(%s) err=%s", name, LastErrorName());
        return 0;
    }
    // Windows does not treat a privilege missing from the token as a failure; only the last error shows it.
    return GetLastError() == ERROR_SUCCESS ? 1 : 0;
}

void EnableServicePrivileges() {
    OwnedToken token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.Receive())) {
        return;
    }
    for (const char* name : ServicePrivileges) {
        SetPrivilege(token.Get(), name, /*isEnabled=*/true);
    }
}
