#include "actions/ServiceTools.h"

#include "config/CSettings.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/SystemTools.h"

constexpr DWORD Windows51 = 0x0501;

// Values of the setting RemoteSessions.
constexpr LONG ConsoleOnly = 0;
constexpr LONG ConsoleFirst = 1;
constexpr LONG LastLogonFirst = 2;

LONG LastLogonSession = NoSession;

namespace {
// Set before the threads start, then constant; null where this Windows lacks the operation.
struct SessionOperations {
    HMODULE kernel;
    HMODULE sessions;
    decltype(&WTSGetActiveConsoleSessionId) getActiveConsole;
    decltype(&WTSQueryUserToken) queryUserToken;
    decltype(&WTSQuerySessionInformationA) querySession;
    decltype(&WTSEnumerateSessionsA) enumerateSessions;
    decltype(&WTSFreeMemory) freeMemory;
};
} // namespace

static SessionOperations g_operations;

template<typename Operation>
static void Find(HMODULE library, const char* name, Operation* operation) {
    *operation = FindOperation<Operation>(library, name);
}

void InitServiceTools() {
    SessionOperations& found = g_operations;
    found.kernel = LoadSystemLibrary("kernel32.dll");
    Find(found.kernel, "WTSGetActiveConsoleSessionId", &found.getActiveConsole);
    found.sessions = LoadSystemLibrary("wtsapi32.dll");
    Find(found.sessions, "WTSQueryUserToken", &found.queryUserToken);
    Find(found.sessions, "WTSQuerySessionInformationA", &found.querySession);
    Find(found.sessions, "WTSEnumerateSessionsA", &found.enumerateSessions);
    Find(found.sessions, "WTSFreeMemory", &found.freeMemory);
}

void ExitServiceTools() {
    const SessionOperations freed = g_operations;
    g_operations = {};
    const OwnedLibrary kernel(freed.kernel);
    const OwnedLibrary sessions(freed.sessions);
}

// Returns: false with the last error.
static bool QueryConnectState(LONG session, LONG* state) {
    const SessionOperations& call = g_operations;
    if (!call.querySession || !call.freeMemory) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return false;
    }
    LPSTR buffer = nullptr;
    DWORD bytes = 0;
    if (!call.querySession(WTS_CURRENT_SERVER_HANDLE, static_cast<DWORD>(session), WTSConnectState, &buffer, &bytes)) {
        return false;
    }
    *state = bytes != 0 ? static_cast<BYTE>(buffer[0]) : static_cast<LONG>(WTSDown);
    call.freeMemory(buffer);
    return true;
}

LONG GetSessionState(LONG session) {
    LONG state = WTSDown;
    return QueryConnectState(session, &state) ? state : static_cast<LONG>(WTSDown);
}

LONG GetActiveConsoleSessionId() {
    if (!g_operations.getActiveConsole) {
        return g_os.VersionBcd < Windows51 ? 0 : NoSession;
    }
    const auto session = static_cast<LONG>(g_operations.getActiveConsole());
    WriteLog(3, "ActiveConsoleSessionId=%i", session);
    if (session < 0) {
        return session;
    }
    LONG state = WTSDown;
    if (!QueryConnectState(session, &state)) {
        WriteLog(3, " WTSQuerySessionInformation err=%s", LastErrorName());
        return NoSession;
    }
    if (state != WTSActive) {
        WriteLog(3, " not WTSActive -> ignore");
        return NoSession;
    }
    return session;
}

// The last active session of the list. Returns: false with the last error if there is no list; without an active
// session *session is unchanged.
static bool FindLastActiveSession(LONG* session) {
    const SessionOperations& call = g_operations;
    if (!call.enumerateSessions || !call.freeMemory) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return false;
    }
    PWTS_SESSION_INFOA list = nullptr;
    DWORD count = 0;
    if (!call.enumerateSessions(WTS_CURRENT_SERVER_HANDLE, /*reserved=*/0, /*version=*/1, &list, &count)) {
        return false;
    }
    for (DWORD i = 0; i < count; ++i) {
        WriteLog(3, "session(%i) state=%s", static_cast<LONG>(list[i].SessionId), SessionStateName(list[i].State));
        if (list[i].State == WTSActive) {
            *session = static_cast<LONG>(list[i].SessionId);
        }
    }
    call.freeMemory(list);
    return true;
}

static LONG FindSessionOfLastLogon() {
    LONG session = LastLogonSession;
    const LONG state = GetSessionState(session);
    WriteLog(3, "last logon session(%i) state=%u", session, static_cast<DWORD>(state));
    if (state == WTSActive) {
        return session;
    }
    if (!FindLastActiveSession(&session)) {
        WriteLog(1, " WTSEnumerateSessions err=%s", LastErrorName());
        return GetActiveConsoleSessionId();
    }
    return session;
}

LONG GetBestUserSessionId() {
    if (!g_pSettings) {
        FATAL_SOFT("ServiceTools", "GetBestUserSessionId");
        return NoSession;
    }
    LONG session = NoSession;
    switch (g_pSettings->RemoteSessions) {
    case ConsoleOnly:
        session = GetActiveConsoleSessionId();
        break;
    case ConsoleFirst:
        session = GetActiveConsoleSessionId();
        if (session == NoSession) {
            session = FindSessionOfLastLogon();
        }
        break;
    case LastLogonFirst:
        session = FindSessionOfLastLogon();
        break;
    default:
        break;
    }
    WriteLog(3, "GetBestUserSessionId() res=%i", session);
    return session;
}

BOOL QuerySessionToken(LONG session, HANDLE* token) {
    *token = nullptr;
    if (!g_operations.queryUserToken) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return FALSE;
    }
    if (!g_operations.queryUserToken(static_cast<ULONG>(session), token)) {
        *token = nullptr;
        return FALSE;
    }
    return TRUE;
}
