// Tokens as programs use them: opened, queried, copied, restricted, impersonated.
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/api.h"
#include "simwin/registry/api.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/sessions/Sids.h"
#include "simwin/sessions/Tokens.h"
#include "simwin/shell/api.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace machine {

using namespace simwin;

constexpr DWORD QueryLimited = 0x1000;
constexpr DWORD KnownTokenRights = TOKEN_ALL_ACCESS | MAXIMUM_ALLOWED;
constexpr unsigned Vista = 0x0600;

template<typename Result>
static Result Fail(DWORD error, Result result) {
    SetError(error);
    return result;
}

// The token behind a handle that has these rights; null with the last error.
static Token* TokenWith(HANDLE handle, DWORD rights) {
    const HandleEntry* entry = CurrentProcess()->handles.Entry(handle);
    if (!entry || entry->object->kind != ObjectKind::Token) {
        return Fail(ERROR_INVALID_HANDLE, nullptr);
    }
    if ((entry->access & rights) != rights) {
        return Fail(ERROR_ACCESS_DENIED, nullptr);
    }
    return static_cast<Token*>(entry->object.Get());
}

static HANDLE OpenToken(TokenFacts facts, DWORD access) {
    return CurrentProcess()->handles.Open(new Token(std::move(facts)), access);
}

// Who may open a process's token: its user, unless its integrity is above the caller's, and the system.
static bool MayOpenTokenOf(Process& process) {
    const TokenFacts &caller = ThreadToken(), &target = TokenOf(process);
    return RightsOf(caller) == Rights::System ||
           (EqualNoCase(caller.logon.user, target.logon.user) && caller.integrity >= target.integrity);
}

template<typename Record>
static BOOL GiveRecord(const Record& record, LPVOID buffer, DWORD size, PDWORD needed) {
    *needed = sizeof(record);
    if (!buffer || size < sizeof(record)) {
        return Fail(ERROR_BAD_LENGTH, FALSE);
    }
    std::memcpy(buffer, &record, sizeof(record));
    return TRUE;
}

// SIDs with their attributes, the SIDs after the records. `head`: bytes before the records.
static BOOL GiveSids(const std::vector<TokenGroup>& groups, std::size_t head, LPVOID buffer, DWORD size,
                     PDWORD needed) {
    std::vector<std::vector<std::uint8_t>> sids;
    std::size_t bytes = head + groups.size() * sizeof(SID_AND_ATTRIBUTES);
    for (const TokenGroup& group : groups) {
        bytes += sids.emplace_back(SidBytes(group.sid)).size();
    }
    *needed = static_cast<DWORD>(bytes);
    if (!buffer || size < bytes) {
        return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    }
    auto* records = reinterpret_cast<SID_AND_ATTRIBUTES*>(static_cast<BYTE*>(buffer) + head);
    auto* at = reinterpret_cast<BYTE*>(records + groups.size());
    for (std::size_t i = 0; i < groups.size(); ++i) {
        records[i] = {at, groups[i].attributes};
        std::memcpy(at, sids[i].data(), sids[i].size());
        at += sids[i].size();
    }
    return TRUE;
}

static TokenGroup LabelOf(const TokenFacts& token) {
    return {"S-1-16-" + std::to_string(token.integrity), SE_GROUP_INTEGRITY | SE_GROUP_INTEGRITY_ENABLED};
}

static BOOL GiveGroups(const TokenFacts& token, LPVOID buffer, DWORD size, PDWORD needed) {
    std::vector<TokenGroup> groups = token.groups;
    if (token.integrity) {
        groups.push_back(LabelOf(token));
    }
    if (!GiveSids(groups, offsetof(TOKEN_GROUPS, Groups), buffer, size, needed)) {
        return FALSE;
    }
    static_cast<TOKEN_GROUPS*>(buffer)->GroupCount = static_cast<DWORD>(groups.size());
    return TRUE;
}

static BOOL GivePrivileges(const TokenFacts& token, LPVOID buffer, DWORD size, PDWORD needed) {
    const std::size_t bytes =
        offsetof(TOKEN_PRIVILEGES, Privileges) + token.privileges.size() * sizeof(LUID_AND_ATTRIBUTES);
    *needed = static_cast<DWORD>(bytes);
    if (!buffer || size < bytes) {
        return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    }
    auto* record = static_cast<TOKEN_PRIVILEGES*>(buffer);
    record->PrivilegeCount = static_cast<DWORD>(token.privileges.size());
    for (std::size_t i = 0; i < token.privileges.size(); ++i) {
        record->Privileges[i] = {{token.privileges[i].number, 0}, token.privileges[i].attributes};
    }
    return TRUE;
}

static BOOL GiveLinked(const TokenFacts& token, LPVOID buffer, DWORD size, PDWORD needed) {
    *needed = sizeof(TOKEN_LINKED_TOKEN);
    TokenFacts linked;
    if (!buffer || size < sizeof(TOKEN_LINKED_TOKEN)) {
        return Fail(ERROR_BAD_LENGTH, FALSE);
    }
    if (!LinkedToken(token, linked)) {
        return Fail(ERROR_NO_SUCH_LOGON_SESSION, FALSE);
    }
    if (!HasEnabled(ThreadToken(), "SeTcbPrivilege")) {
        linked.type = TokenImpersonation;
        linked.level = SecurityIdentification;
    }
    static_cast<TOKEN_LINKED_TOKEN*>(buffer)->LinkedToken = OpenToken(std::move(linked), TOKEN_ALL_ACCESS);
    return TRUE;
}

static BOOL GiveInformation(const TokenFacts& token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size,
                            PDWORD needed) {
    switch (what) {
    case TokenUser:
        return GiveSids({{SidOfAccount(token.logon.user), 0}}, 0, buffer, size, needed);
    case TokenGroups:
        return GiveGroups(token, buffer, size, needed);
    case TokenPrivileges:
        return GivePrivileges(token, buffer, size, needed);
    case TokenType:
        return GiveRecord(token.type, buffer, size, needed);
    case TokenImpersonationLevel:
        return token.type == TokenImpersonation ? GiveRecord(token.level, buffer, size, needed)
                                                : Fail(ERROR_INVALID_PARAMETER, FALSE);
    case TokenSessionId:
        return GiveRecord(DWORD{token.logon.session}, buffer, size, needed);
    case TokenElevationType:
        return GiveRecord(token.elevation, buffer, size, needed);
    case TokenElevation:
        return GiveRecord(DWORD{HasGroup(token, SidAdministrators)}, buffer, size, needed);
    case TokenLinkedToken:
        return GiveLinked(token, buffer, size, needed);
    case TokenIntegrityLevel:
        return GiveSids({LabelOf(token)}, 0, buffer, size, needed);
    }
    NotModelled("GetTokenInformation", "the class " + std::to_string(what));
}

// The first part of the SID of a label, 0 for another SID.
static DWORD LevelOfLabel(PSID sid) {
    const std::optional<Sid> text = SidOfBytes(sid);
    if (!text || !text->starts_with("S-1-16-") || std::count(text->begin(), text->end(), '-') != 3) {
        return 0;
    }
    return static_cast<DWORD>(std::stoul(text->substr(text->rfind('-') + 1)));
}

// Windows never raises the level of a token's copy, and starts no program with one that is valid for identification
// only.
static bool MayCopy(const Token& token, SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type) {
    if (token.type == TokenPrimary) {
        return true;
    }
    return type == TokenPrimary ? token.level >= SecurityImpersonation : level <= token.level;
}

static BOOL CopyToken(HANDLE handle, DWORD access, SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type,
                      PHANDLE duplicate) {
    const Token* token = TokenWith(handle, TOKEN_DUPLICATE);
    if (!token) {
        return FALSE;
    }
    if (!MayCopy(*token, level, type)) {
        return Fail(ERROR_BAD_IMPERSONATION_LEVEL, FALSE);
    }
    TokenFacts facts = *token;
    facts.type = type;
    facts.level = level;
    if (access == 0) {
        access = CurrentProcess()->handles.Entry(handle)->access;
    }
    *duplicate = OpenToken(std::move(facts), access & MAXIMUM_ALLOWED ? TOKEN_ALL_ACCESS : access);
    return TRUE;
}

// Marks each of these SIDs for denying only. False for an invalid SID.
static bool DisableGroups(TokenFacts& token, const SID_AND_ATTRIBUTES* sids, DWORD count) {
    for (DWORD i = 0; i < count; ++i) {
        const std::optional<Sid> sid = SidOfBytes(sids[i].Sid);
        if (!sid) {
            return false;
        }
        for (TokenGroup& group : token.groups) {
            if (group.sid == *sid) {
                group.attributes = SE_GROUP_USE_FOR_DENY_ONLY;
            }
        }
    }
    return true;
}

static void DeletePrivileges(TokenFacts& token, DWORD flags, const LUID_AND_ATTRIBUTES* deleted, DWORD count) {
    const DWORD kept = PrivilegeNumber("SeChangeNotifyPrivilege");
    std::erase_if(token.privileges, [&](const TokenPrivilege& privilege) {
        const auto isIt = [&](const LUID_AND_ATTRIBUTES& one) { return one.Luid.LowPart == privilege.number; };
        return (flags & DISABLE_MAX_PRIVILEGE && privilege.number != kept) ||
               std::any_of(deleted, deleted + count, isIt);
    });
}

// Returns: whether the token has all of them.
static bool Adjust(Token& token, const TOKEN_PRIVILEGES& wanted) {
    bool hasAll = true;
    for (DWORD i = 0; i < wanted.PrivilegeCount; ++i) {
        const LUID_AND_ATTRIBUTES& one = wanted.Privileges[i];
        const auto at = std::find_if(token.privileges.begin(), token.privileges.end(),
                                     [&](const TokenPrivilege& own) { return own.number == one.Luid.LowPart; });
        if (at == token.privileges.end() || one.Luid.HighPart != 0) {
            hasAll = false;
        } else if (one.Attributes & SE_PRIVILEGE_REMOVED) {
            token.privileges.erase(at);
        } else {
            at->attributes = (at->attributes & ~DWORD{SE_PRIVILEGE_ENABLED}) | (one.Attributes & SE_PRIVILEGE_ENABLED);
        }
    }
    return hasAll;
}

static void Impersonate(Thread& thread, Token* token) {
    thread.impersonated = Ref<Object>(token);
}

} // namespace machine

namespace simwin {

using machine::Fail;

BOOL OpenProcessToken(HANDLE handle, DWORD access, PHANDLE token) {
    SIM_CALL("OpenProcessToken", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    if (access & ~machine::KnownTokenRights) {
        machine::NotModelled("OpenProcessToken", "other rights than those of tokens");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    machine::Process* process = machine::CurrentProcess();
    if (handle != GetCurrentProcess()) {
        const machine::HandleEntry* entry = process->handles.Entry(handle);
        if (!entry || entry->object->kind != machine::ObjectKind::Process) {
            return Fail(ERROR_INVALID_HANDLE, FALSE);
        }
        if (!(entry->access & (PROCESS_QUERY_INFORMATION | machine::QueryLimited))) {
            return Fail(ERROR_ACCESS_DENIED, FALSE);
        }
        process = static_cast<machine::Process*>(entry->object.Get());
    }
    if (!machine::MayOpenTokenOf(*process)) {
        return Fail(ERROR_ACCESS_DENIED, FALSE);
    }
    *token = machine::CurrentProcess()->handles.Open(&machine::TokenOf(*process),
                                                     access & MAXIMUM_ALLOWED ? TOKEN_ALL_ACCESS : access);
    return TRUE;
}

BOOL GetTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size, PDWORD needed) {
    SIM_CALL("GetTokenInformation", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_NO_SUCH_LOGON_SESSION);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    const machine::Token* token = machine::TokenWith(handle, TOKEN_QUERY);
    if (!token) {
        return FALSE;
    }
    if (what >= TokenElevationType && machine::TheSetup().version.Packed() < machine::Vista) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    return machine::GiveInformation(*token, what, buffer, size, needed);
}

BOOL SetTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size) {
    SIM_CALL("SetTokenInformation", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_PRIVILEGE_NOT_HELD);
    if (what != TokenIntegrityLevel) {
        machine::NotModelled("SetTokenInformation", "anything but the integrity level");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    machine::Token* token = machine::TokenWith(handle, TOKEN_ADJUST_DEFAULT);
    if (!token) {
        return FALSE;
    }
    const auto* label = static_cast<const TOKEN_MANDATORY_LABEL*>(buffer);
    const DWORD level = size < sizeof(*label) ? 0 : machine::LevelOfLabel(label->Label.Sid);
    if (machine::TheSetup().version.Packed() < machine::Vista || level == 0) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    const machine::Token& caller = machine::ThreadToken();
    if (level > caller.integrity && !machine::HasEnabled(caller, "SeTcbPrivilege")) {
        return Fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
    }
    token->integrity = level;
    return TRUE;
}

BOOL DuplicateToken(HANDLE token, SECURITY_IMPERSONATION_LEVEL level, PHANDLE duplicate) {
    SIM_CALL("DuplicateToken", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_BAD_IMPERSONATION_LEVEL);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    return machine::CopyToken(token, TOKEN_IMPERSONATE | TOKEN_QUERY, level, TokenImpersonation, duplicate);
}

BOOL DuplicateTokenEx(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES security, SECURITY_IMPERSONATION_LEVEL level,
                      TOKEN_TYPE type, PHANDLE duplicate) {
    SIM_CALL("DuplicateTokenEx", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_BAD_IMPERSONATION_LEVEL);
    if (security || access & ~machine::KnownTokenRights) {
        machine::NotModelled("DuplicateTokenEx", "an access list or other rights than those of tokens");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    return machine::CopyToken(token, access, level, type, duplicate);
}

BOOL CreateRestrictedToken(HANDLE handle, DWORD flags, DWORD disabledCount, PSID_AND_ATTRIBUTES disabled,
                           DWORD deletedCount, PLUID_AND_ATTRIBUTES deleted, DWORD restrictedCount, PSID_AND_ATTRIBUTES,
                           PHANDLE made) {
    SIM_CALL("CreateRestrictedToken", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER);
    if (restrictedCount != 0 || flags & ~(DISABLE_MAX_PRIVILEGE | SANDBOX_INERT)) {
        machine::NotModelled("CreateRestrictedToken", "restricting SIDs");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    const machine::Token* token = machine::TokenWith(handle, TOKEN_DUPLICATE);
    if (!token) {
        return FALSE;
    }
    machine::TokenFacts facts = *token;
    facts.isRestricted = true;
    if (!machine::DisableGroups(facts, disabled, disabledCount)) {
        return Fail(ERROR_INVALID_SID, FALSE);
    }
    machine::DeletePrivileges(facts, flags, deleted, deletedCount);
    *made = machine::OpenToken(std::move(facts), machine::CurrentProcess()->handles.Entry(handle)->access);
    return TRUE;
}

BOOL ImpersonateLoggedOnUser(HANDLE handle) {
    SIM_CALL("ImpersonateLoggedOnUser", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_BAD_IMPERSONATION_LEVEL);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    machine::Token* token = machine::TokenWith(handle, TOKEN_QUERY);
    if (!token || !machine::TokenWith(handle, token->type == TokenPrimary ? TOKEN_DUPLICATE : TOKEN_IMPERSONATE)) {
        return FALSE;
    }
    if (token->type == TokenImpersonation && token->level < SecurityImpersonation) {
        return Fail(ERROR_BAD_IMPERSONATION_LEVEL, FALSE);
    }
    const machine::Token& own = machine::TokenOf(*machine::CurrentProcess());
    if (!machine::EqualNoCase(token->logon.user, own.logon.user) &&
        !machine::HasEnabled(own, "SeImpersonatePrivilege")) {
        machine::NotModelled("ImpersonateLoggedOnUser", "another user without SeImpersonatePrivilege");
    }
    machine::Impersonate(*machine::CurrentThread(), token);
    return TRUE;
}

BOOL RevertToSelf() {
    SIM_CALL("RevertToSelf", "");
    machine::Impersonate(*machine::CurrentThread(), nullptr);
    return TRUE;
}

BOOL AdjustTokenPrivileges(HANDLE handle, BOOL disableAll, PTOKEN_PRIVILEGES privileges, DWORD,
                           PTOKEN_PRIVILEGES before, PDWORD) {
    SIM_CALL("AdjustTokenPrivileges", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    if (disableAll || before) {
        machine::NotModelled("AdjustTokenPrivileges", "disabling all, or asking for what was before");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    machine::Token* token = machine::TokenWith(handle, TOKEN_ADJUST_PRIVILEGES);
    if (!token) {
        return FALSE;
    }
    machine::SetError(machine::Adjust(*token, *privileges) ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_NOT_ALL_ASSIGNED});
    return TRUE;
}

BOOL LookupPrivilegeValueA(LPCSTR system, LPCSTR name, PLUID luid) {
    SIM_CALL("LookupPrivilegeValueA", name, ERROR_NO_SUCH_PRIVILEGE);
    if (system && *system) {
        machine::NotModelled("LookupPrivilegeValueA", "another machine");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    const DWORD number = machine::PrivilegeNumber(name);
    if (number == 0) {
        return Fail(ERROR_NO_SUCH_PRIVILEGE, FALSE);
    }
    *luid = {number, 0};
    return TRUE;
}

BOOL IsUserAnAdmin() {
    SIM_CALL("IsUserAnAdmin", "");
    if (!machine::CurrentThread()->impersonated) {
        return machine::CurrentProcess()->administrator;
    }
    return machine::HasGroup(machine::ThreadToken(), machine::SidAdministrators);
}

BOOL WTSQueryUserToken(ULONG sessionId, PHANDLE token) {
    SIM_CALL("WTSQueryUserToken", std::to_string(sessionId), ERROR_NO_TOKEN, ERROR_PRIVILEGE_NOT_HELD,
             ERROR_FILE_NOT_FOUND, ERROR_NOT_LOGGED_ON, ERROR_ACCESS_DENIED, ERROR_CTX_WINSTATION_NOT_FOUND,
             RPC_S_SERVER_UNAVAILABLE);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    if (!machine::HasEnabled(machine::ThreadToken(), "SeTcbPrivilege")) {
        return Fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
    }
    const std::vector<machine::Session> listed = machine::ListedSessions();
    const auto session = std::find_if(listed.begin(), listed.end(),
                                      [&](const machine::Session& other) { return other.id == sessionId; });
    if (session == listed.end()) {
        return Fail(ERROR_FILE_NOT_FOUND, FALSE);
    }
    if (session->user.empty()) {
        return Fail(ERROR_NO_TOKEN, FALSE);
    }
    *token = machine::OpenToken(machine::LogonToken(machine::LogonOf(*session)), TOKEN_ALL_ACCESS);
    return TRUE;
}

static const machine::OptionalOperation Optional[] = {
    {"wtsapi32.dll", "WTSQueryUserToken", machine::AsProc(WTSQueryUserToken), 0x0501},
};

} // namespace simwin
