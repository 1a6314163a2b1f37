// Access lists: their text form and their self-relative binary form, what a new object inherits, and who may do what.
// Used by the registry for keys and by the files for folders and files; accounts are distinguished by their SIDs.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/types.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// A security identifier in its text form, "S-1-5-18". Abbreviations of the descriptor language are resolved.
using Sid = std::string;
inline constexpr const char* SidSystem = "S-1-5-18";
inline constexpr const char* SidAdministrators = "S-1-5-32-544";
inline constexpr const char* SidUsers = "S-1-5-32-545";
inline constexpr const char* SidEveryone = "S-1-1-0";
inline constexpr const char* SidAuthenticated = "S-1-5-11";
inline constexpr const char* SidInteractive = "S-1-5-4";

// The SID of an account by its name, 'NT AUTHORITY\SYSTEM' or 'LAB\anna'; a new name gets the next number of the
// machine. The reverse: the name of a SID given out before, or of a well-known one; "" for another.
Sid SidOfAccount(std::string_view account);
std::string AccountOfSid(std::string_view sid);

enum class AceType : std::uint8_t { Allow = 0, Deny = 1 };
namespace ace_flags {
inline constexpr std::uint8_t ObjectInherit = 1, ContainerInherit = 2, NoPropagate = 4, InheritOnly = 8, Inherited = 16;
}

struct Ace {
    AceType type = AceType::Allow;
    std::uint8_t flags = 0;
    simwin::DWORD mask = 0;
    Sid sid;
    bool operator==(const Ace&) const = default;
};

struct SecurityDescriptor {
    Sid owner, group;         // empty: not given
    bool hasDacl = false;     // without a list everybody has full access
    bool isProtected = false; // takes nothing from its parent
    bool autoInherited = false;
    std::vector<Ace> dacl;
    bool operator==(const SecurityDescriptor&) const = default;
};

// From and to the descriptor language. Empty for other text; a system list is not modelled.
std::optional<SecurityDescriptor> ParseSddl(std::string_view text, bool* isListBad = nullptr);
std::string ToSddl(const SecurityDescriptor& descriptor);

// The self-relative form. Parse gives nothing for a form that is not valid or that is longer than `available` bytes.
std::vector<std::uint8_t> ToBinary(const SecurityDescriptor& descriptor);
std::optional<SecurityDescriptor> ParseBinary(const void* bytes, std::size_t available);

// What an object created in `parent` gets: the inheritable entries, marked as inherited; `owner` is that of the new
// one.
SecurityDescriptor InheritFrom(const SecurityDescriptor& parent, bool container, std::string_view owner);

// The meaning of generic rights for a kind of object.
struct GenericMapping {
    simwin::DWORD read, write, execute, all;
};
inline constexpr GenericMapping KeyMapping = {0x20019, 0x20006, 0x20019, 0xF003F};
inline constexpr GenericMapping FileMapping = {0x120089, 0x120116, 0x1200A0, 0x1F01FF};
simwin::DWORD MapGeneric(simwin::DWORD mask, const GenericMapping& mapping);

// Who asks: the user's SID and its groups; deny-only groups count for refusals alone.
struct Caller {
    Sid user;
    std::vector<Sid> groups, denyOnly;
    bool Is(std::string_view sid) const;
};
// The running thread's caller: its process's account and rights, unless a room says otherwise (impersonation).
Caller CurrentCaller();
void SetCallerSource(std::function<std::optional<Caller>()> source);
// A caller with that name and rights, for rooms that check for another account.
Caller MakeCaller(std::string_view account, bool administrator, bool filtered);

// The rights that the list grants of those requested (generic ones mapped); all or nothing unless `asked` has
// MAXIMUM_ALLOWED, which grants what there is. 0: refused. The owner may read the list and change it.
simwin::DWORD GrantedAccess(const SecurityDescriptor& descriptor, const Caller& caller, simwin::DWORD asked,
                            const GenericMapping& mapping);

// The accounts and their SIDs.
RoomPtr MakeAccounts();

} // namespace machine
