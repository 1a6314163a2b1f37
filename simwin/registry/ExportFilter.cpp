#include "simwin/registry/ExportFilter.h"

#include "simwin/kernel/Text.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <span>

namespace machine {

constexpr std::string_view LocalMachine = "HKEY_LOCAL_MACHINE";
constexpr std::string_view System = "HKEY_LOCAL_MACHINE\\SYSTEM";
constexpr std::string_view CurrentSet = "CurrentControlSet";
constexpr simwin::DWORD TypeText = 1, TypeExpand = 2, TypeBinary = 3, TypeDword = 4, TypeMulti = 7;

namespace {
enum class Wanted { Text, Number, Texts, Bytes };
struct StoredType {
    const char* name;
    Wanted type;
};
} // namespace
constexpr StoredType OfDevice[] = {
    {"DeviceDesc", Wanted::Text}, {"FriendlyName", Wanted::Text},   {"Service", Wanted::Text},
    {"ClassGUID", Wanted::Text},  {"Class", Wanted::Text},          {"LocationInformation", Wanted::Text},
    {"Driver", Wanted::Text},     {"ParentIdPrefix", Wanted::Text}, {"ConfigFlags", Wanted::Number},
    {"Address", Wanted::Number},  {"Capabilities", Wanted::Number}, {"HardwareID", Wanted::Texts},
    {"Mfg", Wanted::Text},        {"CompatibleIDs", Wanted::Texts},
};
constexpr StoredType OfParameters[] = {{"PortName", Wanted::Text}, {"DosDeviceName", Wanted::Text}};
constexpr StoredType OfArbiter[] = {{"ComDB", Wanted::Bytes}};

static bool IsOfType(const ExportedValue& value, Wanted wanted) {
    switch (wanted) {
    case Wanted::Text:
        return value.type == TypeText || value.type == TypeExpand;
    case Wanted::Number:
        return value.type == TypeDword && value.data.size() == sizeof(simwin::DWORD);
    case Wanted::Texts:
        return value.type == TypeMulti;
    case Wanted::Bytes:
        return value.type == TypeBinary;
    }
    return false;
}

static std::string_view Cut(std::string_view& path) {
    const std::size_t end = path.find('\\');
    const std::string_view name = path.substr(0, end);
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
    return name;
}

// The values that a key has by its place: ...\SYSTEM\<set>\Enum\<enumerator>\<device>\<instance>, the parameters
// below it, and the database of COM names.
static std::span<const StoredType> StoredTypesOf(std::string_view path) {
    for (int i = 0; i < 3; ++i) {
        Cut(path);
    }
    if (EqualNoCase(path, "Control\\COM Name Arbiter")) {
        return OfArbiter;
    }
    if (!EqualNoCase(Cut(path), "Enum")) {
        return {};
    }
    for (int i = 0; i < 2; ++i) {
        Cut(path);
    }
    const bool isInstance = !Cut(path).empty();
    if (EqualNoCase(path, "Device Parameters")) {
        return OfParameters;
    }
    return isInstance && path.empty() ? std::span<const StoredType>(OfDevice) : std::span<const StoredType>();
}

// The number of "ControlSet002"; 0 for another name.
static unsigned NumberOfSet(std::string_view name) {
    constexpr std::string_view Start = "ControlSet";
    if (name.size() != Start.size() + 3 || !StartsWithNoCase(name, Start)) {
        return 0;
    }
    unsigned number = 0;
    for (const char c : name.substr(Start.size())) {
        if (c < '0' || c > '9') {
            return 0;
        }
        number = number * 10 + static_cast<unsigned>(c - '0');
    }
    return number;
}

static bool IsPartOfSystem(std::string_view name) {
    return EqualNoCase(name, "Select") || EqualNoCase(name, CurrentSet) || NumberOfSet(name) != 0;
}

// Keys that Windows itself has below HKEY_LOCAL_MACHINE: none of them is a mounted hive.
static bool IsOwnHive(std::string_view name) {
    for (const char* own : {"SYSTEM", "SOFTWARE", "HARDWARE", "SAM", "SECURITY", "COMPONENTS", "DRIVERS"}) {
        if (EqualNoCase(name, own)) {
            return true;
        }
    }
    return false;
}

// Hives mounted below HKEY_LOCAL_MACHINE or HKEY_USERS that hold control sets.
static void RenameMounted(std::vector<ExportedKey>& keys, std::vector<std::string>& lines) {
    std::set<std::string, NoCaseLess> mounted;
    for (const ExportedKey& key : keys) {
        std::string_view path = key.path;
        const std::string_view root = Cut(path), name = Cut(path);
        const bool isMachine = EqualNoCase(root, LocalMachine) && !IsOwnHive(name);
        if ((isMachine || EqualNoCase(root, "HKEY_USERS")) && IsPartOfSystem(Cut(path))) {
            mounted.insert(std::string(root) + "\\" + std::string(name));
        }
    }
    for (const std::string& name : mounted) {
        lines.push_back("'" + name + "' of the exports is read as '" + std::string(System) + "'");
        for (ExportedKey& key : keys) {
            if (StartsWithNoCase(key.path, name) && (key.path.size() == name.size() || key.path[name.size()] == '\\')) {
                key.path = std::string(System) + key.path.substr(name.size());
            }
        }
    }
}

// The set below SYSTEM that a key belongs to, "" for none.
static std::string_view SetOf(std::string_view path) {
    if (!EqualNoCase(Cut(path), LocalMachine) || !EqualNoCase(Cut(path), "SYSTEM")) {
        return {};
    }
    const std::string_view set = Cut(path);
    return EqualNoCase(set, CurrentSet) || NumberOfSet(set) != 0 ? set : std::string_view();
}

static std::optional<unsigned> SelectedSet(const std::vector<ExportedKey>& keys) {
    std::optional<unsigned> selected;
    for (const ExportedKey& key : keys) {
        if (!EqualNoCase(key.path, std::string(System) + "\\Select")) {
            continue;
        }
        for (const ExportedValue& value : key.values) {
            if (EqualNoCase(value.name, "Current") && IsOfType(value, Wanted::Number)) {
                selected = value.data[0] | static_cast<unsigned>(value.data[1]) << 8;
            }
        }
    }
    return selected;
}

void LeaveOutWrongTypes(std::vector<ExportedKey>& keys, std::vector<ExportNote>& notes) {
    for (ExportedKey& key : keys) {
        const std::span<const StoredType> types = StoredTypesOf(key.path);
        std::erase_if(key.values, [&](const ExportedValue& value) {
            if (value.deleted) {
                return false;
            }
            for (const StoredType& row : types) {
                if (!EqualNoCase(row.name, value.name) || IsOfType(value, row.type)) {
                    continue;
                }
                notes.push_back(NoteOfValue(key, value, "its type is not that of this value"));
                return true;
            }
            return false;
        });
    }
}

std::vector<std::string> UnifyControlSets(std::vector<ExportedKey>& keys) {
    std::vector<std::string> lines;
    RenameMounted(keys, lines);
    bool hasCurrent = false;
    std::map<unsigned, std::string> sets; // by number
    for (const ExportedKey& key : keys) {
        const std::string_view set = SetOf(key.path);
        if (EqualNoCase(set, CurrentSet)) {
            hasCurrent = true;
        } else if (!set.empty()) {
            sets.emplace(NumberOfSet(set), set);
        }
    }
    if (sets.empty()) {
        return lines;
    }
    const std::optional<unsigned> selected = SelectedSet(keys);
    unsigned taken = 0; // the set that is CurrentControlSet under its own name
    if (selected && sets.contains(*selected)) {
        taken = *selected;
    } else if (!hasCurrent || sets.size() == 1) {
        taken = sets.begin()->first;
    }
    // ControlSet001 alone is normal for an export of a running machine; everything else is noted.
    const bool isPlain = sets.size() == 1 && taken == 1 && selected.value_or(taken) == taken;
    if (taken && !isPlain) {
        lines.push_back("control set '" + sets[taken] + "' is taken for the current one" +
                        (selected == taken ? ", as Select says"
                         : selected        ? ": the one that Select names is not there"
                         : sets.size() > 1 ? ": no Select names another"
                                           : ""));
    }
    for (const auto& [number, name] : sets) {
        if (number != taken) {
            lines.push_back("control set '" + name + "' is left out: it is not the current one");
        }
    }
    std::vector<ExportedKey> kept;
    for (ExportedKey& key : keys) {
        const std::string_view set = SetOf(key.path);
        if (!set.empty() && !EqualNoCase(set, CurrentSet)) {
            if (NumberOfSet(set) != taken) {
                continue;
            }
            key.path.replace(System.size() + 1, set.size(), CurrentSet);
        }
        kept.push_back(std::move(key));
    }
    keys = std::move(kept);
    return lines;
}

} // namespace machine
