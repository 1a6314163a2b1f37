#include "simwin/registry/Security.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Text.h"

#include <charconv>
#include <cstring>
#include <span>

namespace machine {

constexpr simwin::DWORD ReadControl = 0x20000, WriteDac = 0x40000, MaximumAllowed = 0x02000000;
constexpr const char* SidCreatorOwner = "S-1-3-0";

namespace {
struct SidAlias {
    const char* shortName;
    const char* sid;
    const char* account; // null: no account of that name is looked up
};
} // namespace
constexpr SidAlias Aliases[] = {
    {"SY", SidSystem, "NT AUTHORITY\\SYSTEM"},
    {"BA", SidAdministrators, "BUILTIN\\Administrators"},
    {"BU", SidUsers, "BUILTIN\\Users"},
    {"WD", SidEveryone, "Everyone"},
    {"AU", SidAuthenticated, "NT AUTHORITY\\Authenticated Users"},
    {"IU", SidInteractive, "NT AUTHORITY\\INTERACTIVE"},
    {"LS", "S-1-5-19", "NT AUTHORITY\\LOCAL SERVICE"},
    {"NS", "S-1-5-20", "NT AUTHORITY\\NETWORK SERVICE"},
    {"CO", SidCreatorOwner, "CREATOR OWNER"},
    {"CG", "S-1-3-1", nullptr},
    {"OW", "S-1-3-4", nullptr},
    {"AN", "S-1-5-7", nullptr},
    {"NU", "S-1-5-2", nullptr},
    {"SU", "S-1-5-6", nullptr},
    {"RC", "S-1-5-12", nullptr},
    {"BG", "S-1-5-32-546", nullptr},
    {"PU", "S-1-5-32-547", nullptr},
    {"AC", "S-1-15-2-1", nullptr},
};

// Accounts that the descriptor language has no short name for.
constexpr SidAlias OtherAccounts[] = {
    {nullptr, "S-1-2-0", "LOCAL"},
    {nullptr, "S-1-5-14", "NT AUTHORITY\\REMOTE INTERACTIVE LOGON"},
};

namespace {
struct RightName {
    const char* name;
    simwin::DWORD mask;
};
constexpr RightName RightNames[] = {
    {"GA", 0x10000000}, {"GR", 0x80000000}, {"GW", 0x40000000}, {"GX", 0x20000000}, {"RC", 0x20000},
    {"SD", 0x10000},    {"WD", 0x40000},    {"WO", 0x80000},    {"KA", 0xF003F},    {"KR", 0x20019},
    {"KW", 0x20006},    {"KX", 0x20019},    {"FA", 0x1F01FF},   {"FR", 0x120089},   {"FW", 0x120116},
    {"FX", 0x1200A0},   {"CC", 0x1},        {"DC", 0x2},        {"LC", 0x4},        {"SW", 0x8},
    {"RP", 0x10},       {"WP", 0x20},       {"DT", 0x40},       {"LO", 0x80},       {"CR", 0x100}};

struct FlagName {
    const char* name;
    std::uint8_t flag;
};
constexpr FlagName AceFlagNames[] = {{"OI", ace_flags::ObjectInherit},
                                     {"CI", ace_flags::ContainerInherit},
                                     {"NP", ace_flags::NoPropagate},
                                     {"IO", ace_flags::InheritOnly},
                                     {"ID", ace_flags::Inherited}};

// SIDs of accounts, in the order in which they were first asked for.
struct Accounts {
    std::vector<std::string> names;
    std::function<std::optional<Caller>()> source;
};
} // namespace
static Accounts* g_accounts;
RoomPtr MakeAccounts() {
    return MakeRoom(g_accounts);
}

constexpr const char* MachineSid = "S-1-5-21-1004336348-1177238915-682003330-";
constexpr unsigned FirstAccountNumber = 1001;

static bool IsSidText(std::string_view text) {
    if (!StartsWithNoCase(text, "S-1-")) {
        return false;
    }
    const std::vector<std::string> parts = Split(text.substr(4), '-');
    for (const std::string& part : parts) {
        if (part.empty() || part.size() > 10 || part.find_first_not_of("0123456789") != std::string::npos) {
            return false;
        }
    }
    return parts.size() >= 2 && parts.size() <= 16;
}

static std::optional<Sid> ResolveSid(std::string_view text) {
    for (const SidAlias& alias : Aliases) {
        if (EqualNoCase(text, alias.shortName)) {
            return Sid(alias.sid);
        }
    }
    if (IsSidText(text)) {
        return Upper(text);
    }
    return std::nullopt;
}

static std::string SidShort(const Sid& sid) {
    for (const SidAlias& alias : Aliases) {
        if (sid == alias.sid) {
            return alias.shortName;
        }
    }
    return sid;
}

static std::optional<simwin::DWORD> ParseRights(std::string_view text) {
    simwin::DWORD mask = 0;
    if (StartsWithNoCase(text, "0x")) {
        const auto result = std::from_chars(text.data() + 2, text.data() + text.size(), mask, 16);
        if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
            return std::nullopt;
        }
        return mask;
    }
    while (text.size() >= 2) {
        const RightName* found = nullptr;
        for (const RightName& right : RightNames) {
            if (EqualNoCase(text.substr(0, 2), right.name)) {
                found = &right;
            }
        }
        if (!found) {
            return std::nullopt;
        }
        mask |= found->mask;
        text.remove_prefix(2);
    }
    return text.empty() ? std::optional(mask) : std::nullopt;
}

static std::string RightsText(simwin::DWORD mask) {
    for (const RightName& right : RightNames) {
        if (right.mask == mask) {
            return right.name;
        }
    }
    char text[16];
    const auto result = std::to_chars(text, text + sizeof text, mask, 16);
    return "0x" + std::string(text, result.ptr);
}

// One entry without its brackets: type;flags;rights;object;inherited object;account.
static std::optional<Ace> ParseAce(std::string_view text) {
    const std::vector<std::string> parts = Split(text, ';');
    if (parts.size() != 6 || !parts[3].empty() || !parts[4].empty()) {
        return std::nullopt;
    }
    Ace ace;
    if (EqualNoCase(parts[0], "A")) {
        ace.type = AceType::Allow;
    } else if (EqualNoCase(parts[0], "D")) {
        ace.type = AceType::Deny;
    } else {
        return std::nullopt;
    }
    for (std::string_view flags = parts[1]; !flags.empty(); flags.remove_prefix(2)) {
        const FlagName* found = nullptr;
        for (const FlagName& flag : AceFlagNames) {
            if (flags.size() >= 2 && EqualNoCase(flags.substr(0, 2), flag.name)) {
                found = &flag;
            }
        }
        if (!found) {
            return std::nullopt;
        }
        ace.flags = static_cast<std::uint8_t>(ace.flags | found->flag);
    }
    const auto mask = ParseRights(parts[2]);
    const auto sid = ResolveSid(parts[5]);
    if (!mask || !sid) {
        return std::nullopt;
    }
    ace.mask = *mask;
    ace.sid = *sid;
    return ace;
}

// The list after "D:": flags, then entries in brackets.
static bool ParseDacl(std::string_view text, SecurityDescriptor& result) {
    result.hasDacl = true;
    while (!text.empty() && text.front() != '(') {
        if (LowerChar(text.front()) == 'p') {
            result.isProtected = true;
            text.remove_prefix(1);
        } else if (StartsWithNoCase(text, "AI")) {
            result.autoInherited = true;
            text.remove_prefix(2);
        } else if (StartsWithNoCase(text, "AR")) {
            text.remove_prefix(2);
        } else {
            return false;
        }
    }
    while (!text.empty()) {
        const std::size_t end = text.find(')');
        if (text.front() != '(' || end == std::string_view::npos) {
            return false;
        }
        const auto ace = ParseAce(text.substr(1, end - 1));
        if (!ace) {
            return false;
        }
        result.dacl.push_back(*ace);
        text.remove_prefix(end + 1);
    }
    return true;
}

template<typename T>
static void Append(std::vector<std::uint8_t>& bytes, T value) {
    const std::size_t at = bytes.size();
    bytes.resize(at + sizeof value);
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

static void AppendSid(std::vector<std::uint8_t>& bytes, const Sid& sid) {
    const std::vector<std::string> parts = Split(std::string_view(sid).substr(4), '-');
    bytes.push_back(1);
    bytes.push_back(static_cast<std::uint8_t>(parts.size() - 1));
    std::uint64_t authority = 0;
    std::from_chars(parts[0].data(), parts[0].data() + parts[0].size(), authority);
    for (int shift = 40; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(authority >> shift));
    }
    for (std::size_t i = 1; i < parts.size(); ++i) {
        std::uint32_t number = 0;
        std::from_chars(parts[i].data(), parts[i].data() + parts[i].size(), number);
        Append(bytes, number);
    }
}

namespace {
// Reads with bounds from a block of `size` bytes.
struct Reader {
    const std::uint8_t* bytes;
    std::size_t size;

    template<typename T>
    bool Get(std::size_t at, T& value) const {
        if (at > size || size - at < sizeof value) {
            return false;
        }
        std::memcpy(&value, bytes + at, sizeof value);
        return true;
    }
    bool GetSid(std::size_t at, Sid& sid, std::size_t* length = nullptr) const {
        std::uint8_t revision, count, part;
        if (!Get(at, revision) || !Get(at + 1, count) || revision != 1 || count == 0 || count > 15) {
            return false;
        }
        std::uint64_t authority = 0;
        for (std::size_t i = 0; i < 6; ++i) {
            if (!Get(at + 2 + i, part)) {
                return false;
            }
            authority = authority << 8 | part;
        }
        sid = "S-1-" + std::to_string(authority);
        for (std::size_t i = 0; i < count; ++i) {
            std::uint32_t number;
            if (!Get(at + 8 + 4 * i, number)) {
                return false;
            }
            sid += "-" + std::to_string(number);
        }
        if (length) {
            *length = 8 + 4u * count;
        }
        return true;
    }
};
} // namespace

// Control bits of a self-relative descriptor.
constexpr std::uint16_t DaclPresent = 0x0004, DaclAutoInherited = 0x0400, DaclProtected = 0x1000, SelfRelative = 0x8000;
constexpr std::size_t HeaderBytes = 20, AclHeaderBytes = 8, AceHeaderBytes = 8;

// With or without its domain.
static bool IsAccount(const SidAlias& alias, std::string_view account) {
    const std::string_view full = alias.account ? alias.account : "";
    return alias.account && (EqualNoCase(account, full) || EqualNoCase(account, full.substr(full.find('\\') + 1)));
}

Sid SidOfAccount(std::string_view account) {
    for (const std::span<const SidAlias> aliases :
         {std::span<const SidAlias>(Aliases), std::span<const SidAlias>(OtherAccounts)}) {
        for (const SidAlias& alias : aliases) {
            if (IsAccount(alias, account)) {
                return alias.sid;
            }
        }
    }
    if (EqualNoCase(account, "LocalSystem")) {
        return SidSystem;
    }
    std::size_t i = 0;
    while (i < g_accounts->names.size() && !EqualNoCase(g_accounts->names[i], account)) {
        ++i;
    }
    if (i == g_accounts->names.size()) {
        g_accounts->names.emplace_back(account);
    }
    return MachineSid + std::to_string(FirstAccountNumber + i);
}

std::string AccountOfSid(std::string_view sid) {
    for (const std::span<const SidAlias> aliases :
         {std::span<const SidAlias>(Aliases), std::span<const SidAlias>(OtherAccounts)}) {
        for (const SidAlias& alias : aliases) {
            if (alias.account && EqualNoCase(sid, alias.sid)) {
                return alias.account;
            }
        }
    }
    for (std::size_t i = 0; i < g_accounts->names.size(); ++i) {
        if (EqualNoCase(sid, MachineSid + std::to_string(FirstAccountNumber + i))) {
            return g_accounts->names[i];
        }
    }
    return {};
}

// Blanks may precede each part.
static std::string WithoutLeadingBlanks(std::string_view text) {
    std::string kept;
    for (const char c : text) {
        if (c != ' ' || (!kept.empty() && std::string_view(":;()").find(kept.back()) == std::string_view::npos)) {
            kept += c;
        }
    }
    return kept;
}

std::optional<SecurityDescriptor> ParseSddl(std::string_view written, bool* isListBad) {
    const std::string kept = WithoutLeadingBlanks(written);
    std::string_view text = kept;
    SecurityDescriptor result;
    while (!text.empty()) {
        if (text.size() < 2 || text[1] != ':') {
            return std::nullopt;
        }
        const char part = LowerChar(text[0]);
        text.remove_prefix(2);
        // A part ends before the next letter with a colon; there are no other colons.
        const std::size_t colon = text.find(':');
        const std::size_t length = colon == std::string_view::npos ? text.size() : colon - 1;
        if (colon == 0) {
            return std::nullopt;
        }
        const std::string_view body = text.substr(0, length);
        text.remove_prefix(length);
        if (part == 'o' || part == 'g') {
            const auto sid = ResolveSid(body);
            if (!sid) {
                return std::nullopt;
            }
            (part == 'o' ? result.owner : result.group) = *sid;
        } else if (part == 'd') {
            if (!ParseDacl(body, result)) {
                if (isListBad) {
                    *isListBad = true;
                }
                return std::nullopt;
            }
        } else if (part == 's') {
            NotModelled("ConvertStringSecurityDescriptorToSecurityDescriptorA", "a system access list");
        } else {
            return std::nullopt;
        }
    }
    return result;
}

std::string ToSddl(const SecurityDescriptor& descriptor) {
    std::string text;
    if (!descriptor.owner.empty()) {
        text += "O:" + SidShort(descriptor.owner);
    }
    if (!descriptor.group.empty()) {
        text += "G:" + SidShort(descriptor.group);
    }
    if (!descriptor.hasDacl) {
        return text;
    }
    text += "D:";
    if (descriptor.isProtected) {
        text += "P";
    }
    if (descriptor.autoInherited) {
        text += "AI";
    }
    for (const Ace& ace : descriptor.dacl) {
        text += ace.type == AceType::Allow ? "(A;" : "(D;";
        for (const FlagName& flag : AceFlagNames) {
            if (ace.flags & flag.flag) {
                text += flag.name;
            }
        }
        text += ";" + RightsText(ace.mask) + ";;;" + SidShort(ace.sid) + ")";
    }
    return text;
}

std::vector<std::uint8_t> ToBinary(const SecurityDescriptor& descriptor) {
    std::vector<std::uint8_t> bytes;
    std::uint16_t control = SelfRelative;
    if (descriptor.hasDacl) {
        control |= DaclPresent;
    }
    if (descriptor.isProtected) {
        control |= DaclProtected;
    }
    if (descriptor.autoInherited) {
        control |= DaclAutoInherited;
    }
    bytes.push_back(1);
    bytes.push_back(0);
    Append(bytes, control);
    bytes.resize(HeaderBytes);
    const auto place = [&bytes](std::size_t at) {
        const auto offset = static_cast<std::uint32_t>(bytes.size());
        std::memcpy(bytes.data() + at, &offset, sizeof offset);
    };
    if (descriptor.hasDacl) {
        place(16);
        const std::size_t start = bytes.size();
        bytes.resize(start + AclHeaderBytes);
        for (const Ace& ace : descriptor.dacl) {
            const std::size_t aceStart = bytes.size();
            bytes.push_back(static_cast<std::uint8_t>(ace.type));
            bytes.push_back(ace.flags);
            Append(bytes, std::uint16_t{0});
            Append(bytes, ace.mask);
            AppendSid(bytes, ace.sid);
            const auto length = static_cast<std::uint16_t>(bytes.size() - aceStart);
            std::memcpy(bytes.data() + aceStart + 2, &length, sizeof length);
        }
        bytes[start] = 2; // ACL_REVISION
        const auto length = static_cast<std::uint16_t>(bytes.size() - start);
        const auto count = static_cast<std::uint16_t>(descriptor.dacl.size());
        std::memcpy(bytes.data() + start + 2, &length, sizeof length);
        std::memcpy(bytes.data() + start + 4, &count, sizeof count);
    }
    if (!descriptor.owner.empty()) {
        place(4);
        AppendSid(bytes, descriptor.owner);
    }
    if (!descriptor.group.empty()) {
        place(8);
        AppendSid(bytes, descriptor.group);
    }
    return bytes;
}

std::optional<SecurityDescriptor> ParseBinary(const void* bytes, std::size_t available) {
    const Reader reader{static_cast<const std::uint8_t*>(bytes), available};
    std::uint8_t revision;
    std::uint16_t control;
    std::uint32_t owner, group, dacl;
    if (!bytes || !reader.Get(0, revision) || !reader.Get(2, control) || !reader.Get(4, owner) ||
        !reader.Get(8, group) || !reader.Get(16, dacl) || revision != 1) {
        return std::nullopt;
    }
    if (!(control & SelfRelative)) {
        NotModelled("security descriptor", "the absolute form");
    }
    SecurityDescriptor result;
    if ((owner && !reader.GetSid(owner, result.owner)) || (group && !reader.GetSid(group, result.group))) {
        return std::nullopt;
    }
    result.isProtected = control & DaclProtected;
    result.autoInherited = control & DaclAutoInherited;
    if (!(control & DaclPresent) || !dacl) {
        return result;
    }
    result.hasDacl = true;
    std::uint8_t aclRevision;
    std::uint16_t aclBytes, count;
    if (!reader.Get(dacl, aclRevision) || !reader.Get(dacl + 2, aclBytes) || !reader.Get(dacl + 4, count) ||
        aclRevision < 2 || aclRevision > 4) {
        return std::nullopt;
    }
    std::size_t at = dacl + AclHeaderBytes;
    for (unsigned i = 0; i < count; ++i) {
        std::uint8_t type, flags;
        std::uint16_t length;
        Ace ace;
        if (!reader.Get(at, type) || !reader.Get(at + 1, flags) || !reader.Get(at + 2, length) ||
            !reader.Get(at + 4, ace.mask) || type > 1 || !reader.GetSid(at + AceHeaderBytes, ace.sid)) {
            return std::nullopt;
        }
        ace.type = static_cast<AceType>(type);
        ace.flags = flags;
        at += length;
        if (length < AceHeaderBytes || at > dacl + std::size_t{aclBytes}) {
            return std::nullopt;
        }
        result.dacl.push_back(ace);
    }
    return result;
}

SecurityDescriptor InheritFrom(const SecurityDescriptor& parent, bool container, std::string_view owner) {
    SecurityDescriptor result;
    result.owner = owner;
    result.group = parent.group;
    result.hasDacl = parent.hasDacl;
    result.autoInherited = true;
    const std::uint8_t wanted = container ? ace_flags::ContainerInherit : ace_flags::ObjectInherit;
    for (const Ace& ace : parent.dacl) {
        const bool passesOnly = container && !(ace.flags & wanted) && (ace.flags & ace_flags::ObjectInherit) &&
                                !(ace.flags & ace_flags::NoPropagate);
        if (!(ace.flags & wanted) && !passesOnly) {
            continue;
        }
        Ace inherited = ace;
        const auto keep =
            static_cast<std::uint8_t>(container && !(ace.flags & ace_flags::NoPropagate)
                                          ? ace.flags & (ace_flags::ObjectInherit | ace_flags::ContainerInherit)
                                          : 0);
        inherited.flags =
            static_cast<std::uint8_t>(keep | ace_flags::Inherited | (passesOnly ? ace_flags::InheritOnly : 0));
        if (ace.sid == SidCreatorOwner) {
            Ace own = inherited;
            own.sid = owner;
            own.flags = ace_flags::Inherited;
            if (!passesOnly) {
                result.dacl.push_back(own);
            }
            if (!keep) {
                continue;
            }
            inherited.flags = static_cast<std::uint8_t>(inherited.flags | ace_flags::InheritOnly);
        }
        result.dacl.push_back(inherited);
    }
    return result;
}

simwin::DWORD MapGeneric(simwin::DWORD mask, const GenericMapping& mapping) {
    constexpr simwin::DWORD GenericBits = 0xF0000000;
    simwin::DWORD result = mask & ~GenericBits;
    if (mask & 0x80000000) {
        result |= mapping.read;
    }
    if (mask & 0x40000000) {
        result |= mapping.write;
    }
    if (mask & 0x20000000) {
        result |= mapping.execute;
    }
    if (mask & 0x10000000) {
        result |= mapping.all;
    }
    return result;
}

bool Caller::Is(std::string_view sid) const {
    if (user == sid) {
        return true;
    }
    for (const Sid& group : groups) {
        if (group == sid) {
            return true;
        }
    }
    return false;
}

Caller MakeCaller(std::string_view account, bool administrator, bool filtered) {
    Caller caller;
    caller.user = SidOfAccount(account);
    caller.groups = {SidEveryone, SidAuthenticated};
    if (caller.user == SidSystem) {
        caller.groups.push_back(SidAdministrators);
        return caller;
    }
    caller.groups.insert(caller.groups.end(), {SidUsers, SidInteractive});
    if (administrator) {
        (filtered ? caller.denyOnly : caller.groups).push_back(SidAdministrators);
    }
    return caller;
}

Caller CurrentCaller() {
    if (g_accounts->source) {
        if (std::optional<Caller> caller = g_accounts->source()) {
            return *caller;
        }
    }
    const Process& process = *CurrentProcess();
    if (process.rights == Rights::System) {
        return MakeCaller("NT AUTHORITY\\SYSTEM", true, false);
    }
    return MakeCaller(process.user, process.administrator, process.rights == Rights::Restricted);
}

void SetCallerSource(std::function<std::optional<Caller>()> source) {
    g_accounts->source = std::move(source);
}

simwin::DWORD GrantedAccess(const SecurityDescriptor& descriptor, const Caller& caller, simwin::DWORD asked,
                            const GenericMapping& mapping) {
    const bool maximum = asked & MaximumAllowed;
    const simwin::DWORD wanted = MapGeneric(asked & ~MaximumAllowed, mapping);
    if (!descriptor.hasDacl) {
        return maximum ? mapping.all : wanted;
    }
    simwin::DWORD granted = !descriptor.owner.empty() && caller.Is(descriptor.owner) ? ReadControl | WriteDac : 0;
    simwin::DWORD denied = 0;
    for (const Ace& ace : descriptor.dacl) {
        if (ace.flags & ace_flags::InheritOnly) {
            continue;
        }
        const simwin::DWORD mask = MapGeneric(ace.mask, mapping);
        if (ace.type == AceType::Allow) {
            if (caller.Is(ace.sid)) {
                granted |= mask & ~denied;
            }
            continue;
        }
        bool hit = caller.Is(ace.sid);
        for (const Sid& sid : caller.denyOnly) {
            hit = hit || sid == ace.sid;
        }
        if (hit) {
            denied |= mask & ~granted;
        }
    }
    if (maximum) {
        return (granted & wanted) == wanted ? granted : 0;
    }
    return (granted & wanted) == wanted ? wanted : 0;
}

} // namespace machine
