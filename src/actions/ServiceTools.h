// The sessions of this machine: which user's desktop the programs and balloons of the service go to.
// Loaded by WinMain before the first other thread, freed at the end of a run when no timer is left; the questions in
// between may be asked by any thread. No lock.
#pragma once

#include "platform/win32.h"

constexpr LONG NoSession = -2; // there is no usable session

// The session that had the desktop when this process started; NoSession until WinMain has asked. It never changes
// afterwards.
extern LONG LastLogonSession;

// Looks the operations of the terminal services up. Old versions of Windows lack some; what they answer is then
// wanting.
void InitServiceTools();
void ExitServiceTools();

// The session at the console if its user is active. Returns: its id; NoSession; what Windows gives below 0 (-1: nobody
// has the console); 0 on a Windows without sessions.
LONG GetActiveConsoleSessionId();

// Returns: the connect state of the session, a WTS_CONNECTSTATE_CLASS; WTSDown if Windows does not tell.
LONG GetSessionState(LONG session);

// The session for programs and balloons, as the setting RemoteSessions wants it. Needs the settings.
// Returns: its id or NoSession; below 0 also what GetActiveConsoleSessionId gives.
LONG GetBestUserSessionId();

// The token of the user in the session. Needs the system's rights. *token: the caller's to close.
// Returns: FALSE with *token null and the last error, that of the look-up if this Windows has no such operation.
BOOL QuerySessionToken(LONG session, HANDLE* token);
