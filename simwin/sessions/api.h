// Accounts, tokens and sessions: who runs this process, with which rights, and who is logged on.
#pragma once

#include "simwin/types.h"

namespace simwin {

// --- Tokens. Behind them: the account and the rights with which a process was started. A token is a handle, closed
// with CloseHandle.
inline constexpr DWORD TOKEN_QUERY = 0x0008;
enum TOKEN_INFORMATION_CLASS : int { TokenUser = 1 };
struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};
struct TOKEN_USER {
    SID_AND_ATTRIBUTES User;
};
using PTOKEN_USER = TOKEN_USER*;

// process: a handle or the pseudo handle. FALSE with 6, 5.
BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);
// Only the user; the SID lies behind the record in the same buffer. *needed is set always.
// FALSE with 122 if it does not fit, 5 for a handle without TOKEN_QUERY, 6.
BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size, PDWORD needed);
// The text form, released with LocalFree. FALSE with 1337 for what is no SID.
BOOL ConvertSidToStringSidA(PSID sid, LPSTR* text);
inline constexpr DWORD ERROR_INVALID_SID = 1337;
// Whether the process has the rights of an administrator now; a filtered token has not.
BOOL IsUserAnAdmin();

// --- Processes by id and name. Behind them: all processes of the machine that have not ended.
BOOL ProcessIdToSessionId(DWORD processId, LPDWORD sessionId); // FALSE with 87
inline constexpr DWORD TH32CS_SNAPPROCESS = 2;
struct PROCESSENTRY32 {
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    CHAR szExeFile[MAX_PATH];
};
static_assert(sizeof(PROCESSENTRY32) == 304);
using LPPROCESSENTRY32 = PROCESSENTRY32*;
// The processes as they are now, in the order of their start. INVALID_HANDLE_VALUE with 5. Closed with CloseHandle.
HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
BOOL Process32First(HANDLE snapshot, PROCESSENTRY32* entry); // FALSE with 18 at the end, 24 for a wrong dwSize, 6
BOOL Process32Next(HANDLE snapshot, PROCESSENTRY32* entry);
inline constexpr DWORD ERROR_BAD_LENGTH = 24;

// --- Sessions. Behind them: the described sessions; users log on and off from outside.
#define WTS_CURRENT_SERVER_HANDLE (static_cast<simwin::HANDLE>(nullptr))
enum WTS_CONNECTSTATE_CLASS : int {
    WTSActive,
    WTSConnected,
    WTSConnectQuery,
    WTSShadow,
    WTSDisconnected,
    WTSIdle,
    WTSListen,
    WTSReset,
    WTSDown,
    WTSInit
};
enum WTS_INFO_CLASS : int { WTSConnectState = 8 };
inline constexpr DWORD WTS_CONSOLE_CONNECT = 1;
inline constexpr DWORD WTS_CONSOLE_DISCONNECT = 2;
inline constexpr DWORD WTS_SESSION_LOGON = 5;
inline constexpr DWORD WTS_SESSION_LOGOFF = 6;
struct WTSSESSION_NOTIFICATION {
    DWORD cbSize;
    DWORD dwSessionId;
};
static_assert(sizeof(WTSSESSION_NOTIFICATION) == 8);
// what: the connect state, a WTS_CONNECTSTATE_CLASS of four bytes. *buffer is released with WTSFreeMemory.
// FALSE with 7022 for a session that is not there, 1722 while the terminal services do not answer.
BOOL WTSQuerySessionInformationA(HANDLE server, DWORD sessionId, WTS_INFO_CLASS what, LPSTR* buffer, DWORD* bytes);
void WTSFreeMemory(PVOID memory);
struct WTS_SESSION_INFOA {
    DWORD SessionId;
    LPSTR pWinStationName;
    WTS_CONNECTSTATE_CLASS State;
};
using PWTS_SESSION_INFOA = WTS_SESSION_INFOA*;
// All sessions: 0, those of users, last the listener. The names lie in the same block, released with WTSFreeMemory.
// reserved: 0; version: 1. FALSE with 1722 while the terminal services do not answer.
BOOL WTSEnumerateSessionsA(HANDLE server, DWORD reserved, DWORD version, PWTS_SESSION_INFOA* sessions, DWORD* count);
DWORD WTSGetActiveConsoleSessionId(); // 0xFFFFFFFF while no session has the console; from 5.1 on
inline constexpr DWORD ERROR_CTX_WINSTATION_NOT_FOUND = 7022;
inline constexpr DWORD RPC_S_SERVER_UNAVAILABLE = 1722;

} // namespace simwin
