#include "simwin/registry/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <cstring>

namespace machine {

constexpr simwin::DWORD DeleteRight = 0x00010000;
constexpr simwin::DWORD UnknownRevision = 1305, InvalidAcl = 1336;
constexpr simwin::DWORD ViewFlags = simwin::KEY_WOW64_32KEY | simwin::KEY_WOW64_64KEY;
constexpr simwin::DWORD KnownRights = 0x001F003F | ViewFlags | simwin::MAXIMUM_ALLOWED | 0xF0000000;

namespace {
// The object behind a key's handle. The key may be deleted meanwhile.
struct OpenKey : Object {
    explicit OpenKey(std::shared_ptr<RegistryKey> opened) : Object(ObjectKind::RegistryKey), key(std::move(opened)) {}
    std::shared_ptr<RegistryKey> key;
};
} // namespace

// The low half of a root's handle alone says which it is.
static simwin::DWORD RootNumber(simwin::HKEY handle) {
    return static_cast<simwin::DWORD>(reinterpret_cast<simwin::ULONG_PTR>(handle));
}

constexpr simwin::DWORD FirstRoot = 0x80000000;
constexpr const char* RootTexts[] = {"HKCR", "HKCU", "HKLM", "HKU"};

static bool IsPredefined(simwin::HKEY handle) {
    return RootNumber(handle) >= FirstRoot && RootNumber(handle) - FirstRoot < std::size(RootTexts);
}

static const char* RootText(simwin::HKEY handle) {
    return RootTexts[RootNumber(handle) - FirstRoot];
}

static bool IsClassesRoot(simwin::HKEY handle) {
    return RootNumber(handle) == RootNumber(HKEY_CLASSES_ROOT);
}

namespace {
// The key behind a handle with the rights that it was opened with, or an error.
struct KeyUse {
    RegistryKey* key = nullptr;
    simwin::DWORD access = 0;
    simwin::LONG error = 0;
};
} // namespace

static KeyUse UseKey(simwin::HKEY handle, simwin::DWORD needed) {
    KeyUse use;
    if (IsPredefined(handle)) {
        use.key = TheRegistry().Root(RootText(handle));
        use.access = GrantedAccess(*use.key->security, CurrentCaller(), simwin::MAXIMUM_ALLOWED, KeyMapping);
    } else {
        const HandleEntry* entry = CurrentProcess()->handles.Entry(handle);
        if (!entry || entry->object->kind != ObjectKind::RegistryKey) {
            use.error = simwin::ERROR_INVALID_HANDLE;
            return use;
        }
        use.key = static_cast<OpenKey*>(entry->object.Get())->key.get();
        use.access = entry->access;
    }
    if (use.key->deleted) {
        use.error = simwin::ERROR_KEY_DELETED;
    } else if ((use.access & needed) != needed) {
        use.error = simwin::ERROR_ACCESS_DENIED;
    }
    return use;
}

namespace {
// What a call is applied to: the key's path and, after a backslash, a name. Lives on the stack of the call, so it has
// no destructor.
struct CallObject {
    char text[768];

    explicit CallObject(simwin::HKEY handle, const char* name = nullptr) {
        text[0] = 0;
        if (IsPredefined(handle)) {
            Append(RootText(handle));
        } else if (const auto* open = FromHandle<OpenKey>(handle, ObjectKind::RegistryKey)) {
            AppendPath(*open->key);
        }
        if (!name || !*name) {
            return;
        }
        Append("\\");
        Append(name);
    }
    void AppendPath(const RegistryKey& key) {
        if (key.parent) {
            AppendPath(*key.parent);
            Append("\\");
        }
        Append(key.name.c_str());
    }
    void Append(const char* part) {
        const std::size_t length = strlen(text);
        const std::size_t more = std::min(strlen(part), sizeof text - 1 - length);
        memcpy(text + length, part, more);
        text[length + more] = 0;
    }
};
} // namespace

// The view selected by a call. Only x64 Windows has two.
static bool Is32BitView(simwin::DWORD access) {
    const Setup& setup = TheSetup();
    if (!setup.x64Windows || (access & simwin::KEY_WOW64_64KEY)) {
        return false;
    }
    return (access & simwin::KEY_WOW64_32KEY) || !setup.productIsX64;
}

// Parts of HKLM\SOFTWARE that both views share.
constexpr const char* SharedParts[] = {"Classes",
                                       "Clients",
                                       "Policies",
                                       "RegisteredApplications",
                                       "Wow6432Node",
                                       "Microsoft\\Windows\\CurrentVersion\\Group Policy",
                                       "Microsoft\\Windows\\CurrentVersion\\Policies",
                                       "Microsoft\\Windows\\CurrentVersion\\Setup",
                                       "Microsoft\\Windows NT\\CurrentVersion\\Ports",
                                       "Microsoft\\Windows NT\\CurrentVersion\\ProfileList"};

static bool IsBelow(std::string_view path, std::string_view top) {
    return StartsWithNoCase(path, top) && (path.size() == top.size() || path[top.size()] == '\\');
}

// A subkey's path as the 32-bit view means it, seen from HKLM.
static std::string Redirected(std::string_view path) {
    constexpr std::string_view Software = "SOFTWARE";
    if (!IsBelow(path, Software)) {
        return std::string(path);
    }
    const std::string_view rest = path.size() > Software.size() ? path.substr(Software.size() + 1) : std::string_view();
    for (const char* shared : SharedParts) {
        if (IsBelow(rest, shared)) {
            return std::string(path);
        }
    }
    return rest.empty() ? "SOFTWARE\\Wow6432Node" : "SOFTWARE\\Wow6432Node\\" + std::string(rest);
}

// A subkey's path from the key that it is looked for from. A handle below HKLM keeps the view in which it was opened
// unless the call names the other one.
static std::string SubPath(RegistryKey*& base, const char* subKey, simwin::DWORD access) {
    constexpr std::string_view Machine = "HKLM\\";
    const std::string path = subKey ? subKey : "";
    RegistryKey* localMachine = TheRegistry().LocalMachine();
    if (!Is32BitView(access)) {
        return path;
    }
    if (base == localMachine) {
        return Redirected(path);
    }
    const std::string from = base->Path();
    if (!(access & simwin::KEY_WOW64_32KEY) || !from.starts_with(Machine)) {
        return path;
    }
    base = localMachine;
    return Redirected(from.substr(Machine.size()) + "\\" + path);
}

static RegistryKey* FindBelow(RegistryKey* base, std::string_view path) {
    while (base && !path.empty()) {
        const std::size_t end = path.find('\\');
        const std::string_view name = path.substr(0, end);
        path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
        if (!name.empty()) {
            base = TheRegistry().FindChild(base, name);
        }
    }
    return base;
}

// The user's own class, which takes precedence over the machine's; null without one.
static RegistryKey* OwnClass(std::string_view path) {
    return FindBelow(TheRegistry().FindKey("HKCU\\Software\\Classes"), path);
}

static std::shared_ptr<RegistryKey> Shared(RegistryKey* key) {
    if (key->parent) {
        return key->parent->subKeys.find(std::string_view(key->name))->second;
    }
    return std::shared_ptr<RegistryKey>(key, [](RegistryKey*) {}); // a root lives as long as the registry
}

static simwin::LONG OpenHandle(RegistryKey* key, simwin::DWORD access, simwin::HKEY* result) {
    const simwin::DWORD granted = GrantedAccess(*key->security, CurrentCaller(), access & ~ViewFlags, KeyMapping);
    if (!granted) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    auto* open = new OpenKey(Shared(key));
    *result = static_cast<simwin::HKEY>(CurrentProcess()->handles.Open(open, granted));
    return simwin::ERROR_SUCCESS;
}

// The common beginning of RegOpenKeyExA and RegCreateKeyExA.
static simwin::LONG CheckOpening(simwin::HKEY key, const char* subKey, simwin::DWORD access, simwin::HKEY* result) {
    if (!result || (access & ViewFlags) == ViewFlags) {
        return simwin::ERROR_INVALID_PARAMETER;
    }
    if (access & ~KnownRights) {
        NotModelled("registry", "access rights of another kind");
    }
    if (subKey && *subKey == '\\' && !IsClassesRoot(key)) {
        *result = nullptr;
        return simwin::ERROR_BAD_PATHNAME;
    }
    return simwin::ERROR_SUCCESS;
}

static bool IsText(simwin::DWORD type) {
    return type == simwin::REG_SZ || type == simwin::REG_EXPAND_SZ || type == simwin::REG_MULTI_SZ;
}

// Copies the stored data of a value to a caller's buffer.
static simwin::LONG GiveData(const RegistryValue& value, simwin::BYTE* data, simwin::DWORD* size) {
    if (!size) {
        return simwin::ERROR_SUCCESS;
    }
    const auto needed = static_cast<simwin::DWORD>(value.data.size());
    const simwin::DWORD room = *size;
    *size = needed;
    if (!data) {
        return simwin::ERROR_SUCCESS;
    }
    if (room < needed) {
        return simwin::ERROR_MORE_DATA;
    }
    if (needed) {
        memcpy(data, value.data.data(), needed);
    }
    if (room > needed && IsText(value.type) && (needed == 0 || value.data.back() != 0)) {
        data[needed] = 0;
    }
    return simwin::ERROR_SUCCESS;
}

// Returns a name with its zero. `chars` is the room, and then the length without the zero; it stays if there is no
// room.
static simwin::LONG GiveName(const std::string& name, char* text, simwin::DWORD* chars) {
    if (!text || !chars) {
        return simwin::ERROR_INVALID_PARAMETER;
    }
    if (*chars < name.size() + 1) {
        return simwin::ERROR_MORE_DATA;
    }
    memcpy(text, name.c_str(), name.size() + 1);
    *chars = static_cast<simwin::DWORD>(name.size());
    return simwin::ERROR_SUCCESS;
}

static simwin::FILETIME ToFileTime(std::uint64_t time) {
    return {static_cast<simwin::DWORD>(time), static_cast<simwin::DWORD>(time >> 32)};
}

template<typename T>
static void Give(T* to, std::size_t value) {
    if (to) {
        *to = static_cast<T>(value);
    }
}

static simwin::LONG AsResult(simwin::DWORD error) {
    return static_cast<simwin::LONG>(error);
}

} // namespace machine

namespace simwin {

using namespace machine;

LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD options, REGSAM access, PHKEY result) {
    const CallObject object(key, subKey);
    SIM_CALL("RegOpenKeyExA", object.text, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE,
             ERROR_KEY_DELETED);
    if (options) {
        NotModelled("RegOpenKeyExA", "options");
    }
    if (const LONG error = CheckOpening(key, subKey, access, result)) {
        return error;
    }
    if (simCall.error) {
        *result = nullptr;
        return AsResult(simCall.error);
    }
    if ((!key && !subKey) || (IsPredefined(key) && (!subKey || !*subKey))) { // the root itself
        *result = key;
        return ERROR_SUCCESS;
    }
    const KeyUse base = UseKey(key, 0);
    if (base.error == ERROR_INVALID_HANDLE) {
        return base.error;
    }
    *result = nullptr;
    if (base.error) {
        return base.error;
    }
    RegistryKey* found = IsClassesRoot(key) ? OwnClass(subKey) : nullptr;
    RegistryKey* from = base.key;
    if (!found) {
        found = FindBelow(from, SubPath(from, subKey, access));
    }
    if (!found) {
        return ERROR_FILE_NOT_FOUND;
    }
    return OpenHandle(found, access, result);
}

LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD reserved, LPSTR keyClass, DWORD options, REGSAM access,
                     const SECURITY_ATTRIBUTES* security, PHKEY result, LPDWORD disposition) {
    const CallObject object(key, subKey);
    SIM_CALL("RegCreateKeyExA", object.text, ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    if (const LONG error = CheckOpening(key, subKey, access, result)) {
        return error;
    }
    *result = nullptr;
    if (reserved) {
        return ERROR_INVALID_PARAMETER;
    }
    if (options & ~REG_OPTION_VOLATILE) {
        NotModelled("RegCreateKeyExA", "options other than volatile");
    }
    if (security && security->lpSecurityDescriptor) {
        NotModelled("RegCreateKeyExA", "an access list of its own");
    }
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    const KeyUse base = UseKey(key, 0);
    if (base.error) {
        return base.error;
    }
    RegistryKey* at = base.key;
    const std::string path = SubPath(at, subKey, access);
    if (RegistryKey* found = FindBelow(at, path)) {
        Give(disposition, REG_OPENED_EXISTING_KEY);
        return OpenHandle(found, access, result);
    }
    const Caller caller = CurrentCaller();
    const Sid owner = caller.Is(SidAdministrators) ? Sid(SidAdministrators) : caller.user;
    for (const std::string& name : Split(path, '\\')) {
        if (name.empty()) {
            continue;
        }
        if (RegistryKey* found = TheRegistry().FindChild(at, name)) {
            at = found;
            continue;
        }
        if (!GrantedAccess(*at->security, caller, KEY_CREATE_SUB_KEY, KeyMapping)) {
            return ERROR_ACCESS_DENIED;
        }
        const bool isVolatile = options & REG_OPTION_VOLATILE;
        if (at->isVolatile && !isVolatile) {
            return ERROR_CHILD_MUST_BE_VOLATILE;
        }
        at = TheRegistry().AddKey(at, name, owner);
        at->isVolatile = isVolatile;
    }
    if (keyClass) {
        at->keyClass = keyClass;
    }
    Give(disposition, REG_CREATED_NEW_KEY);
    return OpenHandle(at, access, result);
}

LONG RegCloseKey(HKEY key) {
    const CallObject object(key);
    SIM_CALL("RegCloseKey", object.text);
    if (IsPredefined(key)) {
        return ERROR_SUCCESS;
    }
    HandleTable& handles = CurrentProcess()->handles;
    if (!handles.Find(key, ObjectKind::RegistryKey)) {
        return ERROR_INVALID_HANDLE;
    }
    handles.Close(key);
    return ERROR_SUCCESS;
}

LONG RegQueryValueExA(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) {
    const CallObject object(key, name);
    SIM_CALL("RegQueryValueExA", object.text, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_MORE_DATA,
             ERROR_KEY_DELETED);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    if ((data && !size) || reserved) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyUse use = UseKey(key, KEY_QUERY_VALUE);
    if (use.error) {
        return use.error;
    }
    const RegistryValue* value = use.key->FindValue(name ? name : "");
    if (!value) {
        if (!data) {
            Give(size, 0);
        }
        return ERROR_FILE_NOT_FOUND;
    }
    const DWORD room = size ? *size : 0; // read first: type and size may be one variable
    Give(type, value->type);
    Give(size, room);
    return GiveData(*value, data, size);
}

LONG RegSetValueExA(HKEY key, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) {
    const CallObject object(key, name);
    SIM_CALL("RegSetValueExA", object.text, ERROR_ACCESS_DENIED, ERROR_KEY_DELETED, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    if (size && !data) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyUse use = UseKey(key, KEY_SET_VALUE);
    if (use.error) {
        return use.error;
    }
    const char* valueName = name ? name : "";
    std::vector<std::uint8_t> bytes(data, data + size);
    if ((type == REG_SZ || type == REG_EXPAND_SZ) && size && data[size - 1] != 0 && data[size] == 0) {
        bytes.push_back(0);
    }
    const RegistryValue* found = use.key->FindValue(valueName);
    const RegistryValue before = found ? *found : RegistryValue{};
    TheRegistry().PutValue(use.key, valueName, type, std::move(bytes));
    TheRegistry().NoteWrite(*use.key, valueName, found ? &before : nullptr, use.key->FindValue(valueName));
    return ERROR_SUCCESS;
}

LONG RegDeleteValueA(HKEY key, LPCSTR name) {
    const CallObject object(key, name);
    SIM_CALL("RegDeleteValueA", object.text, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_KEY_DELETED);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    const KeyUse use = UseKey(key, KEY_SET_VALUE);
    if (use.error) {
        return use.error;
    }
    const RegistryValue* found = use.key->FindValue(name ? name : "");
    if (!found) {
        return ERROR_FILE_NOT_FOUND;
    }
    const RegistryValue before = *found;
    TheRegistry().RemoveValue(use.key, before.name);
    TheRegistry().NoteWrite(*use.key, before.name, &before, nullptr);
    return ERROR_SUCCESS;
}

LONG RegDeleteKeyA(HKEY key, LPCSTR subKey) {
    const CallObject object(key, subKey);
    SIM_CALL("RegDeleteKeyA", object.text, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    if (!subKey) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyUse base = UseKey(key, 0);
    if (base.error) {
        return base.error;
    }
    RegistryKey* from = base.key;
    RegistryKey* found = FindBelow(from, SubPath(from, subKey, 0));
    if (!found) {
        return ERROR_FILE_NOT_FOUND;
    }
    const bool allowed = GrantedAccess(*found->security, CurrentCaller(), DeleteRight, KeyMapping);
    if (!allowed || !found->subKeys.empty() || !found->parent) {
        return ERROR_ACCESS_DENIED;
    }
    TheRegistry().RemoveKey(found);
    return ERROR_SUCCESS;
}

LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameChars, LPDWORD, LPSTR keyClass, LPDWORD classChars,
                   FILETIME* lastWrite) {
    const CallObject object(key);
    SIM_CALL("RegEnumKeyExA", object.text, ERROR_ACCESS_DENIED, ERROR_KEY_DELETED, ERROR_NO_MORE_ITEMS);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    const KeyUse use = UseKey(key, KEY_ENUMERATE_SUB_KEYS);
    if (use.error) {
        return use.error;
    }
    if (index >= use.key->subKeys.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    const RegistryKey& found = *std::next(use.key->subKeys.begin(), static_cast<int>(index))->second;
    if (const LONG error = GiveName(found.name, name, nameChars)) {
        return error;
    }
    if (const LONG error = keyClass ? GiveName(found.keyClass, keyClass, classChars) : ERROR_SUCCESS) {
        return error;
    }
    if (lastWrite) {
        *lastWrite = ToFileTime(found.lastWrite);
    }
    return ERROR_SUCCESS;
}

LONG RegEnumValueA(HKEY key, DWORD index, LPSTR name, LPDWORD nameChars, LPDWORD, LPDWORD type, LPBYTE data,
                   LPDWORD size) {
    const CallObject object(key);
    SIM_CALL("RegEnumValueA", object.text, ERROR_ACCESS_DENIED, ERROR_KEY_DELETED, ERROR_NO_MORE_ITEMS,
             ERROR_MORE_DATA);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    if (data && !size) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyUse use = UseKey(key, KEY_QUERY_VALUE);
    if (use.error) {
        return use.error;
    }
    if (index >= use.key->values.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    const RegistryValue& value = use.key->values[index];
    Give(type, value.type);
    if (!name || !nameChars) {
        return ERROR_INVALID_PARAMETER;
    }
    const bool fits = *nameChars > value.name.size() && (!data || *size >= value.data.size());
    if (!fits) { // the size that the data needs; name and count stay as they were
        Give(size, value.data.size());
        return ERROR_MORE_DATA;
    }
    GiveName(value.name, name, nameChars);
    return GiveData(value, data, size);
}

LONG RegQueryInfoKeyA(HKEY key, LPSTR keyClass, LPDWORD classChars, LPDWORD, LPDWORD subKeys, LPDWORD maxSubKeyChars,
                      LPDWORD maxClassChars, LPDWORD values, LPDWORD maxNameChars, LPDWORD maxDataBytes,
                      LPDWORD securityBytes, FILETIME* lastWrite) {
    const CallObject object(key);
    SIM_CALL("RegQueryInfoKeyA", object.text, ERROR_ACCESS_DENIED, ERROR_KEY_DELETED);
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    const KeyUse use = UseKey(key, KEY_QUERY_VALUE);
    if (use.error) {
        return use.error;
    }
    if (const LONG error = keyClass ? GiveName(use.key->keyClass, keyClass, classChars) : ERROR_SUCCESS) {
        return error;
    }
    std::size_t longestKey = 0, longestClass = 0, longestName = 0, longestData = 0;
    for (const auto& [name, subKey] : use.key->subKeys) {
        longestKey = std::max(longestKey, name.size());
        longestClass = std::max(longestClass, subKey->keyClass.size());
    }
    for (const RegistryValue& value : use.key->values) {
        longestName = std::max(longestName, value.name.size());
        longestData = std::max(longestData, value.data.size() * (IsText(value.type) ? sizeof(WCHAR) : 1));
    }
    Give(subKeys, use.key->subKeys.size());
    Give(maxSubKeyChars, longestKey);
    Give(maxClassChars, longestClass);
    Give(values, use.key->values.size());
    Give(maxNameChars, longestName);
    Give(maxDataBytes, longestData);
    if (securityBytes) {
        *securityBytes = static_cast<DWORD>(ToBinary(*use.key->security).size());
    }
    if (lastWrite) {
        *lastWrite = ToFileTime(use.key->lastWrite);
    }
    return ERROR_SUCCESS;
}

LONG RegGetKeySecurity(HKEY key, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor, LPDWORD size) {
    const CallObject object(key);
    SIM_CALL("RegGetKeySecurity", object.text, ERROR_ACCESS_DENIED, ERROR_INSUFFICIENT_BUFFER);
    if (what & ~(OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION)) {
        NotModelled("RegGetKeySecurity", "parts other than owner, group and access list");
    }
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    if (!size) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyUse use = UseKey(key, READ_CONTROL);
    if (use.error) {
        return use.error;
    }
    SecurityDescriptor part = *use.key->security;
    if (!(what & OWNER_SECURITY_INFORMATION)) {
        part.owner.clear();
    }
    if (!(what & GROUP_SECURITY_INFORMATION)) {
        part.group.clear();
    }
    if (!(what & DACL_SECURITY_INFORMATION)) {
        part.hasDacl = part.isProtected = part.autoInherited = false;
        part.dacl.clear();
    }
    const std::vector<std::uint8_t> bytes = ToBinary(part);
    const DWORD room = *size;
    *size = static_cast<DWORD>(bytes.size());
    if (room < bytes.size()) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (!descriptor) {
        return ERROR_INVALID_PARAMETER;
    }
    memcpy(descriptor, bytes.data(), bytes.size());
    return ERROR_SUCCESS;
}

// How far a descriptor may be read: to the end of its heap block, if it is one.
static std::size_t BytesBehind(const void* block) {
    return CurrentProcess()->heap.Size(block); // all there is if it is no block
}

LONG RegSetKeySecurity(HKEY key, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor) {
    const CallObject object(key);
    SIM_CALL("RegSetKeySecurity", object.text, ERROR_ACCESS_DENIED);
    if (what != DACL_SECURITY_INFORMATION) {
        NotModelled("RegSetKeySecurity", "parts other than the access list");
    }
    if (simCall.error) {
        return AsResult(simCall.error);
    }
    if (!descriptor) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyUse use = UseKey(key, WRITE_DAC);
    if (use.error) {
        return use.error;
    }
    const auto given = ParseBinary(descriptor, BytesBehind(descriptor));
    if (!given) {
        return ERROR_INVALID_PARAMETER;
    }
    auto changed = std::make_shared<SecurityDescriptor>(*use.key->security);
    changed->hasDacl = given->hasDacl;
    changed->isProtected = given->isProtected;
    changed->autoInherited = given->autoInherited;
    changed->dacl = given->dacl;
    use.key->security = std::move(changed);
    use.key->handedDown = nullptr;
    return ERROR_SUCCESS;
}

BOOL ConvertStringSecurityDescriptorToSecurityDescriptorA(LPCSTR text, DWORD revision, PSECURITY_DESCRIPTOR* result,
                                                          PULONG size) {
    SIM_CALL("ConvertStringSecurityDescriptorToSecurityDescriptorA", text, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    if (!text || !result || revision != SDDL_REVISION_1) {
        SetError(text && result ? UnknownRevision : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    bool isListBad = false;
    const auto parsed = ParseSddl(text, &isListBad);
    if (!parsed) {
        SetError(isListBad ? InvalidAcl : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::vector<std::uint8_t> bytes = ToBinary(*parsed);
    void* block = CurrentProcess()->heap.Allocate(bytes.size(), "ConvertStringSecurityDescriptorToSecurityDescriptorA");
    memcpy(block, bytes.data(), bytes.size());
    *result = block;
    if (size) {
        *size = static_cast<ULONG>(bytes.size());
    }
    return TRUE;
}

BOOL IsValidSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    SIM_CALL("IsValidSecurityDescriptor", "");
    return descriptor && ParseBinary(descriptor, BytesBehind(descriptor)) ? TRUE : FALSE;
}

} // namespace simwin
