// The machine's registry: one tree for all processes, with types, access lists and last write times. The other rooms
// and the rehearsal read and write it here, by full paths such as 'HKLM\SYSTEM\CurrentControlSet\Enum', bypassing all
// access lists; the product's operations are in RegistryApi.cpp. Key names keep the spelling of their creator and
// compare without regard to case; subkeys are enumerated by name, values in order of creation.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/types.h"
#include "simwin/registry/Security.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct RegistryValue {
    std::string name; // "": the default value
    simwin::DWORD type = 0;
    std::vector<std::uint8_t> data; // texts in ANSI, with their zeros as they were stored
};

// Registry order of subkeys: by name in capitals.
struct KeyNameLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const;
};

class RegistryKey {
public:
    RegistryKey(std::string keyName, RegistryKey* keyParent) : name(std::move(keyName)), parent(keyParent) {}

    std::string Path() const; // full, with the spelling of each key
    const RegistryValue* FindValue(std::string_view valueName) const;

    const std::string name;
    RegistryKey* parent; // null for a root and for a deleted key
    bool deleted = false;
    bool isVolatile = false; // deleted when the machine goes off, with all below it
    std::uint64_t lastWrite = 0;
    std::string keyClass;
    std::map<std::string, std::shared_ptr<RegistryKey>, KeyNameLess> subKeys;
    std::vector<RegistryKey*> created; // the same keys in order of creation
    std::vector<RegistryValue> values; // in order of creation
    std::shared_ptr<const SecurityDescriptor> security;
    std::shared_ptr<const SecurityDescriptor> describedSecurity; // as the machine set it, before the product came
    std::shared_ptr<const SecurityDescriptor> handedDown;        // what new keys below it get; created when first
                                                                 // needed
};

// A write by a simulated process, in text form: `before` and `after` as ValueText gives them, "" for absent.
struct RegistryWrite {
    std::uint64_t atMs;
    std::string key, name, before, after;
};

class Registry {
public:
    Registry();

    // The key at a full path, or null. Both "HKLM" and "HKEY_LOCAL_MACHINE" name a root; "HKCU" is that of `user`,
    // which is the running thread's unless given. After HKU a user may be given by name. ControlSet001 is the same key
    // as CurrentControlSet.
    RegistryKey* FindKey(std::string_view path, std::string_view user = {});
    // Finds or creates it, with all missing keys above it.
    RegistryKey* CreateKey(std::string_view path, std::string_view user = {});
    bool DeleteTree(std::string_view path);

    std::string GetString(std::string_view path, std::string_view name, std::string_view absent = {});
    bool GetDword(std::string_view path, std::string_view name, simwin::DWORD& value);
    const RegistryValue* GetValue(std::string_view path, std::string_view name);
    void SetString(std::string_view path, std::string_view name, std::string_view text);
    void SetDword(std::string_view path, std::string_view name, simwin::DWORD value);
    void SetBinary(std::string_view path, std::string_view name, const std::vector<std::uint8_t>& data);
    void SetMulti(std::string_view path, std::string_view name, const std::vector<std::string>& texts);
    void SetValue(std::string_view path, std::string_view name, simwin::DWORD type, std::vector<std::uint8_t> data);
    bool DeleteValue(std::string_view path, std::string_view name);

    // Access lists. A protected key refuses everybody, the system account too, but lets administrators and the system
    // change its list; it takes nothing from its parent.
    void SetSecurity(std::string_view path, std::string_view sddl);
    void ProtectKey(std::string_view path);
    // Whether the list is what the machine set, whatever happened in between. False for a missing key.
    bool IsSecurityUnchanged(std::string_view path);

    // Steps on one key, for callers that hold it. Each moves the key's last write time. AddKey finds or makes one
    // subkey.
    RegistryKey* FindChild(RegistryKey* parent, std::string_view name);
    RegistryKey* AddKey(RegistryKey* parent, std::string_view name, std::string_view owner = SidAdministrators);
    void PutValue(RegistryKey* key, std::string_view name, simwin::DWORD type, std::vector<std::uint8_t> data);
    bool RemoveValue(RegistryKey* key, std::string_view name);
    void RemoveKey(RegistryKey* key); // with all below it

    // The machine goes off: volatile keys are gone, and those that drivers fill at each start are empty.
    void ForgetVolatile();

    // Watches writes by simulated processes (not those of the machine itself): values set and deleted.
    void WatchWrites(std::function<void(const RegistryWrite&)> watcher) { m_watcher = std::move(watcher); }
    void NoteWrite(const RegistryKey& key, std::string_view name, const RegistryValue* before,
                   const RegistryValue* after);

    RegistryKey* Root(std::string_view root, std::string_view user = {}); // null for a name that is not a root
    RegistryKey* LocalMachine() { return m_localMachine.get(); }
    RegistryKey* Users() { return m_users.get(); }

private:
    // The root of a path, or the user's key in 'HKU\LAB\anna\...' and 'HKU\SYSTEM\...'; removes its name from the path.
    RegistryKey* Start(std::string_view& path, std::string_view user);
    RegistryKey* UserKey(const Sid& sid); // created at the first use

    std::shared_ptr<RegistryKey> m_localMachine, m_users;
    std::function<void(const RegistryWrite&)> m_watcher;
};

// The registry of the current machine.
Registry& TheRegistry();

// A value for people: a text verbatim, a number in decimal, several texts with ';' between them, bytes as
// "01,0a,ff".
std::string ValueText(const RegistryValue& value);
// A stored text without its zeros.
std::string TextOf(const RegistryValue& value);
std::vector<std::uint8_t> TextBytes(std::string_view text); // with its zero

RoomPtr MakeRegistry();

} // namespace machine
