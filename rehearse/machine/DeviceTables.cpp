#include "rehearse/machine/DeviceTables.h"

#include "rehearse/description/DescriptionReader.h"

#include "simwin/devices/build/Devices.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace rehearse {

constexpr const char* EnumKey = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\";
constexpr const char* RootId = "HTREE\\ROOT\\0";
constexpr std::int64_t LargestDword = 0xFFFFFFFF;
constexpr std::int64_t MostHubPorts = 255;
constexpr std::int64_t LargestComNumber = 4096;
constexpr std::size_t UsualComDbBytes = 32;

namespace {
struct TextField {
    const char* key;
    std::optional<std::string> machine::DeviceDescription::*field;
};
constexpr TextField TextFields[] = {
    {"parent", &machine::DeviceDescription::parent},
    {"class", &machine::DeviceDescription::className},
    {"class_guid", &machine::DeviceDescription::classGuid},
    {"service", &machine::DeviceDescription::service},
    {"description", &machine::DeviceDescription::description},
    {"friendly_name", &machine::DeviceDescription::friendlyName},
    {"driver_key", &machine::DeviceDescription::driverKey},
    {"location", &machine::DeviceDescription::location},
    {"location_path", &machine::DeviceDescription::locationPath},
    {"port_name", &machine::DeviceDescription::portName},
    {"dos_device_name", &machine::DeviceDescription::dosDeviceName},
    {"name_value", &machine::DeviceDescription::nameValue},
    {"kernel_name_path", &machine::DeviceDescription::kernelNamePath},
    {"held_by", &machine::DeviceDescription::heldBy},
};

struct NumberField {
    const char* key;
    std::optional<std::uint32_t> machine::DeviceDescription::*field;
    std::int64_t most;
};
constexpr NumberField NumberFields[] = {
    {"address", &machine::DeviceDescription::address, LargestDword},
    {"irq", &machine::DeviceDescription::irq, LargestDword},
    {"io_port", &machine::DeviceDescription::ioPort, LargestDword},
    {"hub_port", &machine::DeviceDescription::hubPort, MostHubPorts},
    {"ports", &machine::DeviceDescription::ports, MostHubPorts},
    {"cycle_status", &machine::DeviceDescription::cycleStatus, LargestDword},
    {"problem", &machine::DeviceDescription::problem, LargestDword},
};

struct FlagField {
    const char* key;
    std::optional<bool> machine::DeviceDescription::*field;
};
constexpr FlagField FlagFields[] = {
    {"plugged", &machine::DeviceDescription::plugged},
    {"leaves_link", &machine::DeviceDescription::leavesLink},
    {"refuses", &machine::DeviceDescription::refuses},
    {"protected", &machine::DeviceDescription::isProtected},
};

struct ListField {
    const char* key;
    std::optional<std::vector<std::string>> machine::DeviceDescription::*field;
};
} // namespace
constexpr ListField ListFields[] = {
    {"hardware_id", &machine::DeviceDescription::hardwareId},
    {"kernel_name", &machine::DeviceDescription::kernelName},
    {"interfaces", &machine::DeviceDescription::interfaces},
};

// The list of connected devices, in any form that Windows prints.
static std::string ReadConnected(const std::string& file, const Position& at) {
    const std::optional<std::string> text = machine::AnsiFromFile(ReadHostFile(file, at));
    if (!text) {
        throw InputError(at, fmt::format("'{}' is no text: neither UTF-16 nor UTF-8 nor ANSI", file));
    }
    return *text;
}

static void CheckInterfaces(const TomlTable& table) {
    static const std::set<std::string> Names = {"comport", "modem", "hub", "controller", "usb", "serenum"};
    const std::vector<std::string> interfaces = table.TextsOf("interfaces");
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        simwin::GUID guid;
        if (!Names.contains(interfaces[i]) && !machine::GuidFromText(interfaces[i], guid)) {
            throw InputError(
                table.Find("interfaces")->itemsAt[i],
                fmt::format("'{}' is no interface: comport, modem, hub, controller, usb, serenum, or a GUID "
                            "in braces",
                            interfaces[i]));
        }
    }
}

// A parent is another described device or one of the exports.
static void CheckParents(const TomlTable& description) {
    std::set<std::string> known = {machine::Lower(RootId)};
    for (const TomlTable& table : description.TablesOf("device")) {
        known.insert(machine::Lower(table.TextOf("id")));
    }
    for (const TomlTable& table : description.TablesOf("device")) {
        const std::string parent = table.TextOf("parent");
        if (!table.Has("parent") || known.contains(machine::Lower(parent))) {
            continue;
        }
        if (!machine::TheRegistry().FindKey(EnumKey + parent, "")) {
            throw InputError(table.At("parent"), fmt::format("there is no device '{}'", parent));
        }
    }
}

static machine::ComDatabaseDescription ComDatabaseOf(const TomlTable* table) {
    machine::ComDatabaseDescription database;
    if (!table) {
        return database;
    }
    database.missing = table->FlagOf("missing");
    if (table->Has("size")) {
        const std::int64_t size = table->NumberOf("size");
        if (size < 0 || size > LargestComNumber / 8) {
            throw InputError(table->At("size"), fmt::format("'size' must be 0 to {}", LargestComNumber / 8));
        }
        database.size = static_cast<std::size_t>(size);
    }
    if (const Value* taken = table->Find("taken")) {
        database.taken.emplace();
        const auto most = static_cast<std::int64_t>(database.size.value_or(UsualComDbBytes) * 8);
        for (std::size_t i = 0; i < taken->numbers.size(); ++i) {
            if (taken->numbers[i] < 1 || taken->numbers[i] > most) {
                throw InputError(taken->itemsAt[i], fmt::format("a number must be 1 to {}, as 'size' has room", most));
            }
            database.taken->push_back(static_cast<unsigned>(taken->numbers[i]));
        }
    }
    return database;
}

// A name for a device without a driver to create it would be silently ignored.
static void CheckNames(const TomlTable& table) {
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(table.TextOf("id"));
    for (const char* key : {"port_name", "dos_device_name"}) {
        if (table.Has(key) && node && !node->IsPort()) {
            throw InputError(table.At(key), fmt::format("'{}' is no port: it has no '{}'", table.TextOf("id"), key));
        }
    }
}

// The place of the machine's complaint: the device that it names first.
static Position PlaceOf(const TomlTable& description, const std::string& wrong) {
    const TomlTable* best = nullptr;
    std::size_t bestAt = std::string::npos;
    for (const TomlTable& table : description.TablesOf("device")) {
        const std::string id = "'" + table.TextOf("id") + "'";
        const std::size_t found = machine::FindNoCase(wrong, id);
        if (found < bestAt) {
            best = &table;
            bestAt = found;
        }
    }
    if (best) {
        return best->at;
    }
    return description.Has("connected") ? description.At("connected") : description.at;
}

machine::DeviceDescription DeviceOf(const TomlTable& table) {
    machine::DeviceDescription device;
    device.id = table.TextOf("id");
    // Two parts at least, none of them empty: a key below Enum.
    const std::vector<std::string> parts = machine::Split(device.id, '\\');
    if (parts.size() < 2 || std::find(parts.begin(), parts.end(), std::string()) != parts.end()) {
        throw InputError(table.At("id"), fmt::format("'{}' is no device id", device.id));
    }
    for (const TextField& row : TextFields) {
        if (table.Has(row.key)) {
            device.*row.field = table.TextOf(row.key);
        }
    }
    for (const NumberField& row : NumberFields) {
        if (!table.Has(row.key)) {
            continue;
        }
        const std::int64_t number = table.NumberOf(row.key);
        if (number < 0 || number > row.most) {
            throw InputError(table.At(row.key), fmt::format("'{}' must be 0 to {}", row.key, row.most));
        }
        device.*row.field = static_cast<std::uint32_t>(number);
    }
    for (const FlagField& row : FlagFields) {
        if (table.Has(row.key)) {
            device.*row.field = table.FlagOf(row.key);
        }
    }
    for (const ListField& row : ListFields) {
        if (table.Has(row.key)) {
            device.*row.field = table.TextsOf(row.key);
        }
    }
    CheckInterfaces(table);
    if (device.kernelName && device.kernelName->empty()) {
        throw InputError(table.At("kernel_name"), "'kernel_name' must name one kernel device at least");
    }
    if (table.Has("kind")) {
        device.kind = machine::DeviceKindFromName(table.TextOf("kind"));
    }
    if (table.Has("name_taken")) {
        device.nameTaken = machine::NameTakenFromName(table.TextOf("name_taken"));
    }
    if (table.Has("knows_in")) {
        device.knowsInMs = table.MsOf("knows_in");
    }
    if (table.Has("starts_in")) {
        device.startsInMs = table.MsOf("starts_in");
    }
    if (table.Has("link_goes")) {
        device.linkGoes =
            machine::LinkGoes{table.Is("link_goes", Text) ? 0 : table.MsOf("link_goes"), table.Is("link_goes", Text)};
    }
    if (table.Is("vetoes", Flag)) {
        device.vetoes = table.FlagOf("vetoes") ? machine::VetoesAlways : 0;
    } else if (table.Has("vetoes")) {
        device.vetoes = static_cast<std::uint32_t>(std::clamp<std::int64_t>(table.NumberOf("vetoes"), 0, LargestDword));
    }
    return device;
}

machine::Opens OpensOf(const TomlTable& table) {
    const std::string text = table.TextOf("opens", "gone");
    const std::optional<machine::Opens> opens = machine::OpensFromText(text);
    if (!opens) {
        throw InputError(table.At("opens"), fmt::format("'opens' must be gone, no-path, no-device, busy, hangs, ok, or "
                                                        "\"late 450ms\", not '{}'",
                                                        text));
    }
    return *opens;
}

void SetUpDevices(const TomlTable& description) {
    CheckParents(description);
    machine::DevicesDescription devices;
    for (const TomlTable& table : description.TablesOf("device")) {
        devices.devices.push_back(DeviceOf(table));
    }
    for (const TomlTable& table : description.TablesOf("dos_name")) {
        if (!table.Has("target")) {
            throw InputError(table.at, "'target' is missing in 'dos_name'");
        }
        if (table.TextOf("name").empty()) {
            throw InputError(table.At("name"), "'name' must not be empty");
        }
        devices.dosNames.push_back({table.TextOf("name"), table.TextOf("target"), OpensOf(table)});
    }
    devices.comDatabase = ComDatabaseOf(description.TableOf("com_database"));
    if (description.Has("connected")) {
        devices.connected = ReadConnected(description.TextOf("connected"), description.At("connected"));
    }
    const std::string wrong = machine::BuildDevices(devices);
    if (!wrong.empty()) {
        throw InputError(PlaceOf(description, wrong), wrong);
    }
    for (const TomlTable& table : description.TablesOf("device")) {
        CheckNames(table);
    }
}

} // namespace rehearse
