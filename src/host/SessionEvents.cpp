#include "host/SessionEvents.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ScopeGuard.h"
#include "support/system/SystemTools.h"
#include "support/system/ThreadTools.h"

// Lets the dispatcher's thread write its own log lines first.
constexpr DWORD FirstDelayMs = 10;
constexpr int QueryTries = 20;
constexpr DWORD RetryDelayMs = 500;
// A session that cannot be queried at once is still being created: its state settles a little later.
constexpr DWORD SettleDelayMs = 1000;

// Queries the connect state of the session until that succeeds. Returns: 0 after the last failure.
static DWORD QuerySessionState(DWORD sessionId, LONG* state) {
    const SystemLibrary sessions("wtsapi32.dll");
    const auto query = sessions.Find<decltype(&WTSQuerySessionInformationA)>("WTSQuerySessionInformationA");
    const auto release = sessions.Find<decltype(&WTSFreeMemory)>("WTSFreeMemory");
    for (int tries = 1; tries <= QueryTries; ++tries) {
        WriteLog(3, "WTSQuerySessionInformation(%u, %s)...", sessionId, "WTSConnectState");
        LPSTR buffer = nullptr;
        DWORD bytes = 0;
        if (query && release && query(WTS_CURRENT_SERVER_HANDLE, sessionId, WTSConnectState, &buffer, &bytes)) {
            *state = static_cast<BYTE>(buffer[0]);
            WriteLog(3, " state=%s", SessionStateName(*state));
            release(buffer);
            if (tries > 1) {
                Sleep(SettleDelayMs);
            }
            return 1;
        }
        WriteLog(3, " err=%s", LastErrorName());
        if (tries < QueryTries) {
            WriteLog(3, " retry in 500ms");
            Sleep(RetryDelayMs);
        }
    }
    return 0;
}

void SessionChangeMsg_Async(DWORD EventType, LPVOID lpEventData) {
    SessionChangeRecord* record = new SessionChangeRecord;
    record->EventType = EventType;
    record->Notification = {};
    if (lpEventData != nullptr) {
        record->Notification = *static_cast<const WTSSESSION_NOTIFICATION*>(lpEventData);
    }
    WriteLog(3, "SessionChangeMsg_Async(%s, %i)...", SessionChangeName(EventType),
             static_cast<LONG>(record->Notification.dwSessionId));
    if (!StartThreadLogged("SessionChangeMsg_ThreadProc", SessionChangeMsg_ThreadProc, record)) {
        delete record;
    }
}

void SessionChangeMsg(DWORD EventType, const WTSSESSION_NOTIFICATION* pNotification) {
    Sleep(FirstDelayMs);
    WriteLog(3, "SessionChangeMsg(WTS_%s, %i)...", SessionChangeName(EventType),
             static_cast<LONG>(pNotification->dwSessionId));
    if (EventType != WTS_SESSION_LOGON) {
        return;
    }
    LONG state = 0;
    if (!QuerySessionState(pNotification->dwSessionId, &state) || state >= WTSDisconnected) {
        WriteLog(3, " -> abort");
    }
}

DWORD WINAPI SessionChangeMsg_ThreadProc(LPVOID record) {
    const Owned<SessionChangeRecord> owned(static_cast<SessionChangeRecord*>(record));
    SessionChangeMsg(owned->EventType, &owned->Notification);
    return 1;
}
