// Operations that are declared and still to come: each stops the run by name.
#include "simwin/sessions/api.h"
#include "simwin/shell/api.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"

namespace simwin {

BOOL SetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD) {
    SIM_CALL("SetTokenInformation", "");
    machine::NotModelled("SetTokenInformation", "this operation");
}

BOOL DuplicateToken(HANDLE, SECURITY_IMPERSONATION_LEVEL, PHANDLE) {
    SIM_CALL("DuplicateToken", "");
    machine::NotModelled("DuplicateToken", "this operation");
}

BOOL DuplicateTokenEx(HANDLE, DWORD, LPSECURITY_ATTRIBUTES, SECURITY_IMPERSONATION_LEVEL, TOKEN_TYPE, PHANDLE) {
    SIM_CALL("DuplicateTokenEx", "");
    machine::NotModelled("DuplicateTokenEx", "this operation");
}

BOOL CreateRestrictedToken(HANDLE, DWORD, DWORD, PSID_AND_ATTRIBUTES, DWORD, PLUID_AND_ATTRIBUTES, DWORD,
                           PSID_AND_ATTRIBUTES, PHANDLE) {
    SIM_CALL("CreateRestrictedToken", "");
    machine::NotModelled("CreateRestrictedToken", "this operation");
}

BOOL ImpersonateLoggedOnUser(HANDLE) {
    SIM_CALL("ImpersonateLoggedOnUser", "");
    machine::NotModelled("ImpersonateLoggedOnUser", "this operation");
}

BOOL RevertToSelf() {
    SIM_CALL("RevertToSelf", "");
    machine::NotModelled("RevertToSelf", "this operation");
}

BOOL AdjustTokenPrivileges(HANDLE, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD) {
    SIM_CALL("AdjustTokenPrivileges", "");
    machine::NotModelled("AdjustTokenPrivileges", "this operation");
}

BOOL LookupPrivilegeValueA(LPCSTR, LPCSTR, PLUID) {
    SIM_CALL("LookupPrivilegeValueA", "");
    machine::NotModelled("LookupPrivilegeValueA", "this operation");
}

BOOL AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY, BYTE, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                              PSID*) {
    SIM_CALL("AllocateAndInitializeSid", "");
    machine::NotModelled("AllocateAndInitializeSid", "this operation");
}

PVOID FreeSid(PSID) {
    SIM_CALL("FreeSid", "");
    machine::NotModelled("FreeSid", "this operation");
}

DWORD GetLengthSid(PSID) {
    SIM_CALL("GetLengthSid", "");
    machine::NotModelled("GetLengthSid", "this operation");
}

BOOL LookupAccountSidA(LPCSTR, PSID, LPSTR, LPDWORD, LPSTR, LPDWORD, PSID_NAME_USE) {
    SIM_CALL("LookupAccountSidA", "");
    machine::NotModelled("LookupAccountSidA", "this operation");
}

BOOL GetUserNameA(LPSTR, LPDWORD) {
    SIM_CALL("GetUserNameA", "");
    machine::NotModelled("GetUserNameA", "this operation");
}

BOOL GetComputerNameA(LPSTR, LPDWORD) {
    SIM_CALL("GetComputerNameA", "");
    machine::NotModelled("GetComputerNameA", "this operation");
}

NET_API_STATUS NetUserGetLocalGroups(LPCWSTR, LPCWSTR, DWORD, DWORD, LPBYTE*, DWORD, LPDWORD, LPDWORD) {
    SIM_CALL("NetUserGetLocalGroups", "");
    machine::NotModelled("NetUserGetLocalGroups", "this operation");
}

NET_API_STATUS NetApiBufferFree(LPVOID) {
    SIM_CALL("NetApiBufferFree", "");
    machine::NotModelled("NetApiBufferFree", "this operation");
}

BOOL WTSQueryUserToken(ULONG, PHANDLE) {
    SIM_CALL("WTSQueryUserToken", "");
    machine::NotModelled("WTSQueryUserToken", "this operation");
}

BOOL CreateProcessA(LPCSTR, LPSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCSTR,
                    LPSTARTUPINFOA, LPPROCESS_INFORMATION) {
    SIM_CALL("CreateProcessA", "");
    machine::NotModelled("CreateProcessA", "this operation");
}

BOOL CreateProcessAsUserA(HANDLE, LPCSTR, LPSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                          LPCSTR, LPSTARTUPINFOA, LPPROCESS_INFORMATION) {
    SIM_CALL("CreateProcessAsUserA", "");
    machine::NotModelled("CreateProcessAsUserA", "this operation");
}

HANDLE OpenProcess(DWORD, BOOL, DWORD) {
    SIM_CALL("OpenProcess", "");
    machine::NotModelled("OpenProcess", "this operation");
}

static const machine::OptionalOperation Optional[] = {
    {"wtsapi32.dll", "WTSQueryUserToken", machine::AsProc(WTSQueryUserToken), 0x0501},
    {"netapi32.dll", "NetUserGetLocalGroups", machine::AsProc(NetUserGetLocalGroups), 0x0500},
    {"netapi32.dll", "NetApiBufferFree", machine::AsProc(NetApiBufferFree), 0x0500},
};

} // namespace simwin
