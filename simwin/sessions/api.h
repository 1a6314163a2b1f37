// Accounts, tokens and sessions: who runs this process, with which rights, and who is logged on.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Tokens. State: the account, groups, privileges and integrity of a session or a process. A token is a
// handle, closed with CloseHandle.
inline constexpr DWORD TOKEN_ASSIGN_PRIMARY = 0x0001;
inline constexpr DWORD TOKEN_DUPLICATE = 0x0002;
inline constexpr DWORD TOKEN_IMPERSONATE = 0x0004;
inline constexpr DWORD TOKEN_QUERY = 0x0008;
inline constexpr DWORD TOKEN_QUERY_SOURCE = 0x0010;
inline constexpr DWORD TOKEN_ADJUST_PRIVILEGES = 0x0020;
inline constexpr DWORD TOKEN_ADJUST_GROUPS = 0x0040;
inline constexpr DWORD TOKEN_ADJUST_DEFAULT = 0x0080;
inline constexpr DWORD TOKEN_ADJUST_SESSIONID = 0x0100;
inline constexpr DWORD TOKEN_ALL_ACCESS = 0x000F01FF;
enum TOKEN_INFORMATION_CLASS : int {
    TokenUser = 1,
    TokenGroups = 2,
    TokenPrivileges = 3,
    TokenType = 8,
    TokenImpersonationLevel = 9,
    TokenSessionId = 12,
    TokenElevationType = 18,
    TokenLinkedToken = 19,
    TokenElevation = 20,
    TokenIntegrityLevel = 25
};
enum SECURITY_IMPERSONATION_LEVEL : int {
    SecurityAnonymous,
    SecurityIdentification,
    SecurityImpersonation,
    SecurityDelegation
};
enum TOKEN_TYPE : int { TokenPrimary = 1, TokenImpersonation };
enum TOKEN_ELEVATION_TYPE : int { TokenElevationTypeDefault = 1, TokenElevationTypeFull, TokenElevationTypeLimited };
struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6]; // the highest byte first
};
using PSID_IDENTIFIER_AUTHORITY = SID_IDENTIFIER_AUTHORITY*;
struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};
using PSID_AND_ATTRIBUTES = SID_AND_ATTRIBUTES*;
struct LUID {
    DWORD LowPart;
    LONG HighPart;
};
using PLUID = LUID*;
struct LUID_AND_ATTRIBUTES {
    LUID Luid;
    DWORD Attributes;
};
using PLUID_AND_ATTRIBUTES = LUID_AND_ATTRIBUTES*;
struct TOKEN_USER {
    SID_AND_ATTRIBUTES User;
};
using PTOKEN_USER = TOKEN_USER*;
struct TOKEN_GROUPS {
    DWORD GroupCount;
    SID_AND_ATTRIBUTES Groups[1];
};
using PTOKEN_GROUPS = TOKEN_GROUPS*;
struct TOKEN_PRIVILEGES {
    DWORD PrivilegeCount;
    LUID_AND_ATTRIBUTES Privileges[1];
};
using PTOKEN_PRIVILEGES = TOKEN_PRIVILEGES*;
struct TOKEN_LINKED_TOKEN {
    HANDLE LinkedToken;
};
struct TOKEN_ELEVATION {
    DWORD TokenIsElevated;
};
struct TOKEN_MANDATORY_LABEL {
    SID_AND_ATTRIBUTES Label;
};
static_assert(sizeof(LUID) == 8 && sizeof(LUID_AND_ATTRIBUTES) == 12 && sizeof(TOKEN_PRIVILEGES) == 16);
static_assert(sizeof(SID_AND_ATTRIBUTES) == 16 && sizeof(TOKEN_GROUPS) == 24);
inline constexpr DWORD SE_PRIVILEGE_ENABLED_BY_DEFAULT = 1;
inline constexpr DWORD SE_PRIVILEGE_ENABLED = 2;
inline constexpr DWORD SE_PRIVILEGE_REMOVED = 4;
inline constexpr DWORD SE_GROUP_MANDATORY = 0x01;
inline constexpr DWORD SE_GROUP_ENABLED_BY_DEFAULT = 0x02;
inline constexpr DWORD SE_GROUP_ENABLED = 0x04;
inline constexpr DWORD SE_GROUP_USE_FOR_DENY_ONLY = 0x10;
inline constexpr DWORD SE_GROUP_INTEGRITY = 0x20;
inline constexpr DWORD SE_GROUP_INTEGRITY_ENABLED = 0x40;
inline constexpr DWORD DISABLE_MAX_PRIVILEGE = 1;
inline constexpr DWORD SANDBOX_INERT = 2;
inline constexpr DWORD SECURITY_BUILTIN_DOMAIN_RID = 0x20;
inline constexpr DWORD DOMAIN_ALIAS_RID_ADMINS = 0x220;
inline constexpr DWORD SECURITY_MANDATORY_MEDIUM_RID = 0x2000;
inline constexpr DWORD ERROR_NO_SUCH_LOGON_SESSION = 1312;
inline constexpr DWORD ERROR_NO_SUCH_PRIVILEGE = 1313;
inline constexpr DWORD ERROR_NOT_LOGGED_ON = 1245;
inline constexpr DWORD ERROR_NOT_ALL_ASSIGNED = 1300;
inline constexpr DWORD ERROR_NONE_MAPPED = 1332;
inline constexpr DWORD ERROR_BAD_IMPERSONATION_LEVEL = 1346;
inline constexpr DWORD ERROR_BAD_TOKEN_TYPE = 1349;

// process: a handle with the right to query, or the pseudo handle. The handle has exactly the requested rights, with
// MAXIMUM_ALLOWED those that there are. FALSE with 6, 5 (the handle's rights or the token's do not give them).
BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);
// *needed is always set. SIDs are in the same buffer, after the record. FALSE with 24 or 122 if it does not fit, 5 for
// a handle without TOKEN_QUERY, 6, 87 for a class that this Windows does not have (18 and above before 6.0) and for the
// level of a primary token, 1312 for TokenLinkedToken where there is none. The linked token is a handle to be closed;
// without SeTcb enabled it is valid for identification only.
BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size, PDWORD needed);
// Only TokenIntegrityLevel, from 6.0 on. FALSE with 5 for a handle without TOKEN_ADJUST_DEFAULT, 6, 87, 1314 for a
// level above the caller's own without SeTcb.
BOOL SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size);
// An impersonation token with TOKEN_IMPERSONATE and TOKEN_QUERY. FALSE with 5 for a handle without TOKEN_DUPLICATE, 6,
// 1346 for a level above that of an impersonation token.
BOOL DuplicateToken(HANDLE token, SECURITY_IMPERSONATION_LEVEL level, PHANDLE duplicate);
// access: as with OpenProcessToken; 0 the same as the first handle's. A primary token keeps the level of an
// impersonation token that it was made from. FALSE as above.
BOOL DuplicateTokenEx(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES security, SECURITY_IMPERSONATION_LEVEL level,
                      TOKEN_TYPE type, PHANDLE duplicate);
// The same token with the groups `disabled` for denying only and without the privileges `deleted`; what it does not
// have is skipped. FALSE with 5 for a handle without TOKEN_DUPLICATE, 6, 87. Restricting SIDs are not modelled.
BOOL CreateRestrictedToken(HANDLE token, DWORD flags, DWORD disabledCount, PSID_AND_ATTRIBUTES disabled,
                           DWORD deletedCount, PLUID_AND_ATTRIBUTES deleted, DWORD restrictedCount,
                           PSID_AND_ATTRIBUTES restricted, PHANDLE made);
// The calling thread acts for the token's user until RevertToSelf; the handle may be closed. It needs TOKEN_QUERY, and
// TOKEN_DUPLICATE of a primary token, TOKEN_IMPERSONATE of another. FALSE with 5, 6, 1346.
BOOL ImpersonateLoggedOnUser(HANDLE token);
BOOL RevertToSelf();
// Enables or disables privileges that the token has. TRUE with 1300 if it does not have all of them, else with 0. FALSE
// with 5 for a handle without TOKEN_ADJUST_PRIVILEGES, 6, 87.
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES privileges, DWORD size,
                           PTOKEN_PRIVILEGES before, PDWORD needed);
BOOL LookupPrivilegeValueA(LPCSTR system, LPCSTR name, PLUID luid); // FALSE with 1313

// --- SIDs and accounts.
// Up to eight parts; released with FreeSid. FALSE with 8, 87.
BOOL AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD part0, DWORD part1, DWORD part2,
                              DWORD part3, DWORD part4, DWORD part5, DWORD part6, DWORD part7, PSID* sid);
PVOID FreeSid(PSID sid); // null
DWORD GetLengthSid(PSID sid);
enum SID_NAME_USE : int { SidTypeUser = 1, SidTypeGroup, SidTypeDomain, SidTypeAlias, SidTypeWellKnownGroup };
using PSID_NAME_USE = SID_NAME_USE*;
// The sizes come back as characters without the final zero, or, if they are too small, with it.
// FALSE with 122, 1332 for an unknown SID, 1337, 1789 while the domain does not answer.
BOOL LookupAccountSidA(LPCSTR system, PSID sid, LPSTR name, LPDWORD nameSize, LPSTR domain, LPDWORD domainSize,
                       PSID_NAME_USE use);
inline constexpr DWORD ERROR_TRUSTED_RELATIONSHIP_FAILURE = 1789;
// Of the thread's token; size: with the final zero, in and out. FALSE with 122.
BOOL GetUserNameA(LPSTR buffer, LPDWORD size);
// size: in with, out without the final zero. FALSE with 111, size then with it.
BOOL GetComputerNameA(LPSTR buffer, LPDWORD size);
inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
using NET_API_STATUS = DWORD;
inline constexpr NET_API_STATUS NERR_Success = 0;
inline constexpr NET_API_STATUS NERR_UserNotFound = 2221;
inline constexpr DWORD LG_INCLUDE_INDIRECT = 1;
inline constexpr DWORD MAX_PREFERRED_LENGTH = 0xFFFFFFFF;
struct LOCALGROUP_USERS_INFO_0 {
    LPWSTR lgrui0_name;
};
using LPLOCALGROUP_USERS_INFO_0 = LOCALGROUP_USERS_INFO_0*;
// The local groups of a user of this machine, records of level 0; *buffer is released with NetApiBufferFree, null
// without a group. Returns: 0, 5, 2221.
NET_API_STATUS NetUserGetLocalGroups(LPCWSTR server, LPCWSTR user, DWORD level, DWORD flags, LPBYTE* buffer,
                                     DWORD preferredLength, LPDWORD read, LPDWORD total);
NET_API_STATUS NetApiBufferFree(LPVOID buffer);
// The text form, released with LocalFree. FALSE with 1337 for an invalid SID.
BOOL ConvertSidToStringSidA(PSID sid, LPSTR* text);
inline constexpr DWORD ERROR_INVALID_SID = 1337;
// Whether the thread's token has Administrators enabled; a filtered token does not.
BOOL IsUserAnAdmin();

// --- Processes by id and name. State: all processes of the machine that have not ended.
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

// --- Sessions. State: the described sessions; users log on and off from outside.
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
inline constexpr DWORD WTS_REMOTE_CONNECT = 3;
inline constexpr DWORD WTS_REMOTE_DISCONNECT = 4;
inline constexpr DWORD WTS_SESSION_LOGON = 5;
inline constexpr DWORD WTS_SESSION_LOGOFF = 6;
struct WTSSESSION_NOTIFICATION {
    DWORD cbSize;
    DWORD dwSessionId;
};
static_assert(sizeof(WTSSESSION_NOTIFICATION) == 8);
// what: the connect state, a WTS_CONNECTSTATE_CLASS of four bytes. *buffer is released with WTSFreeMemory.
// FALSE with 7022 for a missing session, 1722 while the terminal services do not answer.
BOOL WTSQuerySessionInformationA(HANDLE server, DWORD sessionId, WTS_INFO_CLASS what, LPSTR* buffer, DWORD* bytes);
void WTSFreeMemory(PVOID memory);
struct WTS_SESSION_INFOA {
    DWORD SessionId;
    LPSTR pWinStationName;
    WTS_CONNECTSTATE_CLASS State;
};
using PWTS_SESSION_INFOA = WTS_SESSION_INFOA*;
// All sessions: 0, those of users, last the listener. The names are in the same block, released with WTSFreeMemory.
// reserved: 0; version: 1. FALSE with 1722 while the terminal services do not answer.
BOOL WTSEnumerateSessionsA(HANDLE server, DWORD reserved, DWORD version, PWTS_SESSION_INFOA* sessions, DWORD* count);
// The token of the session's user, a primary one with all rights. Needs SeTcb enabled in the thread's token. FALSE with
// 1314, 1008 for a session without a user, 2 for a missing one, 7022 while the services do not answer, 1245.
BOOL WTSQueryUserToken(ULONG sessionId, PHANDLE token);
DWORD WTSGetActiveConsoleSessionId(); // 0xFFFFFFFF while no session has the console; from 5.1 on
inline constexpr DWORD ERROR_CTX_WINSTATION_NOT_FOUND = 7022;
inline constexpr DWORD RPC_S_SERVER_UNAVAILABLE = 1722;

} // namespace simwin
