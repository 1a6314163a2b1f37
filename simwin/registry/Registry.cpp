#include "simwin/registry/Registry.h"

#include "simwin/kernel/Clock.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace machine {

static Registry* g_registry;
RoomPtr MakeRegistry() {
    return MakeRoom(g_registry);
}

// Administrators and the system may do everything, everybody may read; passed on to all keys below.
constexpr const char* MachineSddl = "O:BAG:SYD:(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;WD)";
// Administrators and the system may read and change the list, and nothing else.
constexpr const char* ProtectedSddl = "O:BAG:SYD:P(A;CI;RCWD;;;SY)(A;CI;RCWD;;;BA)";

namespace {
struct RootName {
    const char* name;
    const char* shortName;
};
} // namespace
constexpr RootName ClassesRoot = {"HKEY_CLASSES_ROOT", "HKCR"};
constexpr RootName CurrentUser = {"HKEY_CURRENT_USER", "HKCU"};
constexpr RootName LocalMachineRoot = {"HKEY_LOCAL_MACHINE", "HKLM"};
constexpr RootName UsersRoot = {"HKEY_USERS", "HKU"};

static bool IsRoot(std::string_view text, const RootName& root) {
    return EqualNoCase(text, root.name) || EqualNoCase(text, root.shortName);
}

static std::shared_ptr<const SecurityDescriptor> FromSddl(std::string_view text) {
    const auto parsed = ParseSddl(text);
    if (!parsed) {
        StopRun(Verdict::BrokenRule, "registry: not a security descriptor: " + std::string(text));
    }
    return std::make_shared<const SecurityDescriptor>(*parsed);
}

// Removes the first name from a path; empty names (doubled backslashes) are skipped.
static std::string_view TakeName(std::string_view& path) {
    while (path.starts_with('\\')) {
        path.remove_prefix(1);
    }
    const std::size_t end = path.find('\\');
    const std::string_view name = path.substr(0, end);
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
    return name;
}

static bool IsAlwaysCurrentSet(const RegistryKey& parent, std::string_view name, const RegistryKey* localMachine) {
    return parent.parent == localMachine && EqualNoCase(name, "ControlSet001") && EqualNoCase(parent.name, "SYSTEM");
}

static std::shared_ptr<const SecurityDescriptor> HandedDown(RegistryKey& key, std::string_view owner) {
    if (!key.handedDown) {
        SecurityDescriptor made = InheritFrom(*key.security, true, key.security->owner);
        key.handedDown =
            made == *key.security ? key.security : std::make_shared<const SecurityDescriptor>(std::move(made));
    }
    if (owner == key.handedDown->owner) {
        return key.handedDown;
    }
    return std::make_shared<const SecurityDescriptor>(InheritFrom(*key.security, true, owner));
}

bool KeyNameLess::operator()(std::string_view a, std::string_view b) const {
    const auto capital = [](char c) { return static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 32 : c); };
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] != b[i] && capital(a[i]) != capital(b[i])) {
            return capital(a[i]) < capital(b[i]);
        }
    }
    return a.size() < b.size();
}

std::string RegistryKey::Path() const {
    return parent ? parent->Path() + "\\" + name : name;
}

const RegistryValue* RegistryKey::FindValue(std::string_view valueName) const {
    for (const RegistryValue& value : values) {
        if (EqualNoCase(value.name, valueName)) {
            return &value;
        }
    }
    return nullptr;
}

// What Windows says about itself, in both views.
static void DescribeVersion(Registry& registry) {
    struct Product {
        unsigned version;
        const char* name;
    };
    constexpr Product Products[] = {{0x0A00, "Windows 10 Pro"},
                                    {0x0603, "Windows 8.1 Pro"},
                                    {0x0602, "Windows 8 Pro"},
                                    {0x0601, "Windows 7 Professional"},
                                    {0x0600, "Windows Vista (TM) Business"},
                                    {0x0502, "Microsoft Windows Server 2003"},
                                    {0x0501, "Microsoft Windows XP"},
                                    {0, "Microsoft Windows 2000"}};
    const WindowsVersion& version = TheSetup().version;
    const char* product = nullptr;
    for (const Product& row : Products) {
        if (!product && version.Packed() >= row.version) {
            product = row.name;
        }
    }
    for (const char* view : {"HKLM\\SOFTWARE\\", "HKLM\\SOFTWARE\\Wow6432Node\\"}) {
        const std::string key = std::string(view) + "Microsoft\\Windows NT\\CurrentVersion";
        if (!registry.FindKey(std::string(view) + "Microsoft")) {
            continue;
        }
        registry.SetString(key, "ProductName", product);
        registry.SetString(key, "CurrentBuild", std::to_string(version.build));
        if (version.major < 10) {
            continue;
        }
        registry.SetString(key, "ReleaseId", "2009");
        registry.SetString(key, "DisplayVersion", "22H2");
        registry.SetDword(key, "UBR", 4046);
    }
}

Registry::Registry()
    : m_localMachine(std::make_shared<RegistryKey>("HKLM", nullptr)),
      m_users(std::make_shared<RegistryKey>("HKU", nullptr)) {
    for (const auto& root : {m_localMachine, m_users}) {
        root->security = root->describedSecurity = FromSddl(MachineSddl);
        root->lastWrite = FileTimeNow();
    }
    for (const char* path : {"HKLM\\HARDWARE\\DEVICEMAP", "HKLM\\SOFTWARE\\Classes", "HKLM\\SOFTWARE\\Microsoft",
                             "HKLM\\SYSTEM\\CurrentControlSet\\Control", "HKLM\\SYSTEM\\CurrentControlSet\\Services"}) {
        CreateKey(path);
    }
    if (TheSetup().x64Windows) {
        CreateKey("HKLM\\SOFTWARE\\Wow6432Node\\Microsoft");
    }
    DescribeVersion(*this);
}

RegistryKey* Registry::Root(std::string_view root, std::string_view user) {
    if (IsRoot(root, LocalMachineRoot)) {
        return m_localMachine.get();
    }
    if (IsRoot(root, UsersRoot)) {
        return m_users.get();
    }
    if (IsRoot(root, ClassesRoot)) {
        return CreateKey("HKLM\\SOFTWARE\\Classes");
    }
    if (!IsRoot(root, CurrentUser)) {
        return nullptr;
    }
    if (!user.empty()) {
        return UserKey(SidOfAccount(user));
    }
    return UserKey(CurrentThread() ? CurrentCaller().user : SidSystem);
}

RegistryKey* Registry::UserKey(const Sid& sid) {
    if (RegistryKey* key = FindChild(m_users.get(), sid)) {
        return key;
    }
    RegistryKey* key = AddKey(m_users.get(), sid);
    key->security = key->describedSecurity =
        FromSddl("O:" + sid + "G:SYD:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KA;;;" + sid + ")");
    key->handedDown = nullptr;
    AddKey(key, "Software");
    return key;
}

RegistryKey* Registry::FindChild(RegistryKey* parent, std::string_view name) {
    if (IsAlwaysCurrentSet(*parent, name, m_localMachine.get())) {
        name = "CurrentControlSet";
    }
    const auto found = parent->subKeys.find(name);
    return found == parent->subKeys.end() ? nullptr : found->second.get();
}

RegistryKey* Registry::AddKey(RegistryKey* parent, std::string_view name, std::string_view owner) {
    if (IsAlwaysCurrentSet(*parent, name, m_localMachine.get())) {
        name = "CurrentControlSet";
    }
    const auto [place, isNew] = parent->subKeys.try_emplace(std::string(name));
    if (!isNew) {
        return place->second.get();
    }
    place->second = std::make_shared<RegistryKey>(std::string(name), parent);
    RegistryKey* key = place->second.get();
    key->lastWrite = parent->lastWrite = FileTimeNow();
    key->security = key->describedSecurity = HandedDown(*parent, owner);
    parent->created.push_back(key);
    return key;
}

RegistryKey* Registry::Start(std::string_view& path, std::string_view user) {
    RegistryKey* key = Root(TakeName(path), user);
    if (key != m_users.get()) {
        return key;
    }
    std::string_view rest = path;
    std::string account(TakeName(rest));
    if (account.empty() || account.starts_with("S-1-") || account.starts_with('.')) {
        return key;
    }
    if (!EqualNoCase(account, "SYSTEM")) {
        account += "\\" + std::string(TakeName(rest));
    }
    path = rest;
    return UserKey(SidOfAccount(account));
}

RegistryKey* Registry::FindKey(std::string_view path, std::string_view user) {
    RegistryKey* key = Start(path, user);
    while (key && !path.empty()) {
        const std::string_view name = TakeName(path);
        if (!name.empty()) {
            key = FindChild(key, name);
        }
    }
    return key;
}

RegistryKey* Registry::CreateKey(std::string_view path, std::string_view user) {
    RegistryKey* key = Start(path, user);
    while (key && !path.empty()) {
        const std::string_view name = TakeName(path);
        if (!name.empty()) {
            key = AddKey(key, name);
        }
    }
    return key;
}

void Registry::RemoveKey(RegistryKey* key) {
    while (!key->created.empty()) {
        RemoveKey(key->created.back());
    }
    key->deleted = true;
    RegistryKey* parent = key->parent;
    if (!parent) {
        return;
    }
    key->parent = nullptr;
    std::erase(parent->created, key);
    parent->lastWrite = FileTimeNow();
    parent->subKeys.erase(parent->subKeys.find(std::string_view(key->name))); // the key may be gone after this line
}

bool Registry::DeleteTree(std::string_view path) {
    RegistryKey* key = FindKey(path);
    if (!key || !key->parent) {
        return false;
    }
    RemoveKey(key);
    return true;
}

const RegistryValue* Registry::GetValue(std::string_view path, std::string_view name) {
    const RegistryKey* key = FindKey(path);
    return key ? key->FindValue(name) : nullptr;
}

std::string Registry::GetString(std::string_view path, std::string_view name, std::string_view absent) {
    const RegistryValue* value = GetValue(path, name);
    return value ? TextOf(*value) : std::string(absent);
}

bool Registry::GetDword(std::string_view path, std::string_view name, simwin::DWORD& value) {
    const RegistryValue* found = GetValue(path, name);
    if (!found || found->type != simwin::DWORD{4} || found->data.size() != sizeof value) {
        return false;
    }
    std::memcpy(&value, found->data.data(), sizeof value);
    return true;
}

void Registry::PutValue(RegistryKey* key, std::string_view name, simwin::DWORD type, std::vector<std::uint8_t> data) {
    key->lastWrite = FileTimeNow();
    for (RegistryValue& value : key->values) {
        if (!EqualNoCase(value.name, name)) {
            continue;
        }
        value.type = type;
        value.data = std::move(data);
        return;
    }
    key->values.push_back({std::string(name), type, std::move(data)});
}

bool Registry::RemoveValue(RegistryKey* key, std::string_view name) {
    const auto removed = std::erase_if(key->values, [&](const RegistryValue& v) { return EqualNoCase(v.name, name); });
    if (removed) {
        key->lastWrite = FileTimeNow();
    }
    return removed != 0;
}

static void RemoveVolatileBelow(Registry& registry, RegistryKey& key) {
    const std::vector<RegistryKey*> children = key.created;
    for (RegistryKey* child : children) {
        if (child->isVolatile) {
            registry.RemoveKey(child);
        } else {
            RemoveVolatileBelow(registry, *child);
        }
    }
}

void Registry::ForgetVolatile() {
    for (RegistryKey* root : {LocalMachine(), Users()}) {
        RemoveVolatileBelow(*this, *root);
    }
    DeleteTree("HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM");
    CreateKey("HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM");
}

void Registry::SetValue(std::string_view path, std::string_view name, simwin::DWORD type,
                        std::vector<std::uint8_t> data) {
    PutValue(CreateKey(path), name, type, std::move(data));
}

void Registry::SetString(std::string_view path, std::string_view name, std::string_view text) {
    SetValue(path, name, /*REG_SZ*/ 1, TextBytes(text));
}

void Registry::SetDword(std::string_view path, std::string_view name, simwin::DWORD value) {
    std::vector<std::uint8_t> data(sizeof value);
    std::memcpy(data.data(), &value, sizeof value);
    SetValue(path, name, /*REG_DWORD*/ 4, std::move(data));
}

void Registry::SetBinary(std::string_view path, std::string_view name, const std::vector<std::uint8_t>& data) {
    SetValue(path, name, /*REG_BINARY*/ 3, data);
}

void Registry::SetMulti(std::string_view path, std::string_view name, const std::vector<std::string>& texts) {
    std::vector<std::uint8_t> data;
    for (const std::string& text : texts) {
        const std::vector<std::uint8_t> bytes = TextBytes(text);
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    data.push_back(0);
    SetValue(path, name, /*REG_MULTI_SZ*/ 7, std::move(data));
}

bool Registry::DeleteValue(std::string_view path, std::string_view name) {
    RegistryKey* key = FindKey(path);
    return key && RemoveValue(key, name);
}

void Registry::SetSecurity(std::string_view path, std::string_view sddl) {
    RegistryKey* key = CreateKey(path);
    key->security = key->describedSecurity = FromSddl(sddl);
    key->handedDown = nullptr;
}

void Registry::ProtectKey(std::string_view path) {
    SetSecurity(path, ProtectedSddl);
}

bool Registry::IsSecurityUnchanged(std::string_view path) {
    const RegistryKey* key = FindKey(path);
    if (!key) {
        return false;
    }
    const SecurityDescriptor &now = *key->security, &before = *key->describedSecurity;
    return now.hasDacl == before.hasDacl && now.isProtected == before.isProtected && now.dacl == before.dacl;
}

void Registry::NoteWrite(const RegistryKey& key, std::string_view name, const RegistryValue* before,
                         const RegistryValue* after) {
    if (m_watcher) {
        m_watcher({Now(), key.Path(), std::string(name), before ? ValueText(*before) : std::string(),
                   after ? ValueText(*after) : std::string()});
    }
}

Registry& TheRegistry() {
    return *g_registry;
}

std::string TextOf(const RegistryValue& value) {
    const char* start = reinterpret_cast<const char*>(value.data.data());
    return std::string(start, strnlen(start, value.data.size()));
}

std::vector<std::uint8_t> TextBytes(std::string_view text) {
    std::vector<std::uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

std::string ValueText(const RegistryValue& value) {
    constexpr char Digits[] = "0123456789abcdef";
    if (value.type == 1 || value.type == 2) {
        return TextOf(value);
    }
    if (value.type == 4 && value.data.size() == 4) {
        simwin::DWORD number;
        std::memcpy(&number, value.data.data(), sizeof number);
        return std::to_string(number);
    }
    std::string text;
    if (value.type == 7) {
        for (const std::uint8_t byte : value.data) {
            text += byte ? static_cast<char>(byte) : ';';
        }
        while (text.ends_with(';')) {
            text.pop_back();
        }
        return text;
    }
    for (const std::uint8_t byte : value.data) {
        if (!text.empty()) {
            text += ',';
        }
        text += Digits[byte >> 4];
        text += Digits[byte & 15];
    }
    return text;
}

} // namespace machine
