#include "simwin/sessions/Tokens.h"

#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"
#include "simwin/sessions/Sessions.h"

#include <algorithm>
#include <optional>

namespace machine {

using namespace simwin;

constexpr const char* SystemAccount = "NT AUTHORITY\\SYSTEM";
constexpr const char* SidLocal = "S-1-2-0";
constexpr const char* SidRemoteLogon = "S-1-5-14";
constexpr DWORD EnabledGroup = SE_GROUP_MANDATORY | SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED;
constexpr DWORD Enabled = SE_PRIVILEGE_ENABLED | SE_PRIVILEGE_ENABLED_BY_DEFAULT;
constexpr unsigned Vista = 0x0600;

// `ofSystem`, `ofUser`, `ofAdministrator`: the attributes in these tokens, Lacks where they do not have it.
constexpr DWORD Lacks = 0xFFFFFFFF;
namespace {
struct PrivilegeRow {
    DWORD number;
    const char* name;
    unsigned since; // version of Windows
    DWORD ofSystem, ofUser, ofAdministrator;
};
} // namespace
constexpr PrivilegeRow Privileges[] = {
    {3, "SeAssignPrimaryTokenPrivilege", 0x0500, 0, Lacks, Lacks},
    {4, "SeLockMemoryPrivilege", 0x0500, Enabled, Lacks, Lacks},
    {5, "SeIncreaseQuotaPrivilege", 0x0500, 0, Lacks, Lacks},
    {7, "SeTcbPrivilege", 0x0500, Enabled, Lacks, Lacks},
    {8, "SeSecurityPrivilege", 0x0500, 0, Lacks, 0},
    {9, "SeTakeOwnershipPrivilege", 0x0500, 0, Lacks, 0},
    {10, "SeLoadDriverPrivilege", 0x0500, 0, Lacks, 0},
    {11, "SeSystemProfilePrivilege", 0x0500, Enabled, Lacks, 0},
    {12, "SeSystemtimePrivilege", 0x0500, 0, Lacks, Lacks},
    {15, "SeCreatePagefilePrivilege", 0x0500, Enabled, Lacks, 0},
    {17, "SeBackupPrivilege", 0x0500, 0, Lacks, 0},
    {18, "SeRestorePrivilege", 0x0500, 0, Lacks, 0},
    {19, "SeShutdownPrivilege", 0x0500, 0, 0, 0},
    {20, "SeDebugPrivilege", 0x0500, Enabled, Lacks, 0},
    {21, "SeAuditPrivilege", 0x0500, Enabled, Lacks, Lacks},
    {22, "SeSystemEnvironmentPrivilege", 0x0500, 0, Lacks, 0},
    {23, "SeChangeNotifyPrivilege", 0x0500, Enabled, Enabled, Enabled},
    {25, "SeUndockPrivilege", 0x0500, 0, 0, 0},
    {28, "SeManageVolumePrivilege", 0x0501, 0, Lacks, 0},
    {29, "SeImpersonatePrivilege", 0x0500, Enabled, Lacks, Enabled},
    {30, "SeCreateGlobalPrivilege", 0x0500, Enabled, Lacks, Enabled},
    {33, "SeIncreaseWorkingSetPrivilege", Vista, Enabled, 0, 0},
    {34, "SeTimeZonePrivilege", Vista, Enabled, 0, 0},
};

static bool HasIntegrity() {
    return TheSetup().version.Packed() >= Vista;
}

// Two of them came with service packs.
static bool IsKnown(const PrivilegeRow& row) {
    const unsigned version = TheSetup().version.Packed();
    constexpr DWORD Impersonate = 29, CreateGlobal = 30;
    if (row.number != Impersonate && row.number != CreateGlobal) {
        return version >= row.since;
    }
    constexpr unsigned Xp = 0x0501;
    return version > Xp || TheSetup().servicePack >= (version == Xp ? 2u : 4u);
}

static void AddPrivileges(TokenFacts& token, DWORD PrivilegeRow::*attributes) {
    for (const PrivilegeRow& row : Privileges) {
        if (row.*attributes != Lacks && IsKnown(row)) {
            token.privileges.push_back({row.number, row.*attributes});
        }
    }
}

static Sid SidOfGroup(const std::string& group) {
    return group.starts_with("S-1-") ? group : SidOfAccount(group);
}

static bool IsUacOn() {
    DWORD enabled = 1;
    TheRegistry().GetDword("HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", "EnableLUA",
                           enabled);
    return HasIntegrity() && enabled != 0;
}

static TokenFacts UserToken(const Logon& logon, TOKEN_ELEVATION_TYPE elevation) {
    TokenFacts token;
    token.logon = logon;
    token.elevation = elevation;
    for (const char* sid :
         {SidEveryone, SidUsers, SidInteractive, SidAuthenticated, logon.console ? SidLocal : SidRemoteLogon}) {
        token.groups.push_back({sid, EnabledGroup});
    }
    const bool isFull = logon.administrator && elevation != TokenElevationTypeLimited;
    if (logon.administrator) {
        token.groups.push_back({SidAdministrators, isFull ? EnabledGroup : DWORD{SE_GROUP_USE_FOR_DENY_ONLY}});
    }
    for (const std::string& group : logon.groups) {
        token.groups.push_back({SidOfGroup(group), EnabledGroup});
    }
    AddPrivileges(token, isFull ? &PrivilegeRow::ofAdministrator : &PrivilegeRow::ofUser);
    if (HasIntegrity()) {
        token.integrity = isFull ? Integrity::High : Integrity::Medium;
    }
    return token;
}

// The token derived from what is known of a process that the machine started.
static TokenFacts StandIn(const Process& process) {
    if (process.rights == Rights::System) {
        return SystemToken(process.session);
    }
    Logon logon;
    if (const Session* session = FindSession(process.session); session && EqualNoCase(session->user, process.user)) {
        logon = LogonOf(*session);
    }
    logon.user = process.user;
    logon.session = process.session;
    if (!process.administrator && logon.administrator) {
        return UserToken(logon, TokenElevationTypeLimited);
    }
    const bool isTwo = logon.filtered && IsUacOn();
    logon.administrator = process.administrator;
    return UserToken(logon, isTwo && process.administrator ? TokenElevationTypeFull : TokenElevationTypeDefault);
}

static std::optional<Caller> RunningCaller() {
    const Thread* thread = CurrentThread();
    const Object* token = thread->impersonated ? thread->impersonated.Get() : thread->process->token.Get();
    if (!token) {
        return std::nullopt; // by the process's rights
    }
    return CallerOf(*static_cast<const Token*>(token));
}

namespace {
// Keeps nothing but the question: while it is there the registry's room asks here who calls.
class TokensRoom final : public Room {
public:
    TokensRoom() { SetCallerSource(RunningCaller); }
    ~TokensRoom() override { SetCallerSource({}); }
};
} // namespace

RoomPtr MakeTokens() {
    return std::make_unique<TokensRoom>();
}

const char* IntegrityName(DWORD level) {
    return level >= Integrity::System   ? "system"
           : level >= Integrity::High   ? "high"
           : level >= Integrity::Medium ? "medium"
           : level >= Integrity::Low    ? "low"
                                        : "";
}

TokenFacts SystemToken(unsigned session) {
    TokenFacts token;
    token.logon.user = SystemAccount;
    token.logon.session = session;
    token.groups = {{SidAdministrators, EnabledGroup}, {SidEveryone, EnabledGroup}, {SidAuthenticated, EnabledGroup}};
    AddPrivileges(token, &PrivilegeRow::ofSystem);
    token.integrity = HasIntegrity() ? Integrity::System : 0;
    return token;
}

TokenFacts LogonToken(const Logon& logon) {
    const bool isTwo = logon.administrator && logon.filtered && IsUacOn();
    return UserToken(logon, isTwo ? TokenElevationTypeLimited : TokenElevationTypeDefault);
}

bool LinkedToken(const TokenFacts& token, TokenFacts& linked) {
    if (token.elevation == TokenElevationTypeDefault) {
        return false;
    }
    linked = UserToken(token.logon, token.elevation == TokenElevationTypeLimited ? TokenElevationTypeFull
                                                                                 : TokenElevationTypeLimited);
    return true;
}

DWORD PrivilegeNumber(std::string_view name) {
    for (const PrivilegeRow& row : Privileges) {
        if (EqualNoCase(name, row.name) && IsKnown(row)) {
            return row.number;
        }
    }
    return 0;
}

const char* PrivilegeName(DWORD number) {
    for (const PrivilegeRow& row : Privileges) {
        if (row.number == number) {
            return row.name;
        }
    }
    return "";
}

const TokenPrivilege* FindPrivilege(const TokenFacts& token, DWORD number) {
    for (const TokenPrivilege& privilege : token.privileges) {
        if (privilege.number == number) {
            return &privilege;
        }
    }
    return nullptr;
}

bool HasEnabled(const TokenFacts& token, std::string_view name) {
    const TokenPrivilege* privilege = FindPrivilege(token, PrivilegeNumber(name));
    return privilege && privilege->attributes & SE_PRIVILEGE_ENABLED;
}

bool HasGroup(const TokenFacts& token, std::string_view sid) {
    return std::any_of(token.groups.begin(), token.groups.end(), [&](const TokenGroup& group) {
        return group.sid == sid && group.attributes & SE_GROUP_ENABLED;
    });
}

Token& TokenOf(Process& process) {
    if (!process.token) {
        process.token = Ref<Object>(new Token(StandIn(process)));
    }
    return *static_cast<Token*>(process.token.Get());
}

Token& ThreadToken() {
    Thread* thread = CurrentThread();
    return thread->impersonated ? *static_cast<Token*>(thread->impersonated.Get()) : TokenOf(*thread->process);
}

Rights RightsOf(const TokenFacts& token) {
    if (SidOfAccount(token.logon.user) == SidSystem) {
        return Rights::System;
    }
    if (token.isRestricted) {
        return Rights::Restricted;
    }
    return HasGroup(token, SidAdministrators) ? Rights::Elevated : Rights::User;
}

Caller CallerOf(const TokenFacts& token) {
    Caller caller;
    caller.user = SidOfAccount(token.logon.user);
    for (const TokenGroup& group : token.groups) {
        if (group.attributes & SE_GROUP_ENABLED) {
            caller.groups.push_back(group.sid);
        } else if (group.attributes & SE_GROUP_USE_FOR_DENY_ONLY) {
            caller.denyOnly.push_back(group.sid);
        }
    }
    return caller;
}

void StartWith(ProcessStart& start, Token& token) {
    start.token = &token;
    start.user = token.logon.user;
    start.session = token.logon.session;
    start.rights = RightsOf(token);
    start.administrator = HasGroup(token, SidAdministrators);
}

} // namespace machine
