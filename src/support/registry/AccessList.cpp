#include "support/registry/AccessList.h"

#include <cstring>

#include "support/system/Accounts.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

// A self-relative descriptor, its list, an entry and a SID in memory: offsets of their fields.
constexpr DWORD ControlAt = 2;
constexpr DWORD OwnerAt = 4;
constexpr DWORD DaclAt = 16;
constexpr DWORD DescriptorSize = 20;
constexpr WORD DaclPresent = 4;
constexpr DWORD AceCountAt = 4;
constexpr DWORD AclHeaderSize = 8;
constexpr DWORD AceSizeAt = 2;
constexpr DWORD AceMaskAt = 4;
constexpr DWORD AceSidAt = 8;
constexpr BYTE AceAllows = 0;
constexpr BYTE AceDenies = 1;
constexpr BYTE AceForHeirsAlone = 8;
constexpr DWORD SidHeaderSize = 8;
constexpr DWORD MostSubAuthorities = 15;

namespace {
struct KnownSid {
    const char* sid;
    const char* name;
};
} // namespace
constexpr KnownSid Ordinary[] = {{"S-1-1-0", "Everyone"},
                                 {"S-1-5-32-545", "Users"},
                                 {"S-1-5-11", "Authenticated Users"},
                                 {"S-1-5-4", "INTERACTIVE"}};
constexpr const char* TrustedOwners[] = {SystemSid, AdministratorsSid};
constexpr char ServiceSids[] = "S-1-5-80-"; // the installer of Windows is one of these
constexpr char BuiltInAdministrator[] = "-500";

namespace {
// A block of bytes; reads are bounds-checked.
struct Bytes {
    const BYTE* at;
    DWORD size;

    bool Has(DWORD place, DWORD count) const { return place <= size && size - place >= count; }
    template<typename T>
    T Read(DWORD place) const {
        T value = {};
        if (Has(place, sizeof(T))) {
            memcpy(&value, at + place, sizeof(T));
        }
        return value;
    }
    Bytes From(DWORD place) const { return place <= size ? Bytes{at + place, size - place} : Bytes{at, 0}; }
};
} // namespace

// Returns: 0 if there is no whole SID.
static int SidToText(const Bytes& sid, char (&text)[SidTextSize]) {
    const DWORD count = sid.Read<BYTE>(1);
    if (!sid.Has(0, SidHeaderSize) || count > MostSubAuthorities || !sid.Has(SidHeaderSize, count * sizeof(DWORD))) {
        return 0;
    }
    const BYTE* authority = sid.at + 4; // its high bytes are 0 in every SID of Windows
    FormatText(text, "S-%u-%u", DWORD{sid.at[0]},
               (DWORD{authority[0]} << 24) | (DWORD{authority[1]} << 16) | (DWORD{authority[2]} << 8) | authority[3]);
    for (DWORD i = 0; i < count; ++i) {
        char part[16];
        FormatText(part, "-%u", sid.Read<DWORD>(SidHeaderSize + i * static_cast<DWORD>(sizeof(DWORD))));
        AppendText(text, part);
    }
    return 1;
}

static const char* OrdinaryName(const char* sid) {
    for (const KnownSid& known : Ordinary) {
        if (SameText(sid, known.sid)) {
            return known.name;
        }
    }
    return nullptr;
}

static bool IsTrustedOwner(const char* sid) {
    for (const char* trusted : TrustedOwners) {
        if (SameText(sid, trusted)) {
            return true;
        }
    }
    const size_t length = TextLength(sid);
    const size_t tail = sizeof(BuiltInAdministrator) - 1;
    return strncmp(sid, ServiceSids, sizeof(ServiceSids) - 1) == 0 || SameText(sid, szUserSid) ||
           (length > tail && SameText(sid + length - tail, BuiltInAdministrator));
}

// What the list grants to a member of all of the ordinary groups, entry by entry as Windows reads it.
static int ListGives(const Bytes& list, DWORD rights, char (&who)[SidTextSize]) {
    DWORD denied = 0;
    Bytes rest = list.From(AclHeaderSize);
    for (DWORD left = list.Read<WORD>(AceCountAt); left > 0; --left) {
        const DWORD size = rest.Read<WORD>(AceSizeAt);
        char sid[SidTextSize];
        if (size < AceSidAt || !rest.Has(0, size) || !SidToText(rest.From(AceSidAt), sid)) {
            return 0;
        }
        const auto type = rest.Read<BYTE>(0);
        const DWORD mask = rest.Read<DWORD>(AceMaskAt) & rights;
        const char* name = (rest.Read<BYTE>(1) & AceForHeirsAlone) == 0 ? OrdinaryName(sid) : nullptr;
        if (name && type == AceAllows && (mask & ~denied) != 0) {
            CopyText(who, name);
            return 1;
        }
        if (name && type == AceDenies) {
            denied |= mask;
        }
        rest = rest.From(size);
    }
    return 0;
}

int WhoMayChange(const BYTE* descriptor, DWORD size, DWORD rights, char (&who)[SidTextSize]) {
    const Bytes whole = {descriptor, size};
    if (!whole.Has(0, DescriptorSize)) {
        return 0;
    }
    char owner[SidTextSize];
    const auto ownerAt = whole.Read<DWORD>(OwnerAt);
    if (ownerAt != 0 && SidToText(whole.From(ownerAt), owner) && !IsTrustedOwner(owner)) {
        const char* name = OrdinaryName(owner);
        CopyText(who, name ? name : owner);
        return 1;
    }
    const auto listAt = whole.Read<DWORD>(DaclAt);
    if ((whole.Read<WORD>(ControlAt) & DaclPresent) == 0 || listAt == 0) {
        CopyText(who, Ordinary[0].name); // without a list everybody has full access
        return 1;
    }
    return ListGives(whole.From(listAt), rights, who);
}

OwnedSecurityDescriptor EveryoneFullAccess() {
    OwnedSecurityDescriptor descriptor;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(A;OICI;GA;;;WD)", SDDL_REVISION_1,
                                                              descriptor.Receive(), nullptr) ||
        !IsValidSecurityDescriptor(descriptor.Get())) {
        descriptor.Reset();
    }
    return descriptor;
}
