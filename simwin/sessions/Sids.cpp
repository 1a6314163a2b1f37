// SIDs as programs see them, and the accounts that they stand for.
#include "simwin/sessions/Sids.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/api.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/sessions/Tokens.h"
#include "simwin/texts/Environment.h"

#include <algorithm>
#include <cstring>

namespace machine {

constexpr std::uint8_t SidRevision = 1;
constexpr std::uint8_t MostSubAuthorities = 15, MostAllocated = 8;
constexpr std::size_t SidHeaderBytes = 8;

template<typename Result>
static Result Fail(simwin::DWORD error, Result result) {
    SetError(error);
    return result;
}

static void* Allocate(std::size_t bytes, const char* call) {
    return CurrentProcess()->heap.Allocate(bytes, call);
}

namespace {
// 'LAB\anna' in two; a name without a domain is of this machine.
struct AccountName {
    std::string domain, name;
};
} // namespace
static AccountName SplitAccount(const std::string& account) {
    const std::size_t slash = account.find('\\');
    if (slash == std::string::npos) {
        return {account == "Everyone" ? "" : GetEnvironment("COMPUTERNAME"), account};
    }
    return {account.substr(0, slash), account.substr(slash + 1)};
}

static simwin::SID_NAME_USE UseOf(const Sid& sid) {
    if (sid.starts_with("S-1-5-21-") || sid == SidSystem) {
        return sid == SidSystem ? simwin::SidTypeWellKnownGroup : simwin::SidTypeUser;
    }
    return sid.starts_with("S-1-5-32-") ? simwin::SidTypeAlias : simwin::SidTypeWellKnownGroup;
}

// With its final zero. False, with the needed size, if it does not fit.
static bool CopyOut(const std::string& text, simwin::LPSTR buffer, simwin::DWORD* size) {
    const bool fits = buffer && *size > text.size();
    if (fits) {
        std::memcpy(buffer, text.c_str(), text.size() + 1);
    }
    *size = static_cast<simwin::DWORD>(text.size() + (fits ? 0 : 1));
    return fits;
}

// The groups of a user of this machine, as Windows lists them; nothing for another.
static std::optional<std::vector<std::string>> LocalGroups(const std::string& user) {
    const std::string computer = GetEnvironment("COMPUTERNAME");
    for (const Session& session : AllSessions()) {
        const AccountName account = SplitAccount(session.user);
        const bool isMeant = EqualNoCase(user, session.user) || EqualNoCase(user, account.name);
        if (session.user.empty() || !isMeant || !EqualNoCase(account.domain, computer)) {
            continue;
        }
        std::vector<std::string> groups;
        if (session.administrator) {
            groups.emplace_back("Administrators");
        }
        groups.emplace_back("Users");
        for (const std::string& group : session.groups) {
            const AccountName name = SplitAccount(group.starts_with("S-1-") ? AccountOfSid(group) : group);
            if (!name.name.empty() && (EqualNoCase(name.domain, computer) || EqualNoCase(name.domain, "BUILTIN"))) {
                groups.push_back(name.name);
            }
        }
        return groups;
    }
    return std::nullopt;
}

static std::string NarrowText(simwin::LPCWSTR text) {
    std::u16string wide;
    for (; *text; ++text) {
        wide += static_cast<char16_t>(*text);
    }
    return AnsiFromUtf16(wide);
}

std::vector<std::uint8_t> SidBytes(const Sid& sid) {
    std::vector<std::uint64_t> parts;
    for (const std::string& part : Split(sid.substr(2), '-')) {
        parts.push_back(std::stoull(part));
    }
    std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(parts[0]),
                                       static_cast<std::uint8_t>(parts.size() - 2)};
    for (int shift = 40; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(parts[1] >> shift));
    }
    for (std::size_t i = 2; i < parts.size(); ++i) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<std::uint8_t>(parts[i] >> shift));
        }
    }
    return bytes;
}

std::optional<Sid> SidOfBytes(simwin::PSID sid) {
    const auto* bytes = static_cast<const std::uint8_t*>(sid);
    if (!bytes || bytes[0] != SidRevision || bytes[1] > MostSubAuthorities) {
        return std::nullopt;
    }
    std::uint64_t authority = 0;
    for (int i = 2; i < 8; ++i) {
        authority = authority << 8 | bytes[i];
    }
    std::string text = "S-" + std::to_string(bytes[0]) + "-" + std::to_string(authority);
    for (int i = 0; i < bytes[1]; ++i) {
        simwin::DWORD part = 0;
        std::memcpy(&part, bytes + SidHeaderBytes + sizeof(part) * static_cast<std::size_t>(i), sizeof(part));
        text += "-" + std::to_string(part);
    }
    return text;
}

} // namespace machine

namespace simwin {

using machine::Fail;

BOOL ConvertSidToStringSidA(PSID sid, LPSTR* text) {
    SIM_CALL("ConvertSidToStringSidA", "", ERROR_INVALID_SID, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    if (!sid || !text) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    const std::optional<std::string> made = machine::SidOfBytes(sid);
    if (!made) {
        return Fail(ERROR_INVALID_SID, FALSE);
    }
    *text = static_cast<char*>(machine::Allocate(made->size() + 1, "ConvertSidToStringSidA"));
    std::memcpy(*text, made->c_str(), made->size() + 1);
    return TRUE;
}

BOOL AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD part0, DWORD part1, DWORD part2,
                              DWORD part3, DWORD part4, DWORD part5, DWORD part6, DWORD part7, PSID* sid) {
    SIM_CALL("AllocateAndInitializeSid", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    if (count > machine::MostAllocated) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    const DWORD parts[] = {part0, part1, part2, part3, part4, part5, part6, part7};
    const std::size_t partBytes = sizeof(DWORD) * count;
    auto* bytes =
        static_cast<BYTE*>(machine::Allocate(machine::SidHeaderBytes + partBytes, "AllocateAndInitializeSid"));
    bytes[0] = machine::SidRevision;
    bytes[1] = count;
    std::memcpy(bytes + 2, authority->Value, sizeof(authority->Value));
    std::memcpy(bytes + machine::SidHeaderBytes, parts, partBytes);
    *sid = bytes;
    return TRUE;
}

PVOID FreeSid(PSID sid) {
    SIM_CALL("FreeSid", "");
    if (!machine::CurrentProcess()->heap.Free(sid)) {
        machine::BrokenRule("FreeSid", "a block that is none");
    }
    return nullptr;
}

DWORD GetLengthSid(PSID sid) {
    SIM_CALL("GetLengthSid", "");
    const std::optional<machine::Sid> text = machine::SidOfBytes(sid);
    if (!text) {
        machine::BrokenRule("GetLengthSid", "what is no SID");
    }
    return static_cast<DWORD>(machine::SidBytes(*text).size());
}

BOOL LookupAccountSidA(LPCSTR system, PSID sid, LPSTR name, LPDWORD nameSize, LPSTR domain, LPDWORD domainSize,
                       PSID_NAME_USE use) {
    SIM_CALL("LookupAccountSidA", "", ERROR_NONE_MAPPED, ERROR_TRUSTED_RELATIONSHIP_FAILURE);
    if (system && *system) {
        machine::NotModelled("LookupAccountSidA", "another machine");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    const std::optional<machine::Sid> text = machine::SidOfBytes(sid);
    if (!text) {
        return Fail(ERROR_INVALID_SID, FALSE);
    }
    const std::string account = machine::AccountOfSid(*text);
    if (account.empty()) {
        return Fail(ERROR_NONE_MAPPED, FALSE);
    }
    const machine::AccountName parts = machine::SplitAccount(account);
    if (!name || *nameSize <= parts.name.size() || !domain || *domainSize <= parts.domain.size()) {
        *nameSize = static_cast<DWORD>(parts.name.size() + 1);
        *domainSize = static_cast<DWORD>(parts.domain.size() + 1);
        return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    }
    machine::CopyOut(parts.name, name, nameSize);
    machine::CopyOut(parts.domain, domain, domainSize);
    *use = machine::UseOf(*text);
    return TRUE;
}

BOOL GetUserNameA(LPSTR buffer, LPDWORD size) {
    SIM_CALL("GetUserNameA", "", ERROR_NOT_LOGGED_ON);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    const std::string name = machine::SplitAccount(machine::ThreadToken().logon.user).name;
    if (!machine::CopyOut(name, buffer, size)) {
        return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    }
    ++*size; // this one counts the zero
    return TRUE;
}

BOOL GetComputerNameA(LPSTR buffer, LPDWORD size) {
    SIM_CALL("GetComputerNameA", "", ERROR_GEN_FAILURE);
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    return machine::CopyOut(machine::GetEnvironment("COMPUTERNAME"), buffer, size) ||
           Fail(ERROR_BUFFER_OVERFLOW, FALSE);
}

NET_API_STATUS NetUserGetLocalGroups(LPCWSTR server, LPCWSTR user, DWORD level, DWORD flags, LPBYTE* buffer,
                                     DWORD preferredLength, LPDWORD read, LPDWORD total) {
    SIM_CALL("NetUserGetLocalGroups", "", ERROR_ACCESS_DENIED, NERR_UserNotFound);
    if ((server && *server) || level != 0 || preferredLength != MAX_PREFERRED_LENGTH || flags > LG_INCLUDE_INDIRECT) {
        machine::NotModelled("NetUserGetLocalGroups", "anything but all groups of level 0 on this machine");
    }
    *buffer = nullptr;
    *read = *total = 0;
    if (simCall.error) {
        return simCall.error;
    }
    const std::optional<std::vector<std::string>> groups = machine::LocalGroups(machine::NarrowText(user));
    if (!groups) {
        return NERR_UserNotFound;
    }
    std::size_t bytes = groups->size() * sizeof(LOCALGROUP_USERS_INFO_0);
    for (const std::string& group : *groups) {
        bytes += (group.size() + 1) * sizeof(WCHAR);
    }
    auto* records = static_cast<LOCALGROUP_USERS_INFO_0*>(machine::Allocate(bytes, "NetUserGetLocalGroups"));
    auto* text = reinterpret_cast<WCHAR*>(records + groups->size());
    for (std::size_t i = 0; i < groups->size(); ++i) {
        records[i].lgrui0_name = text;
        for (const char16_t c : machine::Utf16FromAnsi((*groups)[i])) {
            *text++ = static_cast<WCHAR>(c);
        }
        *text++ = 0;
    }
    *buffer = reinterpret_cast<LPBYTE>(records);
    *read = *total = static_cast<DWORD>(groups->size());
    return NERR_Success;
}

NET_API_STATUS NetApiBufferFree(LPVOID buffer) {
    SIM_CALL("NetApiBufferFree", "");
    if (buffer && !machine::CurrentProcess()->heap.Free(buffer)) {
        machine::BrokenRule("NetApiBufferFree", "a block that is none");
    }
    return NERR_Success;
}

static const machine::OptionalOperation Optional[] = {
    {"netapi32.dll", "NetUserGetLocalGroups", machine::AsProc(NetUserGetLocalGroups), 0x0500},
    {"netapi32.dll", "NetApiBufferFree", machine::AsProc(NetApiBufferFree), 0x0500},
};

} // namespace simwin
