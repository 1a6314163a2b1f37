// Tokens: who a process is, or a thread that impersonates: account, groups, privileges, integrity. A process that the
// machine started gets its token at the first use, from its rights and its user. Called on the machine's
// side; none of this blocks.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"
#include "simwin/registry/Security.h"
#include "simwin/sessions/api.h"

#include <string>
#include <string_view>
#include <vector>

namespace machine {

// What the tokens of one logon are made from.
struct Logon {
    std::string user; // 'LAB\anna'
    unsigned session = 0;
    bool console = true;
    bool administrator = false;
    bool filtered = false;           // two tokens: programs get the one without the administrator's rights
    std::vector<std::string> groups; // by name or SID, besides those that each user has
};

struct Integrity {
    static constexpr simwin::DWORD Low = 0x1000, Medium = 0x2000, High = 0x3000, System = 0x4000;
};
const char* IntegrityName(simwin::DWORD level); // "low", "medium", "high", "system"; "" for 0

struct TokenGroup {
    Sid sid;
    simwin::DWORD attributes;
};
struct TokenPrivilege {
    simwin::DWORD number; // the low part of its LUID
    simwin::DWORD attributes;
};

struct TokenFacts {
    Logon logon;
    std::vector<TokenGroup> groups;
    std::vector<TokenPrivilege> privileges;
    simwin::DWORD integrity = 0; // 0: this Windows knows none
    simwin::TOKEN_TYPE type = simwin::TokenPrimary;
    simwin::SECURITY_IMPERSONATION_LEVEL level = simwin::SecurityImpersonation; // of an impersonation token
    simwin::TOKEN_ELEVATION_TYPE elevation = simwin::TokenElevationTypeDefault;
    bool isRestricted = false; // made by CreateRestrictedToken
};

struct Token : Object, TokenFacts {
    explicit Token(TokenFacts facts) : Object(ObjectKind::Token), TokenFacts(std::move(facts)) {}
};

TokenFacts SystemToken(unsigned session);
// The user's own token at the logon: the filtered one where there are two.
TokenFacts LogonToken(const Logon& logon);
// The other one of two. False if the logon has only one.
bool LinkedToken(const TokenFacts& token, TokenFacts& linked);

// Numbers and names of privileges, as far as this Windows has them; 0 and "" without.
simwin::DWORD PrivilegeNumber(std::string_view name);
const char* PrivilegeName(simwin::DWORD number);
const TokenPrivilege* FindPrivilege(const TokenFacts& token, simwin::DWORD number);
bool HasEnabled(const TokenFacts& token, std::string_view privilege);
bool HasGroup(const TokenFacts& token, std::string_view sid); // enabled

// The process's own token, which lives as long as it does.
Token& TokenOf(Process& process);
// The token in force for the running thread: the impersonated one, else its process's.
Token& ThreadToken();

Rights RightsOf(const TokenFacts& token);
Caller CallerOf(const TokenFacts& token);
// Gives the process this token, with all that follows from it: user, session, rights. The start borrows it.
void StartWith(ProcessStart& start, Token& token);

RoomPtr MakeTokens();

} // namespace machine
