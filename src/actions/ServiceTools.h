// The sessions of this machine: which user's desktop the programs and balloons of the service go to.
// Loaded by WinMain before the first other thread, freed at the end of a run when no timer is left; the queries in
// between may be made by any thread. No lock.
#pragma once

#include "platform/win32.h"

constexpr LONG NoSession = -2; // no usable session

// The session that had the desktop when this process started; NoSession until WinMain has queried it. Constant after
// that.
extern LONG LastLogonSession;

// Looks the operations of the terminal services up. Old versions of Windows lack some; the queries then give limited
// answers.
void InitServiceTools();
void ExitServiceTools();

// The session at the console if its user is active. Returns: its id; NoSession; a value of Windows below 0 (-1: no
// session has the console); 0 on a Windows without sessions.
LONG GetActiveConsoleSessionId();

// Returns: the connect state of the session, a WTS_CONNECTSTATE_CLASS; WTSDown if Windows gives none.
LONG GetSessionState(LONG session);

// The session for programs and balloons, as the setting RemoteSessions demands. Needs the settings.
// Returns: its id or NoSession; values below 0 as from GetActiveConsoleSessionId.
LONG GetBestUserSessionId();

// The token of the user in the session. Needs the system's rights. *token: closed by the caller.
// Returns: FALSE with *token null and the last error, that of the look-up if this Windows lacks the operation.
BOOL QuerySessionToken(LONG session, HANDLE* token);
